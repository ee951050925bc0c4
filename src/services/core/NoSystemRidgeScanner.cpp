// A build without fingerprint support: the system service has no reader.
#include "SystemRidgeScanner.h"
#include "tessiva/object/ObMake.h"

namespace tessiva::detail {
namespace {
constexpr char noSupport[] = "No fingerprint support in this build of Tessiva.";

class NoRidgeScanner final : public RidgeScanner {
public:
    ReaderState state(const std::string&) override {
        return {ReaderProblem::noReader, {}, noSupport};
    }
    ScanOutcome scan(const std::string&, const std::function<void(const ScanReport&)>&,
                     ScanStop&) override {
        return {ReaderProblem::noReader, {}, noSupport, false};
    }
    const char* className() const noexcept override { return "NoRidgeScanner"; }
};
} // namespace

ObRef<RidgeScanner> systemRidgeScanner() {
    return ObMake<NoRidgeScanner>();
}
} // namespace tessiva::detail
