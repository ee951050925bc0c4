// SPDX-License-Identifier: MIT
// JSON text to objects of the object library.
#pragma once

#include "tessiva/object/ObObject.h"
#include "tessiva/object/ObRef.h"

#include <string_view>

namespace tessiva::tool {

// The object for a JSON text: a string becomes an ObString, an integer an
// ObNumber, true and false boolean ObNumbers, an array an ObArray, an object
// an ObDictionary with ObString keys in the order written (a repeated key
// keeps its first place and takes the last value). Throws a UsageError for
// malformed JSON, for null (containers hold present objects only) and for a
// number that is not an integer of at most 64 bits; the message locates the
// value with a JSON Pointer.
ObRef<ObObject> objectFromJson(std::string_view text);

} // namespace tessiva::tool
