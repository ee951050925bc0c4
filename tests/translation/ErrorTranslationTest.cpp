// VR errors the library makes, and service errors renumbered into VR codes.
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/Ob.h"
#include "translation/ExpectedTables.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using tessiva::test::CodeRow;

TEST(ErrorTranslation, ServiceCodesBecomeVRCodesWithTheSameUserInfo) {
    std::vector<CodeRow> rows(std::begin(tessiva::test::expectedErrorCodes),
                              std::end(tessiva::test::expectedErrorCodes));
    // Codes the table lacks become 0; they are neither passed through nor refused.
    rows.insert(rows.end(), {{0, 0}, {-8, 0}, {-10, 0}, {-1006, 0}, {-1010, 0}, {1, 0}, {1000, 0}});
    const ObRef<ObDictionary> userInfo =
        ObDictionary::make({{ObLocalizedDescriptionKey, ObString::make("Canceled by user.")},
                            {ObString::make("Extra"), ObNumber::make(7)}});
    for (const CodeRow& row : rows) {
        for (const ObRef<ObDictionary>& info : {userInfo, ObRef<ObDictionary>()}) {
            SCOPED_TRACE(ObFormat("%ld with user info %@", row.serviceCode, info)->text());
            const ObRef<ObError> serviceError = ObError::make(KVErrorDomain, row.serviceCode, info);
            const ObRef<ObError> vrError = KVLegacyHelper::vrErrorFromKVError(serviceError);
            ASSERT_TRUE(vrError);
            EXPECT_TRUE(vrError->domain()->isEqual(VRErrorDomain));
            EXPECT_EQ(vrError->code(), row.vrCode);
            EXPECT_EQ(vrError->userInfo().get(), info.get());
        }
    }
}

TEST(ErrorTranslation, OnlyTheServiceDomainIsRenumbered) {
    EXPECT_TRUE(KVLegacyHelper::vrErrorFromKVError(nullptr) == nullptr);
    // The domain is compared by text, not by object.
    const ObRef<ObError> equalDomain =
        ObError::make(ObString::make(KVErrorDomain->text()), -3, nullptr);
    EXPECT_EQ(KVLegacyHelper::vrErrorFromKVError(equalDomain)->code(), -1007);
    for (const ObRef<ObString>& domain :
         {ObRef<ObString>(VRErrorDomain), ObString::make("org.example.Other"),
          ObString::make("org.kavelin.kverrordomain")}) {
        SCOPED_TRACE(domain->text());
        const ObRef<ObError> error = ObError::make(domain, -3, ObDictionary::make());
        EXPECT_EQ(KVLegacyHelper::vrErrorFromKVError(error).get(), error.get());
    }
}

TEST(ErrorTranslation, MadeErrorsCarryOnlyTheirMessage) {
    const struct {
        ObInteger code;
        ObRef<ObString> message;
        std::string_view description;
    } cases[] = {
        {-6, ObString::make("Simulator is not supported."), "Simulator is not supported."},
        {-10, ObString::make("Result not available."), "Result not available."},
        {0, nullptr, ""},
        {42, ObString::make(""), ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        const ObRef<ObError> error = KVLegacyHelper::vrErrorWithCode_andMessage(c.code, c.message);
        EXPECT_TRUE(error->domain()->isEqual(VRErrorDomain));
        EXPECT_EQ(error->code(), c.code);
        ASSERT_TRUE(error->userInfo());
        EXPECT_EQ(error->userInfo()->count(), 1u);
        const ObRef<ObString> text =
            ob_cast<ObString>(error->userInfo()->objectForKey(ObLocalizedDescriptionKey));
        ASSERT_TRUE(text) << "the description must be present, even when empty";
        EXPECT_EQ(text->text(), c.description);
    }
}

} // namespace
