// SPDX-License-Identifier: MIT
// The build without fprintd support: there is never a reader.
#include "services/fprint/FprintScanner.h"

#include <tessiva/object/ObMake.h>

namespace tessiva::detail {
namespace {
constexpr const char* notBuilt = "built without fprintd support";

class NoFprintScanner final : public RidgeScanner {
public:
    ReaderState state(const std::string&) override {
        return {ReaderProblem::noReader, {}, notBuilt};
    }
    ScanOutcome scan(const std::string&, const std::function<void(const ScanReport&)>&,
                     ScanStop&) override {
        ScanOutcome outcome;
        outcome.problem = ReaderProblem::noReader;
        outcome.message = notBuilt;
        return outcome;
    }
    const char* className() const noexcept override { return "NoFprintScanner"; }
};
} // namespace

ObRef<RidgeScanner> makeFprintScanner() {
    return ObMake<NoFprintScanner>();
}
} // namespace tessiva::detail
