// SPDX-License-Identifier: MIT
// Per-thread variables that the object library reads on its hot paths.
#pragma once

// The initial-exec model makes each read one load instead of a call into the
// dynamic linker. It suits a library linked at start-up, and one loaded later
// too while the few bytes of these variables fit in the static TLS space the
// C library keeps to spare.
#define TESSIVA_FAST_THREAD_LOCAL __attribute__((tls_model("initial-exec"))) constinit thread_local
