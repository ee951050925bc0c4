// SPDX-License-Identifier: MIT
// What the daemon benchmarks share: the processes they start (a private bus,
// tessivad, the raw ping server) and one passcode evaluation through the
// daemon, as a client process makes it.
#pragma once

#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/object/Ob.h"

#include <csignal>
#include <fcntl.h>
#include <future>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace tessiva::bench {
// Answers each active passcode event with the right passcode at once.
class AnsweringDelegate final : public KVUIDelegate {
public:
    void event_params_reply(ObInteger, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        auto active = ob_cast<ObNumber>(params->objectForKey(ObNumber::make(0)));
        if (active && active->boolValue())
            reply(ObDictionary::make({{ObNumber::make(0), ObString::make("1234")}}), nullptr);
    }
};

// A process the benchmark starts and ends; its first line of output is read
// unless told not to (the line is how the bus and the servers say they are
// ready). Its errors go to `errorFile` when one is named.
struct Spawned {
    pid_t pid = -1;
    std::string firstLine;
    explicit Spawned(std::vector<std::string> argv, bool readFirstLine = true,
                     const std::string& errorFile = {}) {
        int out[2];
        if (pipe(out) != 0)
            throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        if (!errorFile.empty())
            posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(),
                                             O_WRONLY | O_CREAT | O_APPEND, 0600);
        std::vector<char*> args;
        for (auto& arg : argv)
            args.push_back(arg.data());
        args.push_back(nullptr);
        const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        if (spawned != 0) {
            close(out[0]);
            throw std::runtime_error("cannot start " + argv[0]);
        }
        char c = 0;
        while (readFirstLine && read(out[0], &c, 1) == 1 && c != '\n')
            firstLine.push_back(c);
        close(out[0]);
    }
    Spawned(const Spawned&) = delete;
    Spawned& operator=(const Spawned&) = delete;
    ~Spawned() {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
};

// A client with a context of its own; null when the backend cannot make one
// (the daemon cannot be reached).
inline ObRef<KVClient> connectClient(const ObRef<KVClientBackend>& backend) {
    ObRef<KVClient> client;
    backend->clientWithExternalizedContext_uiDelegate_reply(
        nullptr, ObMake<AnsweringDelegate>(),
        [&](ObRef<KVClient> made, ObRef<ObError>) { client = made; });
    return client;
}

// A client of the daemon on the bus at `busAddress`.
inline ObRef<KVClient> connectToDaemon(const std::string& busAddress) {
    return connectClient(KVBusService::make(ObString::make(busAddress)));
}

// One passcode evaluation, answered by the delegate; whether it succeeded.
inline bool evaluate(const ObRef<KVClient>& client) {
    std::promise<bool> done;
    client->evaluatePolicy_options_reply(
        1000, nullptr, [&](auto, ObRef<ObError> error) { done.set_value(!error); });
    return done.get_future().get();
}
} // namespace tessiva::bench
