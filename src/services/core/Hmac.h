// SPDX-License-Identifier: MIT
// HMAC-SHA-256 (RFC 2104 over FIPS 180-4), the one keyed hash of the
// services: ridge-scan identities are made with it, so that they name a
// finger of a user without revealing which.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tessiva::detail {
using Digest256 = std::array<std::uint8_t, 32>;

// Incremental SHA-256; finish() may be called once.
class Sha256 {
public:
    Sha256() noexcept;
    void update(const void* bytes, std::size_t length) noexcept;
    Digest256 finish() noexcept;

private:
    void compress(const std::uint8_t* block) noexcept;

    std::array<std::uint32_t, 8> state_;
    std::array<std::uint8_t, 64> block_{};
    std::size_t used_ = 0;
    std::uint64_t length_ = 0;
};

Digest256 hmacSha256(std::string_view key, std::string_view message) noexcept;
} // namespace tessiva::detail
