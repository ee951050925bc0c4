// SPDX-License-Identifier: MIT
// The typed encoding of object values in D-Bus messages, one variant each:
//   absent            the empty signature, "g" ""
//   ObString          "s" (valid UTF-8 without NUL)
//   ObNumber          "b" when boolean, else "x"
//   ObData            "ay"
//   ObArray           "av"
//   ObDictionary      "a{sv}", "a{xv}" or "a{bv}": every key of one kind
//   ObError           "(sxv)": domain, code, user info (absent or a dictionary)
// Decoding gives back equal objects (dictionaries immutable, in the same
// order); both directions enforce the limits in BusInterface.h.
#pragma once

#include "tessiva/object/ObError.h"

#include <string>
#include <systemd/sd-bus.h>

namespace tessiva::detail::bus {
// Appends the value as one variant. A value that cannot cross the bus gives
// a KVErrorInvalidParameter error, and the message is then unusable.
ObRef<ObError> appendValue(sd_bus_message* message, const ObRef<ObObject>& value);

// Reads one variant into `value`; the problem, in words, when the message
// does not hold a value within the limits (empty on success).
std::string readValue(sd_bus_message* message, ObRef<ObObject>& value);
} // namespace tessiva::detail::bus
