// Text forms appended straight into one buffer, so that formatting a
// container makes no string object for each thing inside it.
#pragma once

#include "tessiva/object/ObArray.h"
#include "tessiva/object/ObDictionary.h"

#include <string>

namespace tessiva::detail {

// Appends the object's description(). For the library's own string, number,
// dictionary and array classes the text is written here directly; for any
// other class, subclasses of those included, description() is called, so the
// text is always the one description() gives.
void appendDescription(std::string& out, const ObObject& object);

// The bodies of ObArray::description() and ObDictionary::description().
void appendArrayDescription(std::string& out, const ObArray& array);
void appendDictionaryDescription(std::string& out, const ObDictionary& dictionary);
// ObNumber::description() of a number holding `value`.
void appendIntegerDescription(std::string& out, ObInteger value);

} // namespace tessiva::detail
