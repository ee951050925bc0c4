// Immutable arrays of present objects.
#include "tessiva/object/ObArray.h"

#include "Description.h"
#include "tessiva/object/ObException.h"
#include "tessiva/object/ObFormat.h"

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

void tessiva::detail::appendArrayDescription(std::string& out, const ObArray& array) {
    out += '(';
    bool first = true;
    for (const ObRef<ObObject>& item : array) {
        if (!first)
            out += ", ";
        first = false;
        appendDescription(out, *item);
    }
    out += ')';
}

ObUInteger ObArray::hash() const noexcept {
    return items_.size();
}

const char* ObArray::className() const noexcept {
    return "ObArray";
}

bool ObArray::equals(const ObObject& other) const noexcept {
    const auto* array = dynamic_cast<const ObArray*>(&other);
    if (array == nullptr || array->items_.size() != items_.size())
        return false;
    for (ObUInteger index = 0; index < items_.size(); ++index) {
        if (!items_[index]->isEqual(array->items_[index].get()))
            return false;
    }
    return true;
}
