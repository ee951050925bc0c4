// SPDX-License-Identifier: MIT
// What every KVClient backend does alike, as one suite that each backend's
// executable instantiates with a Backend of its own: the simulated and the
// PAM service in process, and tessivad hosting either. What differs between
// them (which passcode is right, what the test can change, how the service
// is made) is the Backend's to say, never a copy of the tests.
#pragma once

#include "support/Deadline.h"
#include "support/RunTogether.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "translation/TranslationTesting.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>

namespace tessiva::test {

// One backend under test, made afresh for each test.
class Backend {
public:
    virtual ~Backend() = default;
    // Safe from several threads at once.
    virtual ObRef<KVClientBackend> service() = 0;
    // The answer that proves the user, and one that does not.
    virtual std::string rightPasscode() const = 0;
    virtual std::string wrongPasscode() const { return "0000"; }
    // How the backend refuses policy 1 (ridge scan), which none here offers.
    virtual std::string biometryRefusal() const = 0;
    // False when the service's ACL rule is out of the test's reach.
    virtual bool setACLRule(KVACLRule) { return false; }
    // Gives the service the simulated reader, before the test's first
    // connection; false for a service whose reader is out of reach.
    virtual bool setReader(const KVSimulatedReader&) { return false; }
    // False when objects come back as equal copies (across processes).
    virtual bool keepsIdentity() const { return true; }
    // At the end of each test: whatever the backend runs must end cleanly.
    virtual void finish() {}
};

struct BackendMaker {
    std::string name;
    std::function<std::unique_ptr<Backend>()> make;
};
// GoogleTest prints a parameter by its name, never its bytes.
inline void PrintTo(const BackendMaker& maker, std::ostream* out) {
    *out << maker.name;
}
inline std::string backendName(const ::testing::TestParamInfo<BackendMaker>& parameter) {
    return parameter.param.name;
}

using Texts = std::vector<std::string>;
using Answer = std::function<void(const KVUIReply&)>;

inline const std::string success = "{1 = 0; 3 = 1; 4 = 0; 5 = 0}", closing = "2 {0 = 0}";
inline const std::string consented = "{1 = 0; 3 = 0; 4 = 1; 5 = 0}",
                         passphraseSuccess = "{1 = 0; 3 = 0; 4 = 0; 5 = 1}";
inline std::string asking(int attemptsLeft) {
    return "2 {0 = 1; 5 = " + std::to_string(attemptsLeft) + "}";
}
inline Answer response(const ObRef<ObObject>& value) {
    return [value](const KVUIReply& reply) { reply(dict({{num(0), value}}), nullptr); };
}
inline Answer response(const std::string& passcode) {
    return response(str(passcode));
}

// The caller's error, which must come back as this very object, or as an
// equal one where the backend does not keep identity.
inline const ObRef<ObError> stop = ObError::make(str("Caller"), 7, nullptr);
inline bool identityKept = true;
inline bool isStop(const ObRef<ObError>& error) {
    if (identityKept || !error)
        return error == stop;
    return error->domain()->isEqual(stop->domain()) && error->code() == stop->code() &&
           !error->userInfo();
}

// "error <code>: <message>" for a service error, "<domain> <code>: ..." for
// another domain's, "the caller's error" for that very object; otherwise the
// result's text form, or "success" for true.
inline std::string describe(const ObRef<ObObject>& result, const ObRef<ObError>& error) {
    if (isStop(error))
        return "the caller's error";
    if (!error)
        return std::string(ObFormat("%@", result)->text());
    const auto domain = error->domain()->isEqual(KVErrorDomain) ? str("error") : error->domain();
    return std::string(
        ObFormat("%@ %ld: %@", domain, error->code(), error->localizedDescription())->text());
}
inline std::string describe(bool succeeded, const ObRef<ObError>& error) {
    return describe(succeeded ? str("success") : nullptr, error);
}

// Records every event as "<event> <params>" and answers the active ones
// (and, when asked, the ridge-scan events) with the scripted answers in
// turn, from inside the call, then no more. Tests read the record after the
// evaluation's reply, which orders the reads.
class ScriptedDelegate final : public KVUIDelegate {
public:
    explicit ScriptedDelegate(std::vector<Answer> answers, bool answersScans = false)
        : script(std::move(answers)), answersScans_(answersScans) {}
    void event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        events.emplace_back(ObFormat("%ld %@", event, params)->text());
        ObRef<ObNumber> active = ob_cast<ObNumber>(params->objectForKey(num(0)));
        if (((active && active->boolValue()) || (answersScans_ && event == 1)) &&
            next < script.size())
            script[next++](reply);
    }
    Texts events;
    std::vector<Answer> script;
    std::size_t next = 0;

private:
    const bool answersScans_;
};

