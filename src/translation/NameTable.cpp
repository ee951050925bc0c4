#include "translation/NameTable.h"

#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"

#include <vector>

namespace tessiva::detail {

const ObDictionary& NameTable::table() {
    ObDispatchOnce(once_, [this] {
        std::vector<ObDictionary::Entry> entries;
        for (const Row& row : rows_())
            entries.emplace_back(row.first, ObNumber::make(row.second));
        table_ = ObDictionary::make(std::move(entries)).leakRef();
    });
    return *table_;
}

ObInteger NameTable::translate(const ObRef<ObString>& name, ObRef<ObError>* error) {
    const auto* number = static_cast<const ObNumber*>(table().peekObjectForKey(name.get()));
    if (error != nullptr) {
        *error = number != nullptr
                     ? ObRef<ObError>()
                     : KVErrorHelper::parameterErrorWithMessage(ObFormat(unknownNameFormat_, name));
    }
    return number != nullptr ? number->integerValue() : 0;
}

ObInteger translateOrRaise(ObInteger (*translate)(const ObRef<ObString>&, ObRef<ObError>*),
                           const ObRef<ObString>& name) {
    ObRef<ObError> error;
    const ObInteger result = translate(name, &error);
    if (result != 0)
        return result;
    KVErrorHelper::raiseException(error);
    return 0;
}

} // namespace tessiva::detail
