// SPDX-License-Identifier: MIT
// SecretText: a passcode held by Tessiva, wiped from memory when let go.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

namespace tessiva::detail {
// Owns one heap copy of the text; moving hands the pointer on, so no second
// copy is ever made, and destruction overwrites the bytes before freeing them.
class SecretText {
public:
    explicit SecretText(std::string_view text)
        : bytes_(std::make_unique<char[]>(text.size() + 1)), length_(text.size()) {
        std::memcpy(bytes_.get(), text.data(), text.size());
    }
    SecretText(SecretText&&) noexcept = default;
    SecretText& operator=(SecretText&& other) noexcept {
        wipe();
        bytes_ = std::move(other.bytes_);
        length_ = other.length_;
        return *this;
    }
    ~SecretText() { wipe(); }

    std::string_view text() const noexcept { return {bytes_.get(), length_}; }
    // NUL-terminated.
    const char* c_str() const noexcept { return bytes_.get(); }

private:
    void wipe() noexcept {
        if (bytes_)
            explicit_bzero(bytes_.get(), length_ + 1);
    }

    std::unique_ptr<char[]> bytes_;
    std::size_t length_;
};
} // namespace tessiva::detail