// The simulated reader in its text form (TESSIVA_READER).
inline std::string readerText(const KVSimulatedReader& reader) {
    std::string text = reader.busy ? "busy" : reader.enrolledFingers.empty() ? "none" : "";
    for (const std::string& finger : reader.enrolledFingers)
        text += (text.empty() ? "" : ",") + finger;
    for (std::size_t i = 0; i < reader.scans.size(); ++i)
        text += (i == 0 ? ":" : ",") + std::to_string(reader.scans[i].status) +
                (reader.scans[i].finger.empty() ? "" : "=" + reader.scans[i].finger);
    return text;
}

// Calls on a backend, each reply put into words by describe. Requests other
// than evaluations reply before they return.
class ServiceCalls {
public:
    virtual ~ServiceCalls() = default;
    // A client of a new context, or of the one the handle names; absent on
    // failure, with the error in `refusal`.
    ObRef<KVClient> connect(const ObRef<KVUIDelegate>& delegate = nullptr,
                            const ObRef<ObData>& handle = nullptr) {
        ObRef<KVClient> client;
        callee()->clientWithExternalizedContext_uiDelegate_reply(
            handle, delegate, [&](ObRef<KVClient> made, ObRef<ObError> error) {
                client = made;
                if (error) // only then: contexts connect concurrently too
                    refusal = describe(nullptr, error);
            });
        return client;
    }
    // An evaluation started on the client; it replies on a service thread,
    // once.
    static std::future<std::string> start(const ObRef<KVClient>& client,
                                          const ObRef<ObDictionary>& options = nullptr,
                                          ObInteger policy = 1000) {
        auto promise = std::make_shared<std::promise<std::string>>();
        auto replied = std::make_shared<std::atomic<bool>>(false);
        client->evaluatePolicy_options_reply(policy, options,
                                             [promise, replied](auto result, auto error) {
                                                 if (replied->exchange(true))
                                                     ADD_FAILURE() << "an evaluation replied twice";
                                                 else
                                                     promise->set_value(describe(result, error));
                                             });
        return promise->get_future();
    }
    static std::string outcome(std::future<std::string>&& evaluation,
                               const char* what = "the evaluation's reply") {
        return await(std::move(evaluation), what);
    }
    // Puts the text of a reply that comes before its request returns.
    static auto into(std::string& text) {
        return [&text](auto result, auto error) { text = describe(result, error); };
    }
    static std::string enterPassword(const ObRef<KVClient>& client, const std::string& password) {
        std::string text;
        client->enterPassword_reply(str(password), into(text));
        return text;
    }
    static std::string failEvent(const ObRef<KVClient>& client, ObInteger event,
                                 const ObRef<ObObject>& error) {
        std::string text;
        client->failProcessedEvent_failureError_reply(event, error, into(text));
        return text;
    }
    static std::string evaluateACL(const ObRef<KVClient>& client, const ObRef<ObObject>& acl,
                                   const ObRef<ObObject>& operation) {
        std::string text;
        client->evaluateACL_operation_options_reply(acl, operation, nullptr, into(text));
        return text;
    }

    std::string refusal;

protected:
    virtual ObRef<KVClientBackend> callee() = 0;
};

// Calls on a backend the test made.
class CallsOn : public ServiceCalls {
public:
    explicit CallsOn(ObRef<KVClientBackend> backend) : backend_(std::move(backend)) {}

private:
    ObRef<KVClientBackend> callee() override { return backend_; }
    const ObRef<KVClientBackend> backend_;
};

class BackendConformanceTest : public ::testing::TestWithParam<BackendMaker>,
                               protected ServiceCalls {
protected:
    void SetUp() override { identityKept = backend->keepsIdentity(); }
    void TearDown() override { backend->finish(); }
    ObRef<KVClientBackend> callee() override { return backend->service(); }

    std::unique_ptr<Backend> backend = GetParam().make();
    const std::string right = backend->rightPasscode(), wrong = backend->wrongPasscode();
};

// The same, on backends whose reader the test scripts (setReader): the
// system service's reader is fprintd's, which tests/fprint drives.
class ScriptedReaderConformanceTest : public BackendConformanceTest {};

} // namespace tessiva::test
