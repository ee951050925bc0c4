// SPDX-License-Identifier: MIT
// fprintd's default device, over a connection of our own to the system bus.
// A scan claims the device for the user, verifies any enrolled finger and
// follows the device's signals, which fprintd broadcasts: only those its
// current owner sends from the device's path count, so that no other peer
// can report a match.
#include "services/fprint/FprintScanner.h"

#include "services/dbus/SdBus.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <poll.h>
#include <string_view>
#include <system_error>
#include <tessiva/object/ObMake.h>
#include <thread>
#include <utility>

namespace tessiva::detail {
namespace {
using bus::BusError;
using bus::BusRef;
using bus::MessageRef;
using bus::SlotRef;

constexpr const char* fprintd = "net.reactivated.Fprint";
constexpr const char* managerPath = "/net/reactivated/Fprint/Manager";
constexpr const char* managerInterface = "net.reactivated.Fprint.Manager";
constexpr const char* deviceInterface = "net.reactivated.Fprint.Device";
// fprintd answers within milliseconds; one that has not in 5 s is stuck,
// and the evaluation must not wait on it.
constexpr std::uint64_t callTimeoutUsec = 5'000'000;
// How often a waiter without the stop's eventfd looks at the request.
constexpr int stopPollMs = 50;
// fprintd drops a removed reader only once it is released, a moment after
// the scan's error status; an error that is not a removal costs this wait.
constexpr std::uint64_t removalGraceUsec = 1'000'000;

ReaderProblem problemOf(std::string_view error) {
    if (error == "org.freedesktop.DBus.Error.ServiceUnknown" ||
        error == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
        error == "net.reactivated.Fprint.Error.NoSuchDevice")
        return ReaderProblem::noReader;
    if (error == "net.reactivated.Fprint.Error.NoEnrolledPrints")
        return ReaderProblem::notEnrolled;
    if (error == "net.reactivated.Fprint.Error.AlreadyInUse")
        return ReaderProblem::busy;
    if (error == "net.reactivated.Fprint.Error.PermissionDenied" ||
        error == "org.freedesktop.DBus.Error.AccessDenied")
        return ReaderProblem::refused;
    return ReaderProblem::failed;
}

const char* wordsFor(ReaderProblem problem) {
    switch (problem) {
    case ReaderProblem::none:
        return "";
    case ReaderProblem::noReader:
        return "no fingerprint reader";
    case ReaderProblem::notEnrolled:
        return "no finger enrolled";
    case ReaderProblem::busy:
        return "the fingerprint reader is in use";
    case ReaderProblem::unplugged:
        return "the fingerprint reader was removed";
    case ReaderProblem::refused:
        return "fprintd refused";
    case ReaderProblem::failed:
        break;
    }
    return "fprintd failed";
}

// A problem and the words for it.
struct Failure {
    ReaderProblem problem = ReaderProblem::none;
    std::string message;
};

Failure failure(ReaderProblem problem, const std::string& detail) {
    return {problem, std::string(wordsFor(problem)) + ": " + detail};
}

// One method call's reply, or why there is none.
struct Reply {
    MessageRef message;
    BusError error;
    int result = 0;

