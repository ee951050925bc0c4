// SPDX-License-Identifier: MIT
// KVUIDelegate: the service framework's user-interface delegate protocol.
#pragma once

#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObError.h"

#include <functional>

// The answer to a user-interface event: a dictionary keyed by numbers and an
// error, either of which may be absent.
using KVUIReply = std::function<void(ObRef<ObDictionary>, ObRef<ObError>)>;

class TESSIVA_PLATFORM_API KVUIDelegate : public ObObject {
public:
    // An event with its parameters (keyed by numbers, or absent) and the
    // callback that carries the answer back, from any thread.
    virtual void event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                                    KVUIReply reply) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVUIDelegate() override;
};
