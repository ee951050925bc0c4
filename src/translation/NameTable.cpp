// Building the name tables, and the error for a name they do not hold.
#include "translation/NameTable.h"

#include "tessiva/object/ObFormat.h"

namespace tessiva::detail {

void NameTable::build() {
    std::vector<ObDictionary::Entry> entries;
    for (const Row& row : rows_())
        entries.emplace_back(row.first, ObNumber::make(row.second));
    table_ = ObDictionary::make(std::move(entries)).leakRef();
}

ObInteger NameTable::unknown(const ObRef<ObString>& name, ObRef<ObError>* error) const {
    if (error != nullptr)
        *error = KVErrorHelper::parameterErrorWithMessage(ObFormat(unknownNameFormat_, name));
    return 0;
}

} // namespace tessiva::detail
