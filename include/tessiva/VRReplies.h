// Reply callback shapes of the VR interface.
#pragma once

#include "tessiva/object/ObError.h"

#include <functional>

// Called once with the outcome: absent on success, the error otherwise.
using VRErrorReply = std::function<void(ObRef<ObError>)>;
