// SPDX-License-Identifier: MIT
// The library's version symbols.
#pragma once

#include "tessiva/TessivaExport.h"
#include "tessiva/object/ObDefines.h"

extern "C" {
// "@(#)PROGRAM:Tessiva  PROJECT:Tessiva-1.30.1.30", a line feed and a NUL.
extern TESSIVA_API const unsigned char TessivaVersionString[];
// Exactly 1.3.
extern TESSIVA_API const double TessivaVersionNumber;
}
