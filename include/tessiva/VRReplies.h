// SPDX-License-Identifier: MIT
// Reply callback shapes of the VR interface.
#pragma once

#include "tessiva/object/ObError.h"

#include <functional>

// Called once with the outcome: absent on success, the error otherwise.
using VRErrorReply = std::function<void(ObRef<ObError>)>;
// Called once with a value and absent, or with absent and the error.
using VRResultReply = std::function<void(ObRef<ObObject>, ObRef<ObError>)>;
// Called once with a dictionary and absent error on success, or with absent
// and the error on failure.
using VRDictionaryReply = std::function<void(ObRef<ObDictionary>, ObRef<ObError>)>;
