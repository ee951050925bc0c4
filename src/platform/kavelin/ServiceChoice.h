// Which service a process starts with, as TESSIVA_SERVICE names it.
#pragma once

namespace tessiva::detail {

enum class ServiceChoice { Simulated, None };

// Read once per process, without regard to case; unset or empty is the
// simulated service. A value the library does not know is written once to
// the system log at error level, whatever the logging switch says, and read
// as unset.
ServiceChoice configuredService();

} // namespace tessiva::detail
