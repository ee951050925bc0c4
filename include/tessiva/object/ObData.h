// SPDX-License-Identifier: MIT
// ObData: an immutable run of bytes.
#pragma once

#include "tessiva/object/ObRef.h"

#include <cstddef>
#include <vector>

class TESSIVA_PLATFORM_API ObData : public ObObject {
public:
    // The length is ObUInteger rather than std::size_t so that the exported
    // name is one on 32-bit and 64-bit builds; a std::size_t converts to it.
    static ObRef<ObData> make(const void* bytes, ObUInteger length);

    const unsigned char* bytes() const noexcept { return bytes_.data(); }
    ObUInteger length() const noexcept { return bytes_.size(); }

    // The bytes in hexadecimal between angle brackets, "<01ff>".
    ObRef<ObString> description() const override;
    ObUInteger hash() const noexcept override;
    const char* className() const noexcept override;

protected:
    bool equals(const ObObject& other) const noexcept override;

private:
    explicit ObData(std::vector<unsigned char> bytes) noexcept : bytes_(std::move(bytes)) {}

    std::vector<unsigned char> bytes_;
};
