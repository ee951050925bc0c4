// SPDX-License-Identifier: MIT
// tessiva demo: a VR caller's whole session against the simulated service,
// printed step by step, with the library's log lines on standard error.
#include "Command.h"
#include "DemoSession.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/brindle/KVLogger.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/Ob.h"
#include "tessiva/os/ObSemaphore.h"

#include <memory>
#include <stdexcept>
#include <vector>

namespace tessiva::tool {
namespace {

OB_CONSTANT_STRING(wrongPasscode, "0000");
OB_CONSTANT_STRING(unknownRequest, "Cancel");
// The reader of the sessions of step 6 and 7 (tessivad's test sets
// TESSIVA_READER to the same).
constexpr char demoReader[] = "right-index:2,0,1,1,1";

void step(std::string_view title) {
    say("");
    say(title);
}

std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

// The outcome of a reply that carries only an error.
std::string outcome(const ObRef<ObError>& error) {
    return error ? "error " + printed(error) : "success";
}

[[noreturn]] void offScript(std::string_view what, const ObRef<ObError>& error) {
    throw std::runtime_error("demo: " + std::string(what) + " failed: " + printed(error));
}

class Demo {
public:
    int run() {
        say("Tessiva demo: a VR caller's session against the simulated authentication service.");
        say("The library's log lines go to standard error, in between.");
        setUpService();
        setUpReference();
        const ObRef<ObDictionary> hints = translateHints();
        evaluate(hints);
        readResults();
        evaluateEachEventKind();
        sendRequestsOutsideAnEvaluation();
        invalidate(hints);
        step("Done: the session went as scripted.");
        return exitSuccess;
    }

private:
    void setUpService() {
        step("1. Logging and the service");
        KVLogger::sharedInstance()->setLoggingEnabled(true);
        say("    KVLogger: logging on; the system log goes to standard error");
        const ObRef<KVSimulatedService> service = KVSimulatedService::defaultService();
        if (!service)
            throw std::runtime_error("demo: TESSIVA_SERVICE leaves this process without "
                                     "the simulated service");
        // Set here, so that TESSIVA_PASSCODE does not change the script.
        service->setPasscode(ObString::make(KVSimulatedService::defaultPasscode));
        say(ObFormat("    service: the simulated default service; passcode \"%@\"",
                     service->passcode())
                ->text());
        // Set here too, so that TESSIVA_READER does not change the script; a
        // daemon's service is given the same one.
        service->setReader(*KVSimulatedService::readerFromText(demoReader));
        say("    service: a reader with the right index finger enrolled; it will report a "
            "retry, a match, then three fingers it does not know");
    }

    void setUpReference() {
        step("2. Set-up: a VRCredentialReference with a VRUIDelegate");
        // Shared, as the service may reply on another thread.
        auto answered = std::make_shared<ObSemaphore>();
        ObRef<ObError> failure;
        reference_->setupWithCredentialHandle_uiDelegate_reply(
            nullptr, delegate_, [&failure, answered](ObRef<ObError> error) {
                failure = std::move(error);
                answered->signal();
            });
        answered->wait();
        say("    set-up replied: " + outcome(failure));
        if (failure)
            offScript("set-up", failure);
        say("    credential handle: " + printed(reference_->credentialHandle()));
        say("    creator: " + printed(reference_->creatorDisplayName()));
    }

    ObRef<ObDictionary> translateHints() {
        step("3. Hints and the options they become");
        const ObRef<ObDictionary> hints =
            ObDictionary::make({{VRHintTimeout, ObNumber::make(300)},
                                {VRHintMaxPasscodeFailures, ObNumber::make(3)},
                                {VRHintEventFilter, ObArray::make({VREventPasscode})}});
        say("    hints:   " + printed(hints));
        say("    options: " + printed(KVLegacyHelper::optionsFromVRHints(hints)));
        say("    (each evaluation adds option 1009: whether a ScandraIdentity class exists)");
        return hints;
    }

    void evaluate(const ObRef<ObDictionary>& hints) {
        step("4. Policy evaluation: a wrong passcode, then the right one");
        const ObRef<ObString> passcode = ObString::make(KVSimulatedService::defaultPasscode);
        delegate_->script({
            [](const VRUIReply& reply) {
                say("    delegate: answers {ConsentResponse = 0000}, a wrong passcode");
                reply(ObDictionary::make({{VREventConsentResponse, &wrongPasscode}}), nullptr);
            },
            [this, passcode](const VRUIReply& reply) {
                say("    delegate: answers nothing; the caller sends the passcode instead");
                reply(nullptr, nullptr);
                enterPassword(passcode);
            },
        });
        say("    evaluatePolicy VRPolicyDeviceOwnerAuthenticated with the hints");
        evaluate(VRPolicyDeviceOwnerAuthenticated, hints);
    }

