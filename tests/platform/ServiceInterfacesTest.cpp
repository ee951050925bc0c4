// The service framework's interfaces: the logging switch, parameter errors
// and their exception, and the client factory with and without a backend.
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/brindle/KVLogger.h"
#include "tessiva/kavelin/KVClient.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/Ob.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {
// The switch reads the environment on first use, so each value is checked in
// a fresh child process, whose exit code carries the answer.
TEST(KVLoggerDeathTest, EnvironmentSwitchesLoggingOn) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::pair<const char*, bool> cases[] = {{nullptr, false}, {"1", true},  {"true", true},
                                                  {"yes", true},    {"on", true}, {"0", false},
                                                  {"off", false},   {"", false}};
    for (const auto& [value, enabled] : cases) {
        SCOPED_TRACE(value == nullptr ? "(unset)" : value);
        value == nullptr ? unsetenv("TESSIVA_LOGGING") : setenv("TESSIVA_LOGGING", value, 1);
        EXPECT_EXIT(std::exit(KVLogger::sharedInstance()->isLoggingEnabled() ? 3 : 4),
                    testing::ExitedWithCode(enabled ? 3 : 4), "");
    }
    unsetenv("TESSIVA_LOGGING");
}

TEST(KVLogger, SetLoggingEnabledToggles) {
    const ObRef<KVLogger> logger = KVLogger::sharedInstance();
    const bool before = logger->isLoggingEnabled();
    logger->setLoggingEnabled(true);
    EXPECT_TRUE(KVLogger::sharedInstance()->isLoggingEnabled());
    logger->setLoggingEnabled(false);
    EXPECT_FALSE(KVLogger::sharedInstance()->isLoggingEnabled());
    logger->setLoggingEnabled(before);
}

TEST(KVErrorHelper, ParameterErrorCarriesTheMessage) {
    const auto error = KVErrorHelper::parameterErrorWithMessage(ObString::make("Bad policy."));
    EXPECT_EQ(error->domain(), ObRef<ObString>(KVErrorDomain));
    EXPECT_EQ(error->code(), KVErrorInvalidParameter);
    EXPECT_EQ(error->localizedDescription()->text(), "Bad policy.");
    EXPECT_EQ(KVErrorHelper::parameterErrorWithMessage(nullptr)->localizedDescription()->text(),
              "");
}

TEST(KVErrorHelper, RaiseExceptionThrowsTheErrorItself) {
    const auto error = KVErrorHelper::parameterErrorWithMessage(ObString::make("Nope."));
    try {
        KVErrorHelper::raiseException(error);
        ADD_FAILURE() << "no exception";
    } catch (const ObException& exception) {
        EXPECT_EQ(exception.name()->text(), "KVException");
        EXPECT_STREQ(exception.what(), "Nope.");
        const auto* carrier = dynamic_cast<const KVException*>(&exception);
        ASSERT_NE(carrier, nullptr);
        EXPECT_EQ(carrier->error(), error);
    }
    EXPECT_THROW(KVErrorHelper::raiseException(error), std::exception);
}

class NullDelegate final : public KVUIDelegate {
public:
    void event_params_reply(ObInteger, const ObRef<ObDictionary>&, KVUIReply) override {}
};

class RecordingBackend final : public KVClientBackend {
public:
    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply) override {
        receivedContext = context;
        receivedDelegate = uiDelegate;
        reply(nullptr, answer);
    }
    ObRef<ObData> receivedContext;
    ObRef<KVUIDelegate> receivedDelegate;
    ObRef<ObError> answer = KVErrorHelper::parameterErrorWithMessage(ObString::make("fake"));
};

TEST(KVClientFactory, ForwardsToTheInstalledBackendOrTheDefault) {
    const unsigned char handle[] = {0xca, 0xfe};
    const ObRef<ObData> context = ObData::make(handle, sizeof handle);
    const ObRef<KVUIDelegate> delegate = ObMake<NullDelegate>();
    ObRef<KVClient> client;
    ObRef<ObError> error;
    int replies = 0;
    const auto request = [&] {
        KVClient::clientWithExternalizedContext_uiDelegate_reply(
            context, delegate, [&](ObRef<KVClient> c, ObRef<ObError> e) {
                ++replies;
                client = c;
                error = e;
            });
    };
    auto backend = ObMake<RecordingBackend>();
    {
        KVScopedClientBackend installed(backend);
        request();
    }
    EXPECT_EQ(backend->receivedContext, context);
    EXPECT_EQ(backend->receivedDelegate, delegate);
    EXPECT_EQ(error, backend->answer);

    // With the backend's scope over, the default simulated service answers,
    // and it knows no such context; running without any service is covered by
    // its own process.
    request();
    EXPECT_EQ(replies, 2);
    EXPECT_EQ(client, nullptr);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->domain()->isEqual(KVErrorDomain));
    EXPECT_EQ(error->code(), KVErrorInvalidContext);
}
} // namespace
