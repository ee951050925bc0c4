// SPDX-License-Identifier: MIT
// Seam<I>: an installable replacement for an outside service, falling back to
// a default. Never destroyed, so static destructors elsewhere may still use it.
#pragma once

#include "tessiva/os/ObAtomicRef.h"

namespace tessiva::detail {
template <class Interface> class Seam {
public:
    explicit Seam(ObRef<Interface> fallback) : fallback_(std::move(fallback)) {}

    // The installed replacement, or the default; the caller's share keeps it
    // alive while in use even if another thread installs a new one meanwhile.
    ObRef<Interface> current() const {
        ObRef<Interface> installed = installed_.load();
        return installed ? installed : fallback_;
    }
    ObRef<Interface> install(const ObRef<Interface>& replacement) {
        return installed_.exchange(replacement);
    }

private:
    ObAtomicRef<Interface> installed_;
    const ObRef<Interface> fallback_;
};
} // namespace tessiva::detail