    bool ok() const noexcept { return result >= 0; }
    Failure failure(const char* member) const {
        const char* name = error.isSet() ? error.name() : nullptr;
        std::string detail = std::string(member) + ": ";
        if (name != nullptr)
            detail += std::string(name) + " (" + (error.message() ? error.message() : "") + ")";
        else
            detail += std::strerror(-result);
        return tessiva::detail::failure(name ? problemOf(name) : ReaderProblem::failed, detail);
    }
};

// Calls a method of `destination`; `append` writes the arguments.
template <class Append>
Reply call(sd_bus* bus, const char* destination, const std::string& path, const char* interface,
           const char* member, Append append) {
    Reply reply;
    MessageRef request;
    reply.result = sd_bus_message_new_method_call(bus, request.put(), destination, path.c_str(),
                                                  interface, member);
    if (reply.result >= 0)
        reply.result = append(request.get());
    if (reply.result >= 0)
        reply.result = sd_bus_call(bus, request.get(), callTimeoutUsec, reply.error.get(),
                                   reply.message.put());
    return reply;
}

Reply call(sd_bus* bus, const std::string& path, const char* interface, const char* member) {
    return call(bus, fprintd, path, interface, member, [](sd_bus_message*) { return 0; });
}

Reply callWithString(sd_bus* bus, const std::string& path, const char* member,
                     const std::string& argument) {
    return call(bus, fprintd, path, deviceInterface, member, [&](sd_bus_message* request) {
        return sd_bus_message_append(request, "s", argument.c_str());
    });
}

Failure unreadable(const char* member, int result) {
    return failure(ReaderProblem::failed,
                   std::string(member) + ": unexpected reply (" + std::strerror(-result) + ")");
}

// A connection to the system bus whose every call ends by the time-out.
std::optional<BusRef> connect(Failure& failed) {
    BusRef bus;
    int result = sd_bus_open_system(bus.put());
    if (result >= 0)
        result = sd_bus_set_method_call_timeout(bus.get(), callTimeoutUsec);
    if (result < 0) {
        failed = failure(ReaderProblem::noReader,
                         std::string("cannot reach the system bus: ") + std::strerror(-result));
        return std::nullopt;
    }
    return bus;
}

std::optional<std::string> defaultDevice(sd_bus* bus, Failure& failed) {
    const Reply reply = call(bus, managerPath, managerInterface, "GetDefaultDevice");
    if (!reply.ok()) {
        failed = reply.failure("GetDefaultDevice");
        return std::nullopt;
    }
    const char* path = nullptr;
    if (const int result = sd_bus_message_read(reply.message.get(), "o", &path); result < 0) {
        failed = unreadable("GetDefaultDevice", result);
        return std::nullopt;
    }
    return std::string(path);
}

// Reads an "as" reply into `into`.
int readStrings(sd_bus_message* message, std::vector<std::string>& into) {
    int result = sd_bus_message_enter_container(message, 'a', "s");
    const char* item = nullptr;
    while (result >= 0 && (result = sd_bus_message_read(message, "s", &item)) > 0)
        into.emplace_back(item);
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

std::uint64_t nowUsec() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::uint64_t(now.tv_sec) * 1'000'000 + std::uint64_t(now.tv_nsec) / 1000;
}

// Waits until the connection has something to process, a time-out of its
// own comes or a stop is requested; 0, or the negative errno of what failed.
int waitOnBus(sd_bus* bus, const ScanStop& stop) {
    const int events = sd_bus_get_events(bus);
    if (events < 0)
        return events;
    std::uint64_t until = UINT64_MAX;
    if (const int result = sd_bus_get_timeout(bus, &until); result < 0)
        return result;
    pollfd waits[] = {{sd_bus_get_fd(bus), short(events), 0}, {stop.fd(), POLLIN, 0}};
    const int count = stop.fd() >= 0 ? 2 : 1;
    int timeoutMs = -1;
    if (until != UINT64_MAX) {
        const std::uint64_t now = nowUsec();
        timeoutMs =
            until <= now ? 0 : int(std::min<std::uint64_t>((until - now + 999) / 1000, 60'000));
    }
    if (count == 1 && (timeoutMs < 0 || timeoutMs > stopPollMs))
        timeoutMs = stopPollMs;
    if (poll(waits, nfds_t(count), timeoutMs) < 0 && errno != EINTR)
        return -errno;
    return 0;
}

bool deviceListed(sd_bus* bus, const std::string& device) {
    const Reply reply = call(bus, managerPath, managerInterface, "GetDevices");
    if (!reply.ok())
        return false;
    int result = sd_bus_message_enter_container(reply.message.get(), 'a', "o");
    const char* path = nullptr;
    while (result >= 0 && (result = sd_bus_message_read(reply.message.get(), "o", &path)) > 0)
        if (device == path)
            return true;
    return false;
}

ScanStatus statusFromName(std::string_view name) {
    static constexpr std::pair<std::string_view, ScanStatus> names[] = {
        {"verify-match", ScanStatus::match},
        {"verify-no-match", ScanStatus::noMatch},
        {"verify-retry-scan", ScanStatus::retryScan},
        {"verify-swipe-too-short", ScanStatus::swipeTooShort},
        {"verify-finger-not-centered", ScanStatus::fingerNotCentered},
        {"verify-remove-and-retry", ScanStatus::removeAndRetry},
        {"verify-disconnected", ScanStatus::disconnected},
        {"verify-unknown-error", ScanStatus::unknownError},
    };
    for (const auto& [known, status] : names)
        if (name == known)
            return status;
    return ScanStatus::unknownError;
}

// What the signals of one scan have told, gathered in sd-bus's callbacks and
// handed to the caller outside them, so that onStatus never runs inside
// sd-bus.
struct ScanWatch {
    std::string owner; // fprintd's unique name when the scan began
    std::string finger;
    std::string device; // the device's object path
    std::vector<ScanReport> reports;
    bool done = false;
    bool fprintdLeft = false;
    bool deviceRemoved = false;

    bool fromFprintd(sd_bus_message* message) const {
        const char* sender = sd_bus_message_get_sender(message);
        return sender != nullptr && owner == sender;
    }
};

int onFingerSelected(sd_bus_message* message, void* data, sd_bus_error*) {
    auto& watch = *static_cast<ScanWatch*>(data);
    const char* finger = nullptr;
    if (watch.fromFprintd(message) && sd_bus_message_read(message, "s", &finger) >= 0)
        watch.finger = finger;
    return 0;
}

int onVerifyStatus(sd_bus_message* message, void* data, sd_bus_error*) {
    auto& watch = *static_cast<ScanWatch*>(data);
    const char* name = nullptr;
    int done = 0;
    if (watch.done || !watch.fromFprintd(message) ||
        sd_bus_message_read(message, "sb", &name, &done) < 0)
        return 0;
    ScanReport report;
    report.status = statusFromName(name);
    report.done = done != 0;
    if (report.status == ScanStatus::match)
        report.finger = watch.finger;
    watch.done = report.done;
    watch.reports.push_back(std::move(report));
    return 0;
}

int onInterfacesRemoved(sd_bus_message* message, void* data, sd_bus_error*) {
    auto& watch = *static_cast<ScanWatch*>(data);
    const char* path = nullptr;
    if (watch.fromFprintd(message) && sd_bus_message_read(message, "o", &path) >= 0 &&
        watch.device == path)
        watch.deviceRemoved = true;
    return 0;
}

int onOwnerChanged(sd_bus_message* message, void* data, sd_bus_error*) {
    auto& watch = *static_cast<ScanWatch*>(data);
    const char *name = nullptr, *oldOwner = nullptr, *newOwner = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) >= 0 &&
        watch.owner != newOwner)
        watch.fprintdLeft = true;
    return 0;
}

// The claim on the device: verification stopped and the device released on
// every way out of a scan.
class Claim {
public:
    Claim(sd_bus* bus, std::string device) : bus_(bus), device_(std::move(device)) {}
    ~Claim() { (void)release(); }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    void verifying() noexcept { verifying_ = true; }
    // Stops and releases now; false when fprintd could not release it.
    bool release() {
        if (!claimed_)
            return true;
        claimed_ = false;
        // fprintd refuses a new verification until this one is stopped, done
        // or not; a failure here shows in the release.
        if (std::exchange(verifying_, false))
            (void)call(bus_, device_, deviceInterface, "VerifyStop");
        return call(bus_, device_, deviceInterface, "Release").ok();
    }

private:
    sd_bus* bus_;
    std::string device_;
    bool claimed_ = true;
    bool verifying_ = false;
};

// The readers fprintd serves, watched on a connection and a thread of their
// own: its object manager adding or removing a device, or fprintd itself
// coming or going. Whatever a signal says is only a cue to ask fprintd
// again, so a forged one costs a question and nothing more.
class FprintWatch final : public ReaderWatch {
public:
    explicit FprintWatch(std::function<void()> changed) : changed_(std::move(changed)) {}
    ~FprintWatch() override {
        stop_.request();
        if (thread_.joinable())
            thread_.join();
    }
    FprintWatch(const FprintWatch&) = delete;
    FprintWatch& operator=(const FprintWatch&) = delete;