    // Evaluates, waiting on the demo's loop, and says the outcome; a failure
    // is off the script.
    void evaluate(const ObRef<ObString>& policy, const ObRef<ObDictionary>& hints) {
        bool replied = false;
        ObRef<ObError> failure;
        reference_->evaluatePolicy_hints_reply(policy, hints, [&](ObRef<ObError> error) {
            loop_.post([&, error] {
                failure = error;
                replied = true;
            });
        });
        loop_.runUntil([&] { return replied; });
        say("    evaluation replied: " + outcome(failure));
        if (failure)
            offScript("the evaluation", failure);
    }

    void enterPassword(const ObRef<ObString>& passcode) {
        const ObRef<ObDictionary> params =
            ObDictionary::make({{VRClientRequestParamPassword, passcode}});
        say("    caller: sendClientRequest EnterPassword " + printed(params));
        sendRequest(VRClientRequestEnterPassword, params);
    }

    void sendRequest(const ObRef<ObString>& request, const ObRef<ObDictionary>& params) {
        // Client requests reply before they return.
        reference_->sendClientRequest_params_reply(
            request, params, [](ObRef<ObDictionary> result, ObRef<ObError> error) {
                say("    request replied: " + (error ? outcome(error) : printed(result)));
            });
    }

    void readResults() {
        step("5. Results by tag");
        for (ObString* tag :
             {VRResultTagUsedPasscode, VRResultTagUsedRidgescan, VRResultTagUsedYesNo,
              VRResultTagUsedPassphrase, VRResultTagRidgescanIdentity}) {
            reference_->resultForTag_reply(tag, [&](ObRef<ObObject> value, ObRef<ObError> error) {
                say("    resultForTag " + printed(tag) + ": " +
                    (error ? outcome(error) : printed(value)));
            });
        }
    }

    // One session per event kind: the reader's availability and progress, a
    // consent and a passphrase, each with the results that tell them apart.
    void evaluateEachEventKind() {
        const ObRef<KVSimulatedService> service = KVSimulatedService::defaultService();
        step("6. A ridge scan: availability, a retry, then a match");
        session(ObString::make("DeviceOwnerAuthenticatedWithBiometrics"), nullptr,
                {VRResultTagUsedRidgescan, VRResultTagRidgescanIdentity});
        step("7. Consent: three scans that do not match, then the user's consent");
        delegate_->script({[](const VRUIReply& reply) {
            say("    delegate: answers {ConsentResponse = 1}, yes");
            reply(ObDictionary::make({{VREventConsentResponse, ObNumber::makeBool(true)}}),
                  nullptr);
        }});
        session(ObString::make("DeviceOwnerConsentRidgescanPreferred"), nullptr,
                {VRResultTagUsedRidgescan, VRResultTagUsedYesNo});
        step("8. A passphrase: the PassphraseFirst hint asks for one");
        const ObRef<ObString> passcode = ObString::make(KVSimulatedService::defaultPasscode);
        delegate_->script({[passcode](const VRUIReply& reply) {
            say("    delegate: answers {ConsentResponse = " + printed(passcode) + "}");
            reply(ObDictionary::make({{VREventConsentResponse, passcode}}), nullptr);
        }});
        session(VRPolicyDeviceOwnerAuthenticated,
                ObDictionary::make({{VRHintPassphraseFirst, ObNumber::makeBool(true)}}),
                {VRResultTagUsedPasscode, VRResultTagUsedPassphrase});
    }

    void session(const ObRef<ObString>& policy, const ObRef<ObDictionary>& hints,
                 std::vector<ObString*> tags) {
        say("    evaluatePolicy \"" + std::string(policy->text()) + "\" with hints " +
            printed(hints));
        evaluate(policy, hints);
        for (ObString* tag : tags)
            reference_->resultForTag_reply(tag, [&](ObRef<ObObject> value, ObRef<ObError> error) {
                const bool identity = ob_cast<ObData>(value) != nullptr;
                say("    resultForTag " + printed(tag) + ": " +
                    (error      ? outcome(error)
                     : identity ? "<32 bytes>"
                                : printed(value)));
            });
    }

    void sendRequestsOutsideAnEvaluation() {
        step("9. Client requests with no evaluation running");
        say("    caller: sendClientRequest Cancel, a request the interface does not have");
        sendRequest(&unknownRequest, nullptr);
        const ObRef<ObDictionary> params =
            ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode}});
        say("    caller: sendClientRequest StopEvents " + printed(params));
        sendRequest(VRClientRequestStopEvents, params);
    }

    void invalidate(const ObRef<ObDictionary>& hints) {
        step("10. Invalidation");
        say("    invalidate");
        reference_->invalidate();
        say("    evaluatePolicy again");
        ObRef<ObError> failure;
        reference_->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, hints, &failure);
        say("    evaluation replied: " + outcome(failure));
        if (!failure)
            throw std::runtime_error("demo: an invalidated context still evaluated");
    }

    MainLoop loop_;
    const ObRef<DemoDelegate> delegate_ = ObMake<DemoDelegate>(loop_);
    const ObRef<VRCredentialReference> reference_ = VRCredentialReference::make();
};

} // namespace

int runDemo(Arguments arguments) {
    expectArgumentCount(arguments, 0, 0, "demo");
    return Demo().run();
}

} // namespace tessiva::tool
