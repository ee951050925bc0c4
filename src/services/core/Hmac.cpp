// SPDX-License-Identifier: MIT
// SHA-256 and HMAC-SHA-256, checked against the published test vectors.
#include "Hmac.h"

#include <algorithm>
#include <cstring>

namespace tessiva::detail {
namespace {
constexpr std::array<std::uint32_t, 64> roundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr std::uint32_t rotr(std::uint32_t value, int bits) noexcept {
    return (value >> bits) | (value << (32 - bits));
}
} // namespace

Sha256::Sha256() noexcept
    : state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19} {}

void Sha256::compress(const std::uint8_t* block) noexcept {
    std::array<std::uint32_t, 64> w{};
    for (int i = 0; i < 16; ++i)
        w[i] = std::uint32_t(block[4 * i]) << 24 | std::uint32_t(block[4 * i + 1]) << 16 |
               std::uint32_t(block[4 * i + 2]) << 8 | std::uint32_t(block[4 * i + 3]);
    for (int i = 16; i < 64; ++i) {
        const std::uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
        const std::uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, h] = state_;
    for (int i = 0; i < 64; ++i) {
        const std::uint32_t s1 = rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25);
        const std::uint32_t choice = (e & f) ^ (~e & g);
        const std::uint32_t t1 = h + s1 + choice + roundConstants[i] + w[i];
        const std::uint32_t s0 = rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22);
        const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + s0 + majority;
    }
    const std::array<std::uint32_t, 8> add = {a, b, c, d, e, f, g, h};
    for (int i = 0; i < 8; ++i)
        state_[i] += add[i];
}

void Sha256::update(const void* bytes, std::size_t length) noexcept {
    const auto* in = static_cast<const std::uint8_t*>(bytes);
    length_ += length;
    while (length > 0) {
        const std::size_t take = std::min(length, block_.size() - used_);
        std::memcpy(block_.data() + used_, in, take);
        used_ += take;
        in += take;
        length -= take;
        if (used_ == block_.size()) {
            compress(block_.data());
            used_ = 0;
        }
    }
}

Digest256 Sha256::finish() noexcept {
    const std::uint64_t bits = length_ * 8;
    const std::uint8_t one = 0x80, zero = 0;
    update(&one, 1);
    while (used_ != 56)
        update(&zero, 1);
    std::uint8_t tail[8];
    for (int i = 0; i < 8; ++i)
        tail[i] = std::uint8_t(bits >> (56 - 8 * i));
    update(tail, sizeof tail);
    Digest256 digest{};
    for (int i = 0; i < 8; ++i)
        for (int j = 0; j < 4; ++j)
            digest[4 * i + j] = std::uint8_t(state_[i] >> (24 - 8 * j));
    return digest;
}

Digest256 hmacSha256(std::string_view key, std::string_view message) noexcept {
    std::array<std::uint8_t, 64> block{};
    if (key.size() > block.size()) {
        Sha256 hashed;
        hashed.update(key.data(), key.size());
        const Digest256 digest = hashed.finish();
        std::memcpy(block.data(), digest.data(), digest.size());
    } else {
        std::memcpy(block.data(), key.data(), key.size());
    }
    std::array<std::uint8_t, 64> pad{};
    Sha256 inner;
    for (std::size_t i = 0; i < pad.size(); ++i)
        pad[i] = block[i] ^ 0x36;
    inner.update(pad.data(), pad.size());
    inner.update(message.data(), message.size());
    const Digest256 innerDigest = inner.finish();
    Sha256 outer;
    for (std::size_t i = 0; i < pad.size(); ++i)
        pad[i] = block[i] ^ 0x5c;
    outer.update(pad.data(), pad.size());
    outer.update(innerDigest.data(), innerDigest.size());
    return outer.finish();
}
} // namespace tessiva::detail