    bool start() {
        Failure failed;
        std::optional<BusRef> bus = connect(failed);
        if (!bus)
            return false;
        bus_ = std::move(*bus);
        for (const char* member : {"InterfacesAdded", "InterfacesRemoved"})
            if (!add(fprintd, "org.freedesktop.DBus.ObjectManager", member))
                return false;
        if (!add("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged"))
            return false;
        try {
            thread_ = std::thread([this] { run(); });
        } catch (const std::system_error&) {
            return false;
        }
        return true;
    }

private:
    bool add(const char* sender, const char* interface, const char* member) {
        SlotRef slot;
        if (sd_bus_match_signal(bus_.get(), slot.put(), sender, nullptr, interface, member,
                                &FprintWatch::onSignal, this) < 0)
            return false;
        slots_.push_back(std::move(slot));
        return true;
    }
    static int onSignal(sd_bus_message* message, void* self, sd_bus_error*) {
        const char* name = nullptr;
        // Of the bus's own signals only fprintd's name changing hands counts.
        if (std::string_view(sd_bus_message_get_member(message)) == "NameOwnerChanged" &&
            (sd_bus_message_read(message, "s", &name) < 0 || std::string_view(name) != fprintd))
            return 0;
        static_cast<FprintWatch*>(self)->changed_();
        return 0;
    }
    void run() {
        sd_bus* bus = bus_.get();
        while (!stop_.requested()) {
            int result = 0;
            while ((result = sd_bus_process(bus, nullptr)) > 0) {
            }
            if (result < 0 || waitOnBus(bus, stop_) < 0)
                return; // the bus is gone: nothing more will come
        }
    }

