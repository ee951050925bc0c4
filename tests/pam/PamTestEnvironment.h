// SPDX-License-Identifier: MIT
// The users, passwords and PAM services that the PAM suites' main writes.
#pragma once

namespace tessiva::test {
inline constexpr const char* pamService = "tessiva-test";
inline constexpr const char* pamVerboseService = "tessiva-test-verbose";
inline constexpr const char* pamEchoService = "tessiva-test-echo";
// Judged by a module that would let an empty password in.
inline constexpr const char* pamNullTokenService = "tessiva-test-nulltoken";
// Takes the right password, then says the account has expired.
inline constexpr const char* pamExpiredService = "tessiva-test-expired";
inline constexpr const char* pamUser = "alice";
inline constexpr const char* pamPassword = "correct horse";
inline constexpr const char* pamOtherUser = "bob";
inline constexpr const char* pamOtherPassword = "battery staple";
// The daemon's callers: the user running the tests, and one it switches to.
inline constexpr const char* pamCallerPassword = "own secret";
inline constexpr unsigned pamOtherUid = 65534;
inline constexpr const char* pamOtherUidPassword = "other secret";
// Known to the password database, but allowed only another service.
inline constexpr const char* pamForeignUser = "dora";
} // namespace tessiva::test
