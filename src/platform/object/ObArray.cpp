// SPDX-License-Identifier: MIT
// Immutable arrays of present objects.
#include "tessiva/object/ObArray.h"

#include "ContainerHash.h"
#include "Description.h"
#include "GraphEquality.h"
#include "tessiva/object/ObException.h"
#include "tessiva/object/ObFormat.h"

#include <algorithm>
#include <string>

namespace {
void requireNoAbsentItem(const std::vector<ObRef<ObObject>>& items) {
    for (ObUInteger index = 0; index < items.size(); ++index) {
        if (!items[index])
            throw ObInvalidArgumentException(
                ObFormat("ObArray: attempt to insert an absent object at index %ld", index));
    }
}
} // namespace

ObRef<ObArray> ObArray::make(std::initializer_list<ObRef<ObObject>> items) {
    return make(std::vector<ObRef<ObObject>>(items));
}

ObRef<ObArray> ObArray::make(std::vector<ObRef<ObObject>> items) {
    requireNoAbsentItem(items);
    return ObRef<ObArray>::adopt(new ObArray(std::move(items)));
}

ObRef<ObObject> ObArray::objectAtIndex(ObUInteger index) const noexcept {
    return index < items_.size() ? items_[index] : ObRef<ObObject>();
}

ObRef<ObString> ObArray::description() const {
    std::string text;
    tessiva::detail::appendArrayDescription(text, *this);
    return ObString::make(text);
}

ObUInteger ObArray::hash() const noexcept {
    using tessiva::detail::mixHash;
    ObUInteger hash = items_.size();
    const ObUInteger hashed =
        std::min<ObUInteger>(items_.size(), tessiva::detail::hashedArrayItems);
    for (ObUInteger index = 0; index < hashed; ++index)
        hash = mixHash(hash, tessiva::detail::itemHash(*items_[index]));
    return hash;
}

const char* ObArray::className() const noexcept {
    return "ObArray";
}

bool ObArray::equals(const ObObject& other) const noexcept {
    const auto* array = dynamic_cast<const ObArray*>(&other);
    if (array == nullptr || array->items_.size() != items_.size())
        return false;
    tessiva::detail::EqualityWalk walk;
    for (ObUInteger index = 0; index < items_.size(); ++index) {
        if (!walk.compare(*items_[index], *array->items_[index]))
            return false;
    }
    return walk.finish();
}
