// SPDX-License-Identifier: MIT
// The daemon's D-Bus interface: names, error names and the limits both ends
// enforce (data/org.tessiva.Authentication2.xml documents them).
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessiva::detail::bus {
// The daemon's well-known name and its object, which name the service and
// stay; and its interface, whose number is the protocol's version: an
// incompatible change gets a new name, so that a client and a daemon of
// different versions meet an unknown interface at once, never a hang.
inline constexpr char busName[] = "org.tessiva.Authentication1";
inline constexpr char objectPath[] = "/org/tessiva/Authentication1";
inline constexpr char interfaceName[] = "org.tessiva.Authentication2";
inline constexpr char errorUnknownClient[] = "org.tessiva.Authentication2.Error.UnknownClient";
inline constexpr char errorInvalidValue[] = "org.tessiva.Authentication2.Error.InvalidValue";
// A client's path: 128 random bits under this prefix, in hexadecimal.
inline constexpr char clientPathPrefix[] = "/org/tessiva/Authentication1/client/";

// How a client's delegate call for an event ended, as AnswerEvent says;
// `running` sends an answer given during the call before the client process
// makes another call, which must not overtake it.
enum class EventOutcome : std::int32_t {
    returned = 0,
    threwException = 1,
    threwOther = 2,
    running = 3
};

// A value nests at most this many arrays, dictionaries and errors deep.
inline constexpr int maxValueDepth = 16;
// A value holds at most this many objects, and this many bytes of text and data.
inline constexpr std::size_t maxValueObjects = 4096;
inline constexpr std::size_t maxValueBytes = 64 * 1024;
} // namespace tessiva::detail::bus
