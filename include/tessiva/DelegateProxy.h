// SPDX-License-Identifier: MIT
// DelegateProxy: the service's user-interface delegate that forwards each
// event, renamed into the VR vocabulary, to a caller's VRUIDelegate and carries
// the caller's answer back in the service's numbers.
#pragma once

#include "tessiva/TessivaExport.h"
#include "tessiva/VRUIDelegate.h"
#include "tessiva/kavelin/KVUIDelegate.h"

class TESSIVA_API DelegateProxy final : public KVUIDelegate {
public:
    // A new proxy holding the caller's delegate for its whole life. An absent
    // delegate is accepted; such a proxy drops every event.
    static ObRef<DelegateProxy> initWithVRUIDelegate(const ObRef<VRUIDelegate>& delegate);

    // Events 1 to 4 reach the delegate under their VR names, with parameters
    // renamed. A parameter number the proxy cannot name raises
    // ObInvalidArgumentException before the delegate is called.
    //
    // The delegate's reply may be called later, from any thread, and as often
    // as it likes: each call renames the answer's keys into response numbers
    // and forwards it, with the error unchanged, to `reply`. An answer key the
    // proxy does not know raises ObInvalidArgumentException ("Unknown response
    // key: <key>") out of that call, and nothing is forwarded.
    //
    // Any other event number carries availability reports: every entry of
    // `params` (event number -> availability) reaches the delegate as its own
    // event, under the VR name of the entry's key (absent when it has none),
    // with {"Available": value} and a reply that does nothing. `reply` is never
    // called for them.
    void event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override;

    const char* className() const noexcept override;

private:
    explicit DelegateProxy(ObRef<VRUIDelegate> delegate) noexcept;
    ~DelegateProxy() override;

    const ObRef<VRUIDelegate> _vruiDelegate;
};
