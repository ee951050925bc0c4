// SPDX-License-Identifier: MIT
// The protocol's anchor: its one out-of-line member.
#include "tessiva/kavelin/KVUIDelegate.h"

KVUIDelegate::~KVUIDelegate() = default;
