// NameTable: a process-wide table from VR names to service numbers, built on
// first use under its own guard and only read afterwards.
#pragma once

#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObOnce.h"

#include <utility>
#include <vector>

namespace tessiva::detail {

class NameTable {
public:
    using Row = std::pair<ObString*, ObInteger>;
    // Reads the rows when the table is built, so that exported constants
    // contribute the values they hold at that moment.
    using Rows = std::vector<Row> (*)();

    constexpr NameTable(Rows rows, const char* unknownNameFormat) noexcept
        : rows_(rows), unknownNameFormat_(unknownNameFormat) {}

    // The number for the name, or 0 for an unknown or absent name. A given
    // out-parameter receives absent, or the parameter error made from the
    // unknown-name format. Inline, so that a translation is the lookup itself
    // and nothing around it.
    ObInteger translate(const ObRef<ObString>& name, ObRef<ObError>* error) {
        ObDispatchOnce(once_, [this] { build(); });
        const auto* number = static_cast<const ObNumber*>(table_->peekObjectForKey(name.get()));
        if (number == nullptr)
            return unknown(name, error);
        if (error != nullptr && *error)
            *error = nullptr;
        return number->integerValue();
    }

private:
    void build();
    // The failure path, out of line: 0, and the error when one is wanted.
    ObInteger unknown(const ObRef<ObString>& name, ObRef<ObError>* error) const;

    Rows rows_;
    const char* unknownNameFormat_;
    ObOnceToken once_;
    // Owned by the process from the first use on; never released.
    const ObDictionary* table_ = nullptr;
};

// The raising partner of an error-returning translation: calls it with a
// local error slot and raises that error when the result is 0; returns 0
// should raising ever return.
template <ObInteger (*Translate)(const ObRef<ObString>&, ObRef<ObError>*)>
ObInteger translateOrRaise(const ObRef<ObString>& name) {
    ObRef<ObError> error;
    const ObInteger result = Translate(name, &error);
    if (result != 0)
        return result;
    KVErrorHelper::raiseException(error);
    return 0;
}

} // namespace tessiva::detail
