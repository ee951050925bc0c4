// SPDX-License-Identifier: MIT
// The class registry behind ObClassFromString: the default one, and the
// seam through which a test or host installs its own.
#include "Seam.h"
#include "tessiva/object/ObClass.h"
#include "tessiva/object/ObMake.h"

#include <map>
#include <mutex>
#include <string>

namespace {
class DefaultClassRegistry final : public ObClassRegistry {
public:
    ObRef<ObClass> classNamed(std::string_view name) override {
        std::lock_guard lock(mutex_);
        const auto found = classes_.find(name);
        return found == classes_.end() ? ObRef<ObClass>() : found->second;
    }

    ObRef<ObClass> registerClass(std::string_view name) {
        std::lock_guard lock(mutex_);
        auto& slot = classes_[std::string(name)];
        if (!slot)
            slot = ObMake<ObClass>(ObString::make(name));
        return slot;
    }

private:
    std::mutex mutex_;
    std::map<std::string, ObRef<ObClass>, std::less<>> classes_;
};

// Never destroyed: classes stay registered until the process ends, and static
// destructors of other libraries may still look names up.
DefaultClassRegistry& defaultRegistry() {
    static auto* registry = ObMake<DefaultClassRegistry>().leakRef();
    return *registry;
}

tessiva::detail::Seam<ObClassRegistry>& registrySeam() {
    static auto* seam =
        new tessiva::detail::Seam<ObClassRegistry>(ObRef<ObClassRegistry>(&defaultRegistry()));
    return *seam;
}
} // namespace

ObRef<ObClass> ObRegisterClass(std::string_view name) {
    return defaultRegistry().registerClass(name);
}

ObRef<ObClass> ObClassFromString(const ObRef<ObString>& name) {
    if (!name)
        return {};
    // The default registry is always there; the test only tells the optimiser so.
    const ObRef<ObClassRegistry> registry = registrySeam().current();
    return registry ? registry->classNamed(name->text()) : nullptr;
}

ObRef<ObClassRegistry> ObSetClassRegistry(const ObRef<ObClassRegistry>& registry) {
    return registrySeam().install(registry);
}
