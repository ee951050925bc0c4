// SPDX-License-Identifier: MIT
// Object values to and from D-Bus variants, within the documented limits.
#include "ValueCodec.h"

#include "BusInterface.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/ObArray.h"
#include "tessiva/object/ObData.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tessiva::detail::bus {
namespace {
// What a value has used of the limits so far.
struct Budget {
    std::size_t objects = 0;
    std::size_t bytes = 0;
    // The limit exceeded, in words; empty while within them.
    std::string exceeded(int depth) const {
        if (depth > maxValueDepth)
            return "it nests deeper than " + std::to_string(maxValueDepth) + " levels";
        if (objects > maxValueObjects)
            return "it holds more than " + std::to_string(maxValueObjects) + " objects";
        if (bytes > maxValueBytes)
            return "it holds more than " + std::to_string(maxValueBytes) +
                   " bytes of text and data";
        return {};
    }
};

bool isValidUTF8WithoutNul(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = lead < 0x80         ? 1
                             : (lead >> 5) == 6  ? 2
                             : (lead >> 4) == 14 ? 3
                             : (lead >> 3) == 30 ? 4
                                                 : 0;
        if (lead == 0 || length == 0 || i + length > text.size())
            return false;
        std::uint32_t point = length == 1 ? lead : lead & (0x7F >> length);
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            point = (point << 6) | (next & 0x3F);
        }
        static constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (point < smallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

// The dictionary key signature character for a key, 0 when none fits.
char keyKind(const ObRef<ObObject>& key) {
    if (ob_cast<ObString>(key))
        return 's';
    if (auto number = ob_cast<ObNumber>(key))
        return number->isBoolean() ? 'b' : 'x';
    return 0;
}

class Encoder {
public:
    explicit Encoder(sd_bus_message* message) : message_(message) {}

    // The reason the value cannot cross, empty when appended.
    std::string append(const ObRef<ObObject>& value, int depth) {
        ++budget_.objects;
        if (std::string exceeded = budget_.exceeded(depth); !exceeded.empty())
            return exceeded;
        if (!value)
            return check({sd_bus_message_open_container(message_, 'v', "g"),
                          sd_bus_message_append_basic(message_, 'g', ""),
                          sd_bus_message_close_container(message_)});
        if (auto text = ob_cast<ObString>(value)) {
            budget_.bytes += text->length();
            if (!budget_.exceeded(depth).empty())
                return budget_.exceeded(depth);
            if (!isValidUTF8WithoutNul(text->text()))
                return "a string is not valid UTF-8 or holds a NUL";
            // Straight from the string, which ends in a NUL and holds none:
            // a passcode in it is copied only into the message.
            return check({sd_bus_message_open_container(message_, 'v', "s"),
                          sd_bus_message_append_basic(message_, 's', text->cString()),
                          sd_bus_message_close_container(message_)});
        }
        if (auto number = ob_cast<ObNumber>(value)) {
            if (number->isBoolean()) {
                const int flag = number->boolValue();
                return check({sd_bus_message_open_container(message_, 'v', "b"),
                              sd_bus_message_append_basic(message_, 'b', &flag),
                              sd_bus_message_close_container(message_)});
            }
            const std::int64_t integer = number->integerValue();
            return check({sd_bus_message_open_container(message_, 'v', "x"),
                          sd_bus_message_append_basic(message_, 'x', &integer),
                          sd_bus_message_close_container(message_)});
        }
        if (auto data = ob_cast<ObData>(value)) {
            budget_.bytes += data->length();
            if (!budget_.exceeded(depth).empty())
                return budget_.exceeded(depth);
            return check({sd_bus_message_open_container(message_, 'v', "ay"),
                          sd_bus_message_append_array(message_, 'y', data->bytes(), data->length()),
                          sd_bus_message_close_container(message_)});
        }
        if (auto array = ob_cast<ObArray>(value))
            return appendArray(*array, depth);
        if (auto dictionary = ob_cast<ObDictionary>(value))
            return appendDictionary(*dictionary, depth);
        if (auto error = ob_cast<ObError>(value))
            return appendError(*error, depth);
        return std::string("an object of class ") + value->className() + " has no encoding";
    }

private:
    std::string appendArray(const ObArray& array, int depth) {
        std::string problem = check({sd_bus_message_open_container(message_, 'v', "av"),
                                     sd_bus_message_open_container(message_, 'a', "v")});
        for (const ObRef<ObObject>& item : array) {
            if (!problem.empty())
                break;
            problem = append(item, depth + 1);
        }
        return problem.empty() ? closeTwo() : problem;
    }

    std::string appendDictionary(const ObDictionary& dictionary, int depth) {
        char kind = 's';
        for (const auto& [key, value] : dictionary) {
            kind = keyKind(key);
            break;
        }
        if (kind == 0)
            return "a dictionary key is neither a string nor a number";
        const char entry[] = {'{', kind, 'v', '}', 0};
        const char signature[] = {'a', '{', kind, 'v', '}', 0};
        std::string problem = check({sd_bus_message_open_container(message_, 'v', signature),
                                     sd_bus_message_open_container(message_, 'a', entry)});
        for (const auto& [key, value] : dictionary) {
            if (!problem.empty())
                break;
            if (keyKind(key) != kind)
                return "a dictionary's keys are not all of one kind";
            const char contents[] = {kind, 'v', 0};
            problem = check(sd_bus_message_open_container(message_, 'e', contents));
            if (problem.empty())
                problem = appendKey(key, kind);
            if (problem.empty())
                problem = append(value, depth + 1);
            if (problem.empty())
                problem = check(sd_bus_message_close_container(message_));
        }
        return problem.empty() ? closeTwo() : problem;
    }

    std::string appendKey(const ObRef<ObObject>& key, char kind) {
        if (kind == 's') {
            auto text = ob_cast<ObString>(key);
            budget_.bytes += text->length();
            if (!isValidUTF8WithoutNul(text->text()))
                return "a string is not valid UTF-8 or holds a NUL";
            return check(sd_bus_message_append_basic(message_, 's', text->cString()));
        }
        auto number = ob_cast<ObNumber>(key);
        if (kind == 'b') {
            const int flag = number->boolValue();
            return check(sd_bus_message_append_basic(message_, 'b', &flag));
        }
        const std::int64_t integer = number->integerValue();
        return check(sd_bus_message_append_basic(message_, 'x', &integer));
    }

    std::string appendError(const ObError& error, int depth) {
        const ObRef<ObString> domain = error.domain();
        const std::string domainText(domain ? domain->text() : "");
        // The domain is text like any other: it counts against the bound.
        budget_.bytes += domainText.size();
        if (std::string exceeded = budget_.exceeded(depth); !exceeded.empty())
            return exceeded;
        if (!isValidUTF8WithoutNul(domainText))
            return "an error domain is not valid UTF-8 or holds a NUL";
        std::string problem = check({sd_bus_message_open_container(message_, 'v', "(sxv)"),
                                     sd_bus_message_open_container(message_, 'r', "sxv"),
                                     sd_bus_message_append(message_, "sx", domainText.c_str(),
                                                           std::int64_t(error.code()))});
        if (problem.empty())
            problem = append(error.userInfo(), depth + 1);
        return problem.empty() ? closeTwo() : problem;
    }

    // Closes a container and the variant around it.
    std::string closeTwo() {
        return check(
            {sd_bus_message_close_container(message_), sd_bus_message_close_container(message_)});
    }
    // The first failure among steps taken in order (a braced list sequences
    // them); after one, sd-bus fails the rest.
    static std::string check(std::initializer_list<int> results) {
        for (int result : results)
            if (result < 0)
                return "the message cannot hold it (" + std::string(strerror(-result)) + ")";
        return {};
    }
    static std::string check(int result) { return check({result}); }

    sd_bus_message* message_;
    Budget budget_;
};

class Decoder {
public:
    explicit Decoder(sd_bus_message* message) : message_(message) {}

    std::string read(ObRef<ObObject>& value, int depth) {
        ++budget_.objects;
        if (std::string exceeded = budget_.exceeded(depth); !exceeded.empty())
            return exceeded;
        char type = 0;
        const char* contents = nullptr;
        if (sd_bus_message_peek_type(message_, &type, &contents) <= 0 || type != 'v')
            return "a value is not a variant";
        // Points into the message, which outlives this read.
        const std::string_view signature(contents);
        if (sd_bus_message_enter_container(message_, 'v', contents) < 0)
            return "a variant cannot be read";
        std::string problem = readContents(signature, value, depth);
        if (problem.empty() && sd_bus_message_exit_container(message_) < 0)
            problem = "a variant holds more than one value";
        return problem;
    }

private:
    std::string readContents(std::string_view signature, ObRef<ObObject>& value, int depth) {
        if (signature == "g") {
            const char* empty = nullptr;
            if (sd_bus_message_read_basic(message_, 'g', &empty) < 0 || *empty != '\0')
                return "a signature value is not the empty one that stands for absent";
            value = nullptr;
            return {};
        }
        if (signature == "s") {
            const char* text = nullptr;
            if (sd_bus_message_read_basic(message_, 's', &text) < 0)
                return "a string cannot be read";
            const std::string_view view(text);
            budget_.bytes += view.size();
            value = ObString::make(view);
            return budget_.exceeded(depth);
        }
        if (signature == "b") {
            int flag = 0;
            if (sd_bus_message_read_basic(message_, 'b', &flag) < 0)
                return "a boolean cannot be read";
            value = ObNumber::makeBool(flag != 0);
            return {};
        }
        if (signature == "x") {
            std::int64_t integer = 0;
            if (sd_bus_message_read_basic(message_, 'x', &integer) < 0)
                return "an integer cannot be read";
            if (integer < std::int64_t(LONG_MIN) || integer > std::int64_t(LONG_MAX))
                return "an integer does not fit this machine's word";
            value = ObNumber::make(ObInteger(integer));
            return {};
        }
        if (signature == "ay") {
            const void* bytes = nullptr;
            std::size_t length = 0;
            if (sd_bus_message_read_array(message_, 'y', &bytes, &length) < 0)
                return "data cannot be read";
            budget_.bytes += length;
            if (std::string exceeded = budget_.exceeded(depth); !exceeded.empty())
                return exceeded;
            value = ObData::make(bytes, length);
            return {};
        }
        if (signature == "av")
            return readArray(value, depth);
        if (signature == "a{sv}" || signature == "a{xv}" || signature == "a{bv}")
            return readDictionary(signature[2], value, depth);
        if (signature == "(sxv)")
            return readError(value, depth);
        return "a variant of signature \"" + std::string(signature) + "\" has no meaning here";
    }

    std::string readArray(ObRef<ObObject>& value, int depth) {
        if (sd_bus_message_enter_container(message_, 'a', "v") < 0)
            return "an array cannot be read";
        std::vector<ObRef<ObObject>> items;
        while (sd_bus_message_at_end(message_, false) == 0) {
            ObRef<ObObject> item;
            if (std::string problem = read(item, depth + 1); !problem.empty())
                return problem;
            if (!item)
                return "an array holds an absent value";
            items.push_back(std::move(item));
        }
        sd_bus_message_exit_container(message_);
        value = ObArray::make(std::move(items));
        return {};
    }

    std::string readDictionary(char kind, ObRef<ObObject>& value, int depth) {
        const char entry[] = {'{', kind, 'v', '}', 0};
        const char contents[] = {kind, 'v', 0};
        if (sd_bus_message_enter_container(message_, 'a', entry) < 0)
            return "a dictionary cannot be read";
        std::vector<ObDictionary::Entry> entries;
        while (sd_bus_message_at_end(message_, false) == 0) {
            if (sd_bus_message_enter_container(message_, 'e', contents) < 0)
                return "a dictionary entry cannot be read";
            ObRef<ObObject> key;
            if (std::string problem = readKey(kind, key); !problem.empty())
                return problem;
            ObRef<ObObject> item;
            if (std::string problem = read(item, depth + 1); !problem.empty())
                return problem;
            if (!item)
                return "a dictionary holds an absent value";
            sd_bus_message_exit_container(message_);
            entries.push_back({std::move(key), std::move(item)});
        }
        sd_bus_message_exit_container(message_);
        value = ObDictionary::make(std::move(entries));
        return {};
    }

    std::string readKey(char kind, ObRef<ObObject>& key) {
        if (kind == 's') {
            const char* text = nullptr;
            if (sd_bus_message_read_basic(message_, 's', &text) < 0)
                return "a dictionary key cannot be read";
            budget_.bytes += std::string_view(text).size();
            key = ObString::make(text);
        } else if (kind == 'b') {
            int flag = 0;
            if (sd_bus_message_read_basic(message_, 'b', &flag) < 0)
                return "a dictionary key cannot be read";
            key = ObNumber::makeBool(flag != 0);
        } else {
            std::int64_t integer = 0;
            if (sd_bus_message_read_basic(message_, 'x', &integer) < 0)
                return "a dictionary key cannot be read";
            if (integer < std::int64_t(LONG_MIN) || integer > std::int64_t(LONG_MAX))
                return "an integer does not fit this machine's word";
            key = ObNumber::make(ObInteger(integer));
        }
        ++budget_.objects;
        return budget_.exceeded(0);
    }

    std::string readError(ObRef<ObObject>& value, int depth) {
        const char* domain = nullptr;
        std::int64_t code = 0;
        if (sd_bus_message_enter_container(message_, 'r', "sxv") < 0 ||
            sd_bus_message_read(message_, "sx", &domain, &code) < 0)
            return "an error cannot be read";
        if (code < std::int64_t(LONG_MIN) || code > std::int64_t(LONG_MAX))
            return "an integer does not fit this machine's word";
        // Counted before it is copied, as every text is.
        budget_.bytes += std::strlen(domain);
        if (std::string exceeded = budget_.exceeded(depth); !exceeded.empty())
            return exceeded;
        const ObRef<ObString> domainText = ObString::make(domain);
        ObRef<ObObject> userInfo;
        if (std::string problem = read(userInfo, depth + 1); !problem.empty())
            return problem;
        if (userInfo && !ob_cast<ObDictionary>(userInfo))
            return "an error's user info is not a dictionary";
        sd_bus_message_exit_container(message_);
        value = ObError::make(domainText, ObInteger(code), ob_cast<ObDictionary>(userInfo));
        return {};
    }

    sd_bus_message* message_;
    Budget budget_;
};
} // namespace

ObRef<ObError> appendValue(sd_bus_message* message, const ObRef<ObObject>& value) {
    const std::string problem = Encoder(message).append(value, 0);
    if (problem.empty())
        return nullptr;
    return KVErrorHelper::parameterErrorWithMessage(
        ObFormat("The value cannot cross the bus: %s.", problem.c_str()));
}

std::string readValue(sd_bus_message* message, ObRef<ObObject>& value) {
    return Decoder(message).read(value, 0);
}
} // namespace tessiva::detail::bus