    const std::function<void()> changed_;
    BusRef bus_;
    std::vector<SlotRef> slots_;
    ScanStop stop_;
    std::thread thread_;
};

ScanOutcome problemOutcome(Failure failed) {
    ScanOutcome outcome;
    outcome.problem = failed.problem;
    outcome.message = std::move(failed.message);
    return outcome;
}

class FprintScanner final : public RidgeScanner {
public:
    ReaderState state(const std::string& user) override {
        Failure failed;
        const auto bus = connect(failed);
        const auto device = bus ? defaultDevice(bus->get(), failed) : std::nullopt;
        ReaderState state;
        if (device) {
            const Reply reply = callWithString(bus->get(), *device, "ListEnrolledFingers", user);
            int result = 0;
            if (!reply.ok())
                failed = reply.failure("ListEnrolledFingers");
            else if ((result = readStrings(reply.message.get(), state.fingers)) < 0)
                failed = unreadable("ListEnrolledFingers", result);
            else if (state.fingers.empty())
                failed = failure(ReaderProblem::notEnrolled, "ListEnrolledFingers: none");
        }
        state.problem = failed.problem;
        state.message = failed.message;
        if (failed.problem != ReaderProblem::none)
            state.fingers.clear();
        return state;
    }

    ScanOutcome scan(const std::string& user,
                     const std::function<void(const ScanReport&)>& onStatus,
                     ScanStop& stop) override {
        if (stop.requested())
            return stopped();
        Failure failed;
        const auto bus = connect(failed);
        if (!bus)
            return problemOutcome(std::move(failed));
        // Asking for the device first starts fprintd where the bus
        // activates it; then it has an owner to trust.
        const auto device = defaultDevice(bus->get(), failed);
        if (!device)
            return problemOutcome(std::move(failed));
        ScanWatch watch;
        watch.device = *device;
        if (!findFprintd(bus->get(), watch.owner, failed))
            return problemOutcome(std::move(failed));
        std::vector<SlotRef> slots;
        if (const int result = watchSignals(bus->get(), *device, watch, slots); result < 0)
            return problemOutcome(
                failure(ReaderProblem::failed,
                        std::string("cannot watch fprintd: ") + std::strerror(-result)));

        if (Reply claimed = callWithString(bus->get(), *device, "Claim", user); !claimed.ok())
            return problemOutcome(claimed.failure("Claim"));
        Claim claim(bus->get(), *device);
        if (Reply started = callWithString(bus->get(), *device, "VerifyStart", "any");
            !started.ok())
            return problemOutcome(started.failure("VerifyStart"));
        claim.verifying();

        ScanOutcome outcome = follow(bus->get(), watch, onStatus, stop);
        // A device that went away mid-scan ends the attempt with an error
        // status and is gone once released.
        const bool released = claim.release();
        const bool error = outcome.last.status == ScanStatus::unknownError ||
                           outcome.last.status == ScanStatus::disconnected;
        if (!outcome.stopped && outcome.problem == ReaderProblem::none && (error || !released) &&
            deviceGone(bus->get(), watch)) {
            outcome.problem = ReaderProblem::unplugged;
            outcome.message = std::string(wordsFor(outcome.problem)) + " during the scan";
        }
        return outcome;
    }

    std::unique_ptr<ReaderWatch> watch(std::function<void()> changed) override {
        auto watching = std::make_unique<FprintWatch>(std::move(changed));
        if (!watching->start())
            return nullptr;
        return watching;
    }

