// SPDX-License-Identifier: MIT
// The version symbols a caller or the `what` tool reads from the library.
#include "tessiva/VRVersion.h"

extern "C" {
// Exactly these bytes: "@(#)" for `what`, two spaces, a line feed, the NUL.
const unsigned char TessivaVersionString[] = "@(#)PROGRAM:Tessiva  PROJECT:Tessiva-1.30.1.30\n";
const double TessivaVersionNumber = 1.3;
}
