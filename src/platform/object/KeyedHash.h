// SPDX-License-Identifier: MIT
// Hashes keyed with a secret drawn once per process, which place the keys of
// the dictionaries' index where a peer choosing those keys cannot predict.
//
// Why: tessivad decodes dictionaries that other local users send, so those
// users choose the keys, and with them the keys' public hashes. A number's
// hash is a bijection of its value, and a string's is FNV-1a, unkeyed and
// worked out at compile time for constants, in callers' binaries too, so it
// cannot change. Both are easy to aim: integers whose hashes land in one run
// of the index, or strings whose FNV-1a hashes are all equal (k colliding
// pairs of blocks, each found from the state the one before leaves, chain
// into 2^k such strings). Under linear probing, n such keys cost n^2/2
// probes to insert.
//
// So the index never uses a public hash as it is. A key's first placement
// is keyedMix() of its hash(), and its slot the top bits of that. keyedMix is
// a bijection, so distinct hashes never share a placement, and the hashes a
// peer picks fix only their XOR differences before the first multiplication
// by a secret odd word. That product spreads each difference over its upper
// bits differently for every key; the fold and the second secret
// multiplication make every bit of the slot depend on every bit of the hash.
// Which hashes share a run is therefore a property of the key, and the peer
// never sees one: enumeration follows insertion order, the public hashes of
// numbers and strings do not involve the key, and nothing sends a placement
// anywhere. What is left is timing, where one collision costs a few
// nanoseconds within a message's decoding. keyedMix is not a cryptographic
// function, as SipHash is; SipHash of every key would cost some seventy
// instructions or more on each lookup, on the library's hot paths, against
// the mix's two multiplications.
//
// Keys of one hash get one first placement, whatever the key. Distinct
// numbers never share a hash (theirs is a bijection of the value), nor do
// data in a way a peer could choose (an ObData's hash is SipHash of its
// bytes, as no constant carries one), but strings can. So a string whose run
// already holds another key of its hash goes to a second placement,
// SipHash-1-3 of its text, a keyed pseudorandom function: the first key of a
// hash keeps the first placement, and every later one is placed by its text.
// A peer's n strings of one hash then cost one comparison each, with the
// first, and their own runs are as short as anyone's. A lookup that meets an
// unequal key of its hash goes on to the second placement; no other computes
// SipHash.
//
// The same holds in the 32-bit build, with 32-bit words for the mix and
// SipHash's 64-bit result cut to the word.
#pragma once

#include "tessiva/object/ObDefines.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace tessiva::detail {

// SipHash-c-d of the bytes under a 128-bit key (the key's words and the
// bytes read in the machine's order, little-endian on both of Tessiva's).
template <int compressionRounds, int finalRounds>
std::uint64_t sipHash(const std::uint64_t (&key)[2], std::string_view bytes) noexcept {
    std::uint64_t v0 = key[0] ^ 0x736f6d6570736575ULL;
    std::uint64_t v1 = key[1] ^ 0x646f72616e646f6dULL;
    std::uint64_t v2 = key[0] ^ 0x6c7967656e657261ULL;
    std::uint64_t v3 = key[1] ^ 0x7465646279746573ULL;
    const auto rounds = [&](int count) {
        for (int round = 0; round < count; ++round) {
            v0 += v1;
            v1 = (v1 << 13 | v1 >> 51) ^ v0;
            v0 = v0 << 32 | v0 >> 32;
            v2 += v3;
            v3 = (v3 << 16 | v3 >> 48) ^ v2;
            v0 += v3;
            v3 = (v3 << 21 | v3 >> 43) ^ v0;
            v2 += v1;
            v1 = (v1 << 17 | v1 >> 47) ^ v2;
            v2 = v2 << 32 | v2 >> 32;
        }
    };
    const char* next = bytes.data();
    const std::size_t whole = bytes.size() & ~std::size_t{7};
    for (const char* end = next + whole; next != end; next += 8) {
        std::uint64_t word;
        std::memcpy(&word, next, 8);
        v3 ^= word;
        rounds(compressionRounds);
        v0 ^= word;
    }
    std::uint64_t last = 0;
    if (bytes.size() > whole)
        std::memcpy(&last, next, bytes.size() - whole);
    last |= static_cast<std::uint64_t>(bytes.size()) << 56;
    v3 ^= last;
    rounds(compressionRounds);
    v0 ^= last;
    v2 ^= 0xff;
    rounds(finalRounds);
    return v0 ^ v1 ^ v2 ^ v3;
}

struct HashKey {
    std::uint64_t sip[2];
    // keyedMix's: a word to XOR in, then two odd multipliers.
    ObUInteger mix[3];
};

// A fresh key from the kernel's random source.
HashKey drawHashKey() noexcept;

// The process's key: drawn on first use, by whichever thread comes first, and
// the same afterwards (in a child of fork() too).
inline const HashKey& hashKey() noexcept {
    static const HashKey key = drawHashKey();
    return key;
}

// SipHash-1-3 of the bytes under the process's key, in the word size.
inline ObUInteger keyedHashBytes(std::string_view bytes) noexcept {
    return static_cast<ObUInteger>(sipHash<1, 3>(hashKey().sip, bytes));
}

// A bijection of the word chosen by the process's key; see above.
inline ObUInteger keyedMix(ObUInteger hash) noexcept {
    const HashKey& key = hashKey();
    ObUInteger mixed = (hash ^ key.mix[0]) * key.mix[1];
    mixed ^= mixed >> (std::numeric_limits<ObUInteger>::digits / 2);
    return mixed * key.mix[2];
}

} // namespace tessiva::detail
