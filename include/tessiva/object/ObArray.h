// SPDX-License-Identifier: MIT
// ObArray: an immutable ordered list of present objects.
#pragma once

#include "tessiva/object/ObRef.h"

#include <initializer_list>
#include <vector>

class TESSIVA_PLATFORM_API ObArray : public ObObject {
public:
    using const_iterator = std::vector<ObRef<ObObject>>::const_iterator;

    // Raises ObInvalidArgumentException when an item is absent.
    static ObRef<ObArray> make(std::initializer_list<ObRef<ObObject>> items);
    static ObRef<ObArray> make(std::vector<ObRef<ObObject>> items);

    ObUInteger count() const noexcept { return items_.size(); }
    // The item at an index below count(); absent for any other index.
    ObRef<ObObject> objectAtIndex(ObUInteger index) const noexcept;

    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }

    // "(a, b, c)", items in their own text form; "()" when empty. A
    // container met again inside itself prints as "<cycle>"; nesting past
    // 256 levels prints "<...>" in place of the deeper container, and a text
    // past 1 MiB ends each open container with "<...>". Equality, hashing
    // and release work without recursion, at any depth.
    ObRef<ObString> description() const override;
    // From the count and the first eight items (a container item counts by
    // its size), so equal arrays hash alike at bounded cost.
    ObUInteger hash() const noexcept override;
    const char* className() const noexcept override;

protected:
    bool equals(const ObObject& other) const noexcept override;

private:
    explicit ObArray(std::vector<ObRef<ObObject>> items) noexcept : items_(std::move(items)) {}

    std::vector<ObRef<ObObject>> items_;
};
