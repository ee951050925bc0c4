// SPDX-License-Identifier: MIT
// The bus encoding of object values: every kind comes back exactly, and what
// it cannot carry, or a peer's malformed value, is refused with its reason.
#include "services/dbus/ValueCodec.h"

#include "platform/PlatformTestSupport.h"
#include "services/dbus/SdBus.h"
#include "tessiva/brindle/KVErrorHelper.h"

#include <climits>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tessiva::test {
namespace {
using detail::bus::appendValue;
using detail::bus::MessageRef;
using detail::bus::readValue;

// The value with every kind spelled out, so that true and 1, or an array and
// a dictionary that print alike, never pass for each other.
std::string typed(const ObRef<ObObject>& value) {
    if (!value)
        return "absent";
    if (auto text = ob_cast<ObString>(value))
        return "s'" + std::string(text->text()) + "'";
    // Appended rather than concatenated: g++ 12 at -O3 sees a false overlap
    // (-Wrestrict) in a literal plus a temporary string.
    if (auto number = ob_cast<ObNumber>(value)) {
        std::string out = number->isBoolean() ? "b" : "x";
        return out.append(std::to_string(number->integerValue()));
    }
    if (auto data = ob_cast<ObData>(value)) {
        std::string out = "d";
        return out.append(ObFormat("%@", data)->text());
    }
    if (auto array = ob_cast<ObArray>(value)) {
        std::string out = "[";
        for (const auto& item : *array)
            out += typed(item) + ",";
        return out + "]";
    }
    if (auto dictionary = ob_cast<ObDictionary>(value)) {
        std::string out = "{";
        for (const auto& [key, item] : *dictionary)
            out += typed(key) + ":" + typed(item) + ",";
        return out + "}";
    }
    if (auto error = ob_cast<ObError>(value))
        return "E(" + typed(error->domain()) + "," + std::to_string(error->code()) + "," +
               typed(error->userInfo()) + ")";
    return "?";
}

// Messages of a connection that is started but never used: sd-bus makes
// messages only for a started one, and the test must not reach any bus.
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
    MessageRef make() {
        MessageRef message;
        sd_bus_message_new_method_call(bus_, message.put(), "a.b", "/a", "a.b", "C");
        return message;
    }
    // Seals the message for reading and reads one value back.
    static std::string read(const MessageRef& message, ObRef<ObObject>& value) {
        sd_bus_message_seal(message.get(), 1, 0);
        sd_bus_message_rewind(message.get(), true);
        return readValue(message.get(), value);
    }

private:
    int sockets_[2] = {-1, -1};
    sd_bus* bus_ = nullptr;
};

ObRef<ObObject> nested(int depth) {
    ObRef<ObObject> value = num(1);
    for (int level = 0; level < depth; ++level)
        value = array({value});
    return value;
}

// Text and data of the given size in all, half of it in a dictionary's key:
// keys count towards the limit as values do.
ObRef<ObObject> weighing(std::size_t bytes) {
    return dict({{str(std::string(bytes - bytes / 2, 'k')), str(std::string(bytes / 2, 'v'))}});
}
// The same with half of it in an error's domain, which counts too.
ObRef<ObObject> errorWeighing(std::size_t bytes) {
    return ObError::make(str(std::string(bytes / 2, 'd')), 1,
                         dict({{str("k"), str(std::string(bytes - bytes / 2 - 1, 'v'))}}));
}

class Opaque final : public ObObject {
public:
    const char* className() const noexcept override { return "Opaque"; }
};

TEST(ValueCodecTest, EveryKindComesBackExactly) {
    Messages messages;
    const unsigned char bytes[] = {0, 1, 0xff};
    auto mutableDictionary = ObMutableDictionary::make();
    mutableDictionary->setObject_forKey(str("v"), num(-3));
    const std::vector<ObRef<ObObject>> values = {
        nullptr,
        str(""),
        str("pässcode ✓"),
        num(0),
        num(LONG_MIN),
        num(LONG_MAX),
        ObNumber::makeBool(true),
        ObNumber::makeBool(false),
        ObData::make(bytes, 0),
        ObData::make(bytes, sizeof bytes),
        array({}),
        array({str("a"), num(1), ObNumber::makeBool(true), array({dict({})})}),
        dict({}),
        dict({{str("b"), num(2)}, {str("a"), num(1)}}),
        dict({{num(2), dict({{num(0), ObNumber::makeBool(true)}})}, {num(-1), str("x")}}),
        dict({{ObNumber::makeBool(false), str("no")}}),
        mutableDictionary,
        ObError::make(str("Caller"), 7, nullptr),
        ObError::make(KVErrorDomain, -1009,
                      dict({{ObLocalizedDescriptionKey, str("gone")}, {str("n"), num(1)}})),
        nested(16),
        weighing(64 * 1024),
        errorWeighing(64 * 1024),
    };
    for (const ObRef<ObObject>& value : values) {
        SCOPED_TRACE(typed(value).substr(0, 80));
        const MessageRef message = messages.make();
        ASSERT_EQ(appendValue(message.get(), value), nullptr);
        ObRef<ObObject> back = str("not read");
        EXPECT_EQ(Messages::read(message, back), "");
        EXPECT_EQ(typed(back), typed(value));
    }
}

