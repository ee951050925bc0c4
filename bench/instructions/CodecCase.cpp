// SPDX-License-Identifier: MIT
// The bus codec on what an evaluation sends (an event's parameters and the
// delegate's answer) against the floor: the same message written and read
// by hand for the known shape, with the same objects made from it.
#include "InstructionCases.h"
#include "Measure.h"
#include "services/dbus/SdBus.h"
#include "services/dbus/ValueCodec.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace tessiva::bench {
namespace {
using detail::bus::MessageRef;

// A started connection that is never used: sd-bus makes messages only for one.
class Messages {
public:
    Messages() {
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets_);
        sd_bus_new(&bus_);
        sd_bus_set_fd(bus_, sockets_[0], sockets_[0]);
        sd_bus_start(bus_);
    }
    ~Messages() {
        sd_bus_close_unref(bus_);
        close(sockets_[1]);
    }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;
    MessageRef make() {
        MessageRef message;
        sd_bus_message_new_method_call(bus_, message.put(), "a.b", "/a", "a.b", "C");
        return message;
    }

private:
    int sockets_[2] = {-1, -1};
    sd_bus* bus_ = nullptr;
};

void seal(const MessageRef& message) {
    sd_bus_message_seal(message.get(), 1, 0);
    sd_bus_message_rewind(message.get(), true);
}

struct Values {
    ObRef<ObDictionary> params; // {0: true, 5: 3}
    ObRef<ObDictionary> answer; // {0: "1234"}
};

bool same(const Values& one, const Values& other) {
    return one.params && other.params && one.answer && other.answer &&
           one.params->isEqual(other.params) && one.answer->isEqual(other.answer);
}

Values byCodec(Messages& messages, const Values& values) {
    MessageRef message = messages.make();
    detail::bus::appendValue(message.get(), values.params);
    detail::bus::appendValue(message.get(), values.answer);
    seal(message);
    ObRef<ObObject> params, answer;
    detail::bus::readValue(message.get(), params);
    detail::bus::readValue(message.get(), answer);
    return {ob_cast<ObDictionary>(params), ob_cast<ObDictionary>(answer)};
}

// What a hand-written encoding of exactly this shape does.
Values byHand(Messages& messages, const Values& values) {
    MessageRef message = messages.make();
    sd_bus_message* m = message.get();
    const auto active = ob_cast<ObNumber>(values.params->objectForKey(ObNumber::make(0)));
    const auto status = ob_cast<ObNumber>(values.params->objectForKey(ObNumber::make(5)));
    const auto passcode = ob_cast<ObString>(values.answer->objectForKey(ObNumber::make(0)));
    sd_bus_message_append(m, "v", "a{xv}", 2, std::int64_t(0), "b", int(active->boolValue()),
                          std::int64_t(5), "x", std::int64_t(status->integerValue()));
    sd_bus_message_append(m, "v", "a{xv}", 1, std::int64_t(0), "s", passcode->cString());
    seal(message);
    std::int64_t activeKey = 0, statusKey = 0, statusValue = 0, answerKey = 0;
    int activeValue = 0;
    const char* text = nullptr;
    sd_bus_message_read(m, "v", "a{xv}", 2, &activeKey, "b", &activeValue, &statusKey, "x",
                        &statusValue);
    sd_bus_message_read(m, "v", "a{xv}", 1, &answerKey, "s", &text);
    return {ObDictionary::make(
                {{ObNumber::make(ObInteger(activeKey)), ObNumber::makeBool(activeValue != 0)},
                 {ObNumber::make(ObInteger(statusKey)), ObNumber::make(ObInteger(statusValue))}}),
            ObDictionary::make(
                {{ObNumber::make(ObInteger(answerKey)), ObString::make(std::string_view(text))}})};
}

std::optional<std::uint64_t> codec(bool ours, long operations) {
    Messages messages;
    const Values values{
        ObDictionary::make({{ObNumber::make(0), ObNumber::makeBool(true)},
                            {ObNumber::make(5), ObNumber::make(3)}}),
        ObDictionary::make({{ObNumber::make(0), ObString::make(std::string_view("1234"))}})};
    const auto run = ours ? byCodec : byHand;
    if (!same(run(messages, values), values))
        return std::nullopt;
    return measure(
        [&] {
            Values back = run(messages, values);
            benchmark::DoNotOptimize(back.params.get());
        },
        operations);
}
} // namespace

void addCodecCases(InstructionCases& cases) {
    cases["bus codec, event and answer/ours"] = [](long operations) {
        return codec(true, operations);
    };
    cases["bus codec, event and answer/baseline"] = [](long operations) {
        return codec(false, operations);
    };
}
} // namespace tessiva::bench
