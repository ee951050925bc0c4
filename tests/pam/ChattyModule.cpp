// SPDX-License-Identifier: MIT
// A PAM module for the PAM suites. By default it tells the user something of
// each kind (PAM_TEXT_INFO, PAM_ERROR_MSG) and leaves the decision to the
// next module. With the argument "nullok" it judges instead, as modules with
// that option do: an empty password is let in unless the caller set
// PAM_DISALLOW_NULL_AUTHTOK, and any other is refused. As an account module
// with the argument "expired" it says the account has expired, as pam_unix
// does, and refuses it.
#include <cstddef> // pam_ext.h uses NULL without including it
#include <cstring>
#include <security/pam_ext.h>
#include <security/pam_modules.h>

extern "C" __attribute__((visibility("default"))) int
pam_sm_authenticate(pam_handle_t* handle, int flags, int argc, const char** argv) {
    if (argc == 1 && std::strcmp(argv[0], "nullok") == 0) {
        const char* token = nullptr;
        if (pam_get_authtok(handle, PAM_AUTHTOK, &token, nullptr) != PAM_SUCCESS)
            return PAM_AUTH_ERR;
        const bool empty = token == nullptr || *token == '\0';
        return empty && !(flags & PAM_DISALLOW_NULL_AUTHTOK) ? PAM_SUCCESS : PAM_AUTH_ERR;
    }
    pam_info(handle, "%s", "Touch the key, or type the password.");
    pam_error(handle, "%s", "No key is plugged in.");
    return PAM_IGNORE;
}

extern "C" __attribute__((visibility("default"))) int pam_sm_setcred(pam_handle_t*, int, int,
                                                                     const char**) {
    return PAM_IGNORE;
}

extern "C" __attribute__((visibility("default"))) int
pam_sm_acct_mgmt(pam_handle_t* handle, int, int argc, const char** argv) {
    if (argc != 1 || std::strcmp(argv[0], "expired") != 0)
        return PAM_IGNORE;
    pam_error(handle, "%s", "Your account has expired; please contact your system administrator.");
    return PAM_ACCT_EXPIRED;
}
