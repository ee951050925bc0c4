// SPDX-License-Identifier: MIT
// The whole object library in one include.
#pragma once

#include "tessiva/object/ObArray.h"
#include "tessiva/object/ObClass.h"
#include "tessiva/object/ObData.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObException.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObMake.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObObject.h"
#include "tessiva/object/ObRef.h"
#include "tessiva/object/ObString.h"
