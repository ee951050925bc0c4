// SPDX-License-Identifier: MIT
// Owners for sd-bus and sd-event objects: each holds one reference and drops
// it exactly once, so that no path can forget an unref or do one twice.
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <utility>

namespace tessiva::detail::bus {
// One reference to an sd-bus or sd-event object, dropped with `unref`.
// Move-only; null is "none".
template <class T, T* (*unref)(T*)> class SdRef {
public:
    SdRef() noexcept = default;
    // Takes over a reference the caller holds.
    explicit SdRef(T* adopted) noexcept : object_(adopted) {}
    SdRef(SdRef&& other) noexcept : object_(other.release()) {}
    SdRef& operator=(SdRef&& other) noexcept {
        reset(other.release());
        return *this;
    }
    SdRef(const SdRef&) = delete;
    SdRef& operator=(const SdRef&) = delete;
    ~SdRef() { reset(); }

    T* get() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    // Where an sd_*_new() writes the reference it makes; drops the old one.
    T** put() noexcept {
        reset();
        return &object_;
    }
    // Gives up the reference without dropping it.
    T* release() noexcept { return std::exchange(object_, nullptr); }
    void reset(T* adopted = nullptr) noexcept {
        if (T* old = std::exchange(object_, adopted))
            unref(old);
    }

private:
    T* object_ = nullptr;
};

// A connection is flushed before it closes, so that what was sent goes out.
using BusRef = SdRef<sd_bus, sd_bus_flush_close_unref>;
using MessageRef = SdRef<sd_bus_message, sd_bus_message_unref>;
using SlotRef = SdRef<sd_bus_slot, sd_bus_slot_unref>;
using CredsRef = SdRef<sd_bus_creds, sd_bus_creds_unref>;
using EventRef = SdRef<sd_event, sd_event_unref>;
using EventSourceRef = SdRef<sd_event_source, sd_event_source_unref>;
// A source that is disabled as it goes, so that it never fires again even
// while sd-event still holds it.
using DisabledSourceRef = SdRef<sd_event_source, sd_event_source_disable_unref>;

// An sd_bus_error filled by a call, freed once. Move-only.
class BusError {
public:
    BusError() noexcept = default;
    BusError(BusError&& other) noexcept { sd_bus_error_move(&error_, &other.error_); }
    BusError& operator=(BusError&& other) noexcept {
        if (this != &other) {
            sd_bus_error_free(&error_);
            sd_bus_error_move(&error_, &other.error_);
        }
        return *this;
    }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    ~BusError() { sd_bus_error_free(&error_); }

    sd_bus_error* get() noexcept { return &error_; }
    bool isSet() const noexcept { return sd_bus_error_is_set(&error_); }
    const char* name() const noexcept { return error_.name; }
    const char* message() const noexcept { return error_.message; }

private:
    // All null, as SD_BUS_ERROR_NULL, whose compound literal is not C++.
    sd_bus_error error_{};
};
} // namespace tessiva::detail::bus
