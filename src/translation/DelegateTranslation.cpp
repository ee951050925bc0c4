// SPDX-License-Identifier: MIT
// The user-interface delegate translation: a caller's delegate behind a proxy.
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"

ObRef<DelegateProxy>
KVLegacyHelper::uiDelegateFromVRUIDelegate(const ObRef<VRUIDelegate>& delegate) {
    if (!delegate)
        return nullptr;
    return DelegateProxy::initWithVRUIDelegate(delegate);
}
