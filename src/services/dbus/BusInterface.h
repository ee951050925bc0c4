// The daemon's D-Bus interface: names, error names and the limits both ends
// enforce (data/org.tessiva.Authentication1.xml documents them).
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessiva::detail::bus {
// The daemon's well-known name, its object and its interface.
inline constexpr char busName[] = "org.tessiva.Authentication1";
inline constexpr char objectPath[] = "/org/tessiva/Authentication1";
inline constexpr char interfaceName[] = "org.tessiva.Authentication1";
inline constexpr char errorUnknownClient[] = "org.tessiva.Authentication1.Error.UnknownClient";
inline constexpr char errorInvalidValue[] = "org.tessiva.Authentication1.Error.InvalidValue";
// A client's path: 128 random bits under this prefix, in hexadecimal.
inline constexpr char clientPathPrefix[] = "/org/tessiva/Authentication1/client/";

// How a client's delegate call for an event ended, as EventReturned says.
enum class EventOutcome : std::int32_t { returned = 0, threwException = 1, threwOther = 2 };

// A value nests at most this many arrays, dictionaries and errors deep.
inline constexpr int maxValueDepth = 16;
// A value holds at most this many objects, and this many bytes of text and data.
inline constexpr std::size_t maxValueObjects = 4096;
inline constexpr std::size_t maxValueBytes = 64 * 1024;
} // namespace tessiva::detail::bus
