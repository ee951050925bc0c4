// SPDX-License-Identifier: MIT
// VRUIDelegate: the user-interface delegate a VR caller implements.
#pragma once

#include "tessiva/TessivaExport.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObString.h"

#include <functional>

// The caller's answer to an event: a dictionary keyed by VR response names
// (may be absent) and an error (may be absent). It may be called later and
// from any thread; each call is forwarded to the service again.
using VRUIReply = std::function<void(ObRef<ObDictionary>, ObRef<ObError>)>;

class TESSIVA_API VRUIDelegate : public ObObject {
public:
    // An event under its VR name (absent for an availability report of an
    // event the library cannot name), its parameters keyed by VR names (or
    // absent), and the callback that carries the answer back.
    virtual void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                                    VRUIReply reply) = 0;
};
