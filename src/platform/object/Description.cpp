// The dispatch behind appendDescription, the bounds on a text form, and the
// text form of an integer.
#include "Description.h"

#include "ExactKind.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <charconv>
#include <typeinfo>

namespace tessiva::detail {
namespace {

// The containers being written on this thread, outermost first. One walk
// spans the description() calls of other classes made inside it, so a cycle
// or a deep chain through them is bounded too.
struct DescriptionWalk {
    std::size_t depth = 0;
    const ObObject* ancestors[maxDescriptionDepth];
};

constinit thread_local DescriptionWalk* currentWalk = nullptr;

// Writes into one buffer; `limit` is the size past which containers stop.
class DescriptionWriter {
public:
    DescriptionWriter(std::string& out, DescriptionWalk& walk)
        : out_(out), walk_(walk), limit_(out.size() + maxDescriptionLength) {}

    void object(const ObObject& object) {
        const std::type_info& type = typeid(object);
        if (isExactly<ObConstantString>(type) || isExactly<ObString>(type))
            out_ += static_cast<const ObString&>(object).text();
        else if (isExactly<ObNumber>(type))
            appendIntegerDescription(out_, static_cast<const ObNumber&>(object).integerValue());
        else if (isExactly<ObDictionary>(type) || isExactly<ObMutableDictionary>(type))
            dictionary(static_cast<const ObDictionary&>(object));
        else if (isExactly<ObArray>(type))
            array(static_cast<const ObArray&>(object));
        else
            out_ += object.description()->text();
    }

    void array(const ObArray& array) {
        if (!enter(array))
            return;
        out_ += '(';
        bool first = true;
        for (const ObRef<ObObject>& item : array) {
            if (!separate(first, ", "))
                break;
            object(*item);
        }
        out_ += ')';
        leave();
    }

    void dictionary(const ObDictionary& dictionary) {
        if (!enter(dictionary))
            return;
        out_ += '{';
        bool first = true;
        for (const ObDictionary::Entry& entry : dictionary) {
            if (!separate(first, "; "))
                break;
            object(*entry.first);
            out_ += " = ";
            object(*entry.second);
        }
        out_ += '}';
        leave();
    }

private:
    // False, with the marker written in the container's place, when it is one
    // of its own ancestors or lies too deep. The ancestors are few in any ordinary
    // graph, so the scan costs next to nothing.
    bool enter(const ObObject& container) {
        for (std::size_t index = 0; index < walk_.depth; ++index) {
            if (walk_.ancestors[index] == &container) {
                out_ += cycleMarker;
                return false;
            }
        }
        if (walk_.depth == maxDescriptionDepth) {
            out_ += cutMarker;
            return false;
        }
        walk_.ancestors[walk_.depth++] = &container;
        return true;
    }

    void leave() noexcept { --walk_.depth; }

    // Writes the separator before every item but the first; false, with the
    // marker written, once the text is long enough.
    bool separate(bool& first, std::string_view separator) {
        if (!first)
            out_ += separator;
        first = false;
        if (out_.size() < limit_)
            return true;
        out_ += cutMarker;
        return false;
    }

    std::string& out_;
    DescriptionWalk& walk_;
    std::size_t limit_;
};

// Runs `write` with this thread's walk, starting one when none is under way.
template <class Write> void withWalk(std::string& out, Write write) {
    if (DescriptionWalk* walk = currentWalk) {
        DescriptionWriter writer(out, *walk);
        write(writer);
        return;
    }
    DescriptionWalk walk;
    currentWalk = &walk;
    struct Reset {
        ~Reset() { currentWalk = nullptr; }
    } reset;
    DescriptionWriter writer(out, walk);
    write(writer);
}

} // namespace

void appendDescription(std::string& out, const ObObject& object) {
    withWalk(out, [&](DescriptionWriter& writer) { writer.object(object); });
}

void appendArrayDescription(std::string& out, const ObArray& array) {
    withWalk(out, [&](DescriptionWriter& writer) { writer.array(array); });
}

void appendDictionaryDescription(std::string& out, const ObDictionary& dictionary) {
    withWalk(out, [&](DescriptionWriter& writer) { writer.dictionary(dictionary); });
}

void appendIntegerDescription(std::string& out, ObInteger value) {
    char digits[24];
    const auto written = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, written.ptr);
}

} // namespace tessiva::detail