TEST(ValueCodecTest, WhatCannotCrossIsAParameterError) {
    Messages messages;
    const std::string unicode = "a string is not valid UTF-8 or holds a NUL";
    const struct {
        ObRef<ObObject> value;
        std::string reason;
    } cases[] = {
        {str("\xff"), unicode},
        {str(std::string_view("a\0b", 3)), unicode},
        {str("\xed\xa0\x80"), unicode}, // a surrogate
        {dict({{str("a"), num(1)}, {num(2), num(2)}}),
         "a dictionary's keys are not all of one kind"},
        // (1 and true would be one key: numbers equal by value.)
        {dict({{num(5), num(1)}, {ObNumber::makeBool(false), num(2)}}),
         "a dictionary's keys are not all of one kind"},
        {dict({{array({}), num(1)}}), "a dictionary key is neither a string nor a number"},
        {array({ObMake<Opaque>()}), "an object of class Opaque has no encoding"},
        {nested(17), "it nests deeper than 16 levels"},
        {ObArray::make(std::vector<ObRef<ObObject>>(4096, num(1))),
         "it holds more than 4096 objects"},
        {ObData::make(std::string(64 * 1024 + 1, 'x').data(), 64 * 1024 + 1),
         "it holds more than 65536 bytes of text and data"},
        {weighing(64 * 1024 + 1), "it holds more than 65536 bytes of text and data"},
        {errorWeighing(64 * 1024 + 1), "it holds more than 65536 bytes of text and data"},
    };
    for (const auto& [value, reason] : cases) {
        SCOPED_TRACE(reason);
        ObRef<ObError> error = appendValue(messages.make().get(), value);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), KVErrorInvalidParameter);
        EXPECT_EQ(error->localizedDescription()->text(),
                  "The value cannot cross the bus: " + reason + ".");
    }
}

TEST(ValueCodecTest, APeersMalformedValueIsRefusedWithItsReason) {
    Messages messages;
    using Writer = std::function<void(sd_bus_message*)>;
    const struct {
        Writer write;
        std::string problem;
    } cases[] = {
        {[](sd_bus_message* m) { sd_bus_message_append(m, "s", "bare"); },
         "a value is not a variant"},
        {[](sd_bus_message* m) { sd_bus_message_append(m, "v", "i", 5); },
         "a variant of signature \"i\" has no meaning here"},
        {[](sd_bus_message* m) { sd_bus_message_append(m, "v", "g", "s"); },
         "a signature value is not the empty one that stands for absent"},
        {[](sd_bus_message* m) { sd_bus_message_append(m, "v", "av", 1, "g", ""); },
         "an array holds an absent value"},
        {[](sd_bus_message* m) { sd_bus_message_append(m, "v", "a{sv}", 1, "k", "g", ""); },
         "a dictionary holds an absent value"},
        {[](sd_bus_message* m) {
             sd_bus_message_append(m, "v", "(sxv)", "d", std::int64_t(1), "s", "x");
         },
         "an error's user info is not a dictionary"},
        {[](sd_bus_message* m) {
             for (int level = 0; level < 17; ++level)
                 sd_bus_message_open_container(m, 'v', "av"),
                     sd_bus_message_open_container(m, 'a', "v");
             sd_bus_message_append(m, "v", "x", std::int64_t(1));
             for (int level = 0; level < 34; ++level)
                 sd_bus_message_close_container(m);
         },
         "it nests deeper than 16 levels"},
        {[](sd_bus_message* m) {
             const std::string text(40 * 1024, 'x');
             sd_bus_message_append(m, "v", "as", 2, text.c_str(), text.c_str());
         },
         "a variant of signature \"as\" has no meaning here"},
        {[](sd_bus_message* m) {
             const std::string text(40 * 1024, 'x');
             sd_bus_message_append(m, "v", "av", 2, "s", text.c_str(), "s", text.c_str());
         },
         "it holds more than 65536 bytes of text and data"},
        {[](sd_bus_message* m) {
             const std::string key(32 * 1024 + 1, 'k'), text(32 * 1024, 'v');
             sd_bus_message_append(m, "v", "a{sv}", 1, key.c_str(), "s", text.c_str());
         },
         "it holds more than 65536 bytes of text and data"},
        {[](sd_bus_message* m) {
             const std::string domain(32 * 1024 + 1, 'd'), text(32 * 1024, 'v');
             sd_bus_message_append(m, "v", "(sxv)", domain.c_str(), std::int64_t(1), "s",
                                   text.c_str());
         },
         "it holds more than 65536 bytes of text and data"},
    };
    for (const auto& [write, problem] : cases) {
        SCOPED_TRACE(problem);
        const MessageRef message = messages.make();
        write(message.get());
        ObRef<ObObject> value;
        EXPECT_EQ(Messages::read(message, value), problem);
    }
}

} // namespace
} // namespace tessiva::test
