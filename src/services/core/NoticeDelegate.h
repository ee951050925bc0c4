// SPDX-License-Identifier: MIT
// NoticeDelegate: a user-interface delegate that takes an event whose answer
// nobody awaits (an evaluation's closing event) as a notice rather than as a
// call that must return first. A daemon's relay is one: it sends notices
// with the evaluation's result, which saves the client process a round trip.
#pragma once

#include "tessiva/kavelin/KVUIDelegate.h"

namespace tessiva::detail {
class NoticeDelegate : public KVUIDelegate {
public:
    virtual void notice(ObInteger event, const ObRef<ObDictionary>& params) = 0;
};

// Tells the delegate of an event whose answer is ignored and whose failure
// changes nothing.
inline void notify(KVUIDelegate& delegate, ObInteger event,
                   const ObRef<ObDictionary>& params) noexcept {
    try {
        if (auto* noticed = dynamic_cast<NoticeDelegate*>(&delegate))
            noticed->notice(event, params);
        else
            delegate.event_params_reply(event, params, [](ObRef<ObDictionary>, ObRef<ObError>) {});
    } catch (...) {
        // The delegate's failure to take it changes nothing.
    }
}
} // namespace tessiva::detail
