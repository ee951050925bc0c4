// Basic integer types and export macros shared by every public header.
#pragma once

#include <cstdint>

// Signed integer of the machine's word size: `long` is the word size on both
// x86-64 and 32-bit x86 Linux, and mangles as one name on both.
using ObInteger = long;
// Its unsigned twin, used for counts, lengths, indexes and hashes.
using ObUInteger = unsigned long;

static_assert(sizeof(ObInteger) == sizeof(void*), "ObInteger must be the word size");
static_assert(sizeof(ObUInteger) == sizeof(void*), "ObUInteger must be the word size");

#define TESSIVA_VISIBLE __attribute__((visibility("default")))

// Symbols of the platform layer library.
#define TESSIVA_PLATFORM_API TESSIVA_VISIBLE
// Symbols of the Tessiva library.
#define TESSIVA_API TESSIVA_VISIBLE
