// A PAM module for the PAM suites: it tells the user something of each kind
// (PAM_TEXT_INFO, PAM_ERROR_MSG) and leaves the decision to the next module.
#include <cstddef> // pam_ext.h uses NULL without including it
#include <security/pam_ext.h>
#include <security/pam_modules.h>

extern "C" __attribute__((visibility("default"))) int pam_sm_authenticate(pam_handle_t* handle, int,
                                                                          int, const char**) {
    pam_info(handle, "%s", "Touch the key, or type the password.");
    pam_error(handle, "%s", "No key is plugged in.");
    return PAM_IGNORE;
}

extern "C" __attribute__((visibility("default"))) int pam_sm_setcred(pam_handle_t*, int, int,
                                                                     const char**) {
    return PAM_IGNORE;
}
