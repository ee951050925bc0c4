// SPDX-License-Identifier: MIT
// The VR error model: errors the library makes, and service errors renumbered.
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObOnce.h"

namespace {
OB_CONSTANT_STRING(emptyMessage, "");

// errorMap: service code -> VR code, rows in build order. The numbering
// differs on purpose; keep every irregularity (-3 -> -1007, two codes onto -6).
const ObDictionary& errorMap() {
    static ObOnceToken once;
    static const ObDictionary* table = nullptr;
    ObDispatchOnce(once, [] {
        static constexpr ObInteger rows[][2] = {
            {-1002, -1000}, {-1, -1},       {-1007, -1006}, {-1005, -1003},
            {-1004, -1002}, {-5, -7},       {-4, -3},       {-1003, -1001},
            {-6, -8},       {-7, -9},       {-2, -2},       {-3, -1007},
            {-1009, -1010}, {-1008, -1005}, {-1001, -6},    {-1000, -6},
        };
        std::vector<ObDictionary::Entry> entries;
        for (const auto& row : rows)
            entries.emplace_back(ObNumber::make(row[0]), ObNumber::make(row[1]));
        table = ObDictionary::make(std::move(entries)).leakRef();
    });
    return *table;
}
} // namespace

ObRef<ObError> KVLegacyHelper::vrErrorWithCode_andMessage(ObInteger code,
                                                          const ObRef<ObString>& message) {
    const ObRef<ObString> text = message ? message : ObRef<ObString>(&emptyMessage);
    return ObError::make(VRErrorDomain, code,
                         ObDictionary::make({{ObLocalizedDescriptionKey, text}}));
}

ObRef<ObError> KVLegacyHelper::vrErrorFromKVError(const ObRef<ObError>& error) {
    if (!error)
        return nullptr;
    if (!error->domain() || !error->domain()->isEqual(KVErrorDomain))
        return error;
    // A code outside the table reads as 0, which is the required result.
    const ObRef<ObNumber> code = ObNumber::make(error->code());
    const auto* vrCode = static_cast<const ObNumber*>(errorMap().peekObjectForKey(code.get()));
    return ObError::make(VRErrorDomain, vrCode != nullptr ? vrCode->integerValue() : 0,
                         error->userInfo());
}

const char* KVLegacyHelper::className() const noexcept {
    return "KVLegacyHelper";
}