    const char* className() const noexcept override { return "FprintScanner"; }

private:
    static ScanOutcome stopped() {
        ScanOutcome outcome;
        outcome.stopped = true;
        outcome.message = "stopped on request";
        return outcome;
    }

    static bool findFprintd(sd_bus* bus, std::string& owner, Failure& failed) {
        const Reply reply =
            call(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                 "GetNameOwner", [](sd_bus_message* request) {
                     return sd_bus_message_append(request, "s", fprintd);
                 });
        const char* name = nullptr;
        if (!reply.ok()) {
            failed = reply.failure("GetNameOwner");
            return false;
        }
        if (const int result = sd_bus_message_read(reply.message.get(), "s", &name); result < 0) {
            failed = unreadable("GetNameOwner", result);
            return false;
        }
        owner = name;
        return true;
    }

    // The device's statuses from fprintd alone: the bus delivers only what
    // the owner of fprintd's name sends, and each callback checks the sender
    // again against the owner this scan began with.
    static int watchSignals(sd_bus* bus, const std::string& device, ScanWatch& watch,
                            std::vector<SlotRef>& slots) {
        const auto add = [&](const char* sender, const char* path, const char* interface,
                             const char* member, sd_bus_message_handler_t handler) {
            SlotRef slot;
            const int result = sd_bus_match_signal(bus, slot.put(), sender, path, interface, member,
                                                   handler, &watch);
            if (result >= 0)
                slots.push_back(std::move(slot));
            return result;
        };
        int result = add(fprintd, device.c_str(), deviceInterface, "VerifyStatus", onVerifyStatus);
        if (result >= 0)
            result = add(fprintd, device.c_str(), deviceInterface, "VerifyFingerSelected",
                         onFingerSelected);
        if (result >= 0)
            result = add(fprintd, nullptr, "org.freedesktop.DBus.ObjectManager",
                         "InterfacesRemoved", onInterfacesRemoved);
        if (result >= 0) {
            SlotRef slot;
            result = sd_bus_add_match(bus, slot.put(),
                                      "type='signal',sender='org.freedesktop.DBus',"
                                      "path='/org/freedesktop/DBus',"
                                      "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
                                      "arg0='net.reactivated.Fprint'",
                                      onOwnerChanged, &watch);
            if (result >= 0)
                slots.push_back(std::move(slot));
        }
        return result;
    }

    // Whether fprintd has dropped the device, waiting a moment for it to.
    static bool deviceGone(sd_bus* bus, ScanWatch& watch) {
        const std::uint64_t deadline = nowUsec() + removalGraceUsec;
        for (bool listed = true;;) {
            while (sd_bus_process(bus, nullptr) > 0) {
            }
            if (watch.deviceRemoved || watch.fprintdLeft)
                return true;
            // An fprintd without the object manager's signal says it here.
            if (std::exchange(listed, false) && !deviceListed(bus, watch.device))
                return true;
            const std::uint64_t now = nowUsec();
            if (now >= deadline || sd_bus_wait(bus, deadline - now) < 0)
                return false;
        }
    }

    // Waits for the first done status, a stop request or fprintd's leaving,
    // handing every status to onStatus as it comes.
    ScanOutcome follow(sd_bus* bus, ScanWatch& watch,
                       const std::function<void(const ScanReport&)>& onStatus, ScanStop& stop) {
        ScanOutcome outcome;
        for (std::size_t delivered = 0;;) {
            int result = 0;
            while ((result = sd_bus_process(bus, nullptr)) > 0) {
            }
            for (; delivered < watch.reports.size(); ++delivered) {
                outcome.last = watch.reports[delivered];
                onStatus(outcome.last);
            }
            if (watch.done)
                return outcome;
            if (watch.fprintdLeft)
                return problemOutcome(
                    failure(ReaderProblem::unplugged, "fprintd left the bus during the scan"));
            if (result < 0)
                return problemOutcome(failure(ReaderProblem::failed,
                                              std::string("lost the system bus during the scan: ") +
                                                  std::strerror(-result)));
            if (stop.requested())
                return stopped();
            if ((result = waitOnBus(bus, stop)) < 0)
                return problemOutcome(
                    failure(ReaderProblem::failed, std::string("cannot wait on the system bus: ") +
                                                       std::strerror(-result)));
        }
    }
};
} // namespace

ObRef<RidgeScanner> makeFprintScanner() {
    return ObMake<FprintScanner>();
}
} // namespace tessiva::detail
