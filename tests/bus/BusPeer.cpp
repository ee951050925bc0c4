// SPDX-License-Identifier: MIT
// A second client process for the daemon's tests. It reaches the daemon on
// the session bus (the system bus with TESSIVA_BUS=system) and reports on
// standard output, one line a step:
//   bus_peer restore HANDLE [PASSCODE]  restores the context: its creator, or the
//                                       error; then enters the passcode if given
//   bus_peer evaluations N [PASSCODE]   makes a context and runs N evaluations,
//                                       each passcode event answered with PASSCODE;
//                                       prints each failure, then "<successes> done".
//                                       Without PASSCODE it prints the handle at the
//                                       first event, then waits to be killed
//   bus_peer prompted                   makes a context and runs one evaluation; prints
//                                       each event ("event 2 active 1 left 3"), enters
//                                       each line of standard input as the passcode
//                                       ("entered success" or the error), and prints
//                                       "outcome success" or "outcome <error>"
//   bus_peer guess N MILLISECONDS       runs N evaluations at once, each on a context
//                                       of its own and allowing 100 passcode failures,
//                                       answering every passcode event with a new
//                                       wrong passcode; once all have ended, or after
//                                       MILLISECONDS, prints "told wrong K": the events
//                                       that told of a wrong passcode (fewer attempts
//                                       left than the previous event of the evaluation)
//                                       and "guessed G", then invalidates the contexts
// HANDLE is hexadecimal.
#include "Outcome.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/object/Ob.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <iostream>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

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

// A passcode event's parameter, -1 when absent.
ObInteger parameter(const ObRef<ObDictionary>& params, ObInteger key) {
    auto number = params ? ob_cast<ObNumber>(params->objectForKey(ObNumber::make(key))) : nullptr;
    return number ? number->integerValue() : -1;
}

// Prints each event, answering none.
class PrintingDelegate final : public KVUIDelegate {
public:
    void event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                            KVUIReply) override {
        std::string line = "event " + std::to_string(event);
        for (const auto& [key, name] : {std::pair{0, " active "}, std::pair{5, " left "}})
            if (ObInteger value = parameter(params, key); value >= 0)
                line += name + std::to_string(value);
        std::printf("%s\n", line.c_str());
    }
};

// Answers each passcode event with a wrong passcode of its own, counting the
// events that tell it the previous one was wrong, until told to stop.
class GuessingDelegate final : public KVUIDelegate {
public:
    GuessingDelegate(std::atomic<int>& guessed, std::atomic<int>& toldWrong,
                     const std::atomic<bool>& stopped)
        : guessed_(guessed), toldWrong_(toldWrong), stopped_(stopped) {}
    void event_params_reply(ObInteger, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        const ObInteger left = parameter(params, 5);
        if (parameter(params, 0) != 1 || stopped_)
            return;
        if (previousLeft_ >= 0 && left < previousLeft_)
            ++toldWrong_;
        previousLeft_ = left;
        const std::string guess = "guess-" + std::to_string(++guessed_);
        reply(ObDictionary::make({{ObNumber::make(0), ObString::make(guess)}}), nullptr);
    }

private:
    std::atomic<int>& guessed_;
    std::atomic<int>& toldWrong_;
    const std::atomic<bool>& stopped_;
    ObInteger previousLeft_ = -1; // one evaluation's, whose events come one at a time
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
    if (command == "prompted" && argc == 2) {
        ObRef<KVClient> client = connect(nullptr, ObMake<PrintingDelegate>());
        if (!client)
            return 1;
        client->evaluatePolicy_options_reply(1000, nullptr, [](auto result, auto error) {
            const std::string outcome = describe(result, error);
            std::printf("outcome %s\n",
                        outcome == "{1 = 0; 3 = 1; 4 = 0; 5 = 0}" ? "success" : outcome.c_str());
        });
        for (std::string line; std::getline(std::cin, line);)
            client->enterPassword_reply(ObString::make(line), [](bool, ObRef<ObError> error) {
                std::printf("entered %s\n", error ? describe(nullptr, error).c_str() : "success");
            });
        client->invalidate();
        return 0;
    }
    if (command == "guess" && argc == 4) {
        const int count = std::stoi(argv[2]);
        std::atomic<int> guessed{0}, toldWrong{0};
        std::atomic<bool> stopped{false};
        std::mutex mutex;
        std::condition_variable changed;
        int ended = 0;
        std::vector<ObRef<KVClient>> clients;
        const auto options = ObDictionary::make({{ObNumber::make(1004), ObNumber::make(100)}});
        for (int i = 0; i < count; ++i)
            if (ObRef<KVClient> client =
                    connect(nullptr, ObMake<GuessingDelegate>(guessed, toldWrong, stopped)))
                clients.push_back(client);
        const auto window =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(std::stoi(argv[3]));
        for (const ObRef<KVClient>& client : clients)
            client->evaluatePolicy_options_reply(1000, options, [&](auto, auto) {
                std::lock_guard lock(mutex);
                ++ended;
                changed.notify_all();
            });
        {
            std::unique_lock lock(mutex);
            changed.wait_until(lock, window, [&] { return ended == int(clients.size()); });
        }
        stopped = true;
        std::printf("told wrong %d\nguessed %d\n", toldWrong.load(), guessed.load());
        for (const ObRef<KVClient>& client : clients)
            client->invalidate();
        // The evaluations' replies refer to this frame.
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return ended == int(clients.size()); });
        return 0;
    }
    std::fprintf(stderr, "usage: bus_peer restore HANDLE [PASSCODE] | evaluations N [PASSCODE] | "
                         "prompted | guess N MILLISECONDS\n");
    return 2;
}
