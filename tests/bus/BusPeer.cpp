// A second client process for the daemon's tests. It reaches the daemon on
// DBUS_SESSION_BUS_ADDRESS and reports on standard output, one line a step:
//   bus_peer restore HANDLE [PASSCODE]  restores the context: its creator, or the
//                                       error; then enters the passcode if given
//   bus_peer evaluations N [PASSCODE]   makes a context and runs N evaluations,
//                                       each passcode event answered with PASSCODE;
//                                       prints each failure, then "<successes> done".
//                                       Without PASSCODE it prints the handle at the
//                                       first event, then waits to be killed
// HANDLE is hexadecimal.
#include "Outcome.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/object/Ob.h"

#include <cstdio>
#include <future>
#include <string>
#include <utility>

namespace {
using tessiva::test::hex;
using tessiva::test::unhex;

// As the conformance suite writes a reply.
std::string describe(const ObRef<ObObject>& result, const ObRef<ObError>& error) {
    if (!error)
        return std::string(ObFormat("%@", result)->text());
    return std::string(
        ObFormat("error %ld: %@", error->code(), error->localizedDescription())->text());
}

// Answers each active passcode event with the passcode; without one, never
// answers, and tells the first event to `asked`.
class PeerDelegate final : public KVUIDelegate {
public:
    PeerDelegate(std::string passcode, std::function<void()> asked)
        : passcode_(std::move(passcode)), asked_(std::move(asked)) {}
    void event_params_reply(ObInteger, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        auto active = ob_cast<ObNumber>(params->objectForKey(ObNumber::make(0)));
        if (passcode_.empty() && asked_)
            std::exchange(asked_, nullptr)();
        else if (!passcode_.empty() && active && active->boolValue())
            reply(ObDictionary::make({{ObNumber::make(0), ObString::make(passcode_)}}), nullptr);
    }

private:
    const std::string passcode_;
    std::function<void()> asked_;
};

ObRef<KVClient> connect(const ObRef<ObData>& handle, const ObRef<KVUIDelegate>& delegate) {
    ObRef<KVClient> client;
    KVBusService::make()->clientWithExternalizedContext_uiDelegate_reply(
        handle, delegate, [&](ObRef<KVClient> made, ObRef<ObError> error) {
            client = made;
            if (error)
                std::printf("%s\n", describe(nullptr, error).c_str());
        });
    return client;
}

std::string evaluate(const ObRef<KVClient>& client) {
    std::promise<std::string> outcome;
    client->evaluatePolicy_options_reply(1000, nullptr, [&](auto result, auto error) {
        outcome.set_value(describe(result, error));
    });
    return outcome.get_future().get();
}
} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "restore" && (argc == 3 || argc == 4)) {
        ObRef<KVClient> client = connect(unhex(argv[2]), nullptr);
        if (client)
            std::printf("restored, made by %s\n", client->creatorDisplayName()->cString());
        if (client && argc == 4)
            client->enterPassword_reply(ObString::make(argv[3]), [](bool, ObRef<ObError> error) {
                std::printf("%s\n", error ? describe(nullptr, error).c_str() : "success");
            });
        return 0;
    }
    if (command == "evaluations" && (argc == 3 || argc == 4)) {
        const int count = std::stoi(argv[2]);
        ObRef<KVClient> client;
        client = connect(nullptr, ObMake<PeerDelegate>(argc == 4 ? argv[3] : "", [&] {
                             std::printf("%s\n", hex(client->externalizedContext()).c_str());
                         }));
        int succeeded = 0;
        for (int i = 0; client && i < count; ++i) {
            const std::string outcome = evaluate(client);
            if (outcome == "{1 = 0; 3 = 1; 4 = 0; 5 = 0}")
                ++succeeded;
            else
                std::printf("%s\n", outcome.c_str());
        }
        if (client)
            client->invalidate();
        std::printf("%d done\n", succeeded);
        return 0;
    }
    std::fprintf(stderr, "usage: bus_peer restore HANDLE [PASSCODE] | evaluations N [PASSCODE]\n");
    return 2;
}
