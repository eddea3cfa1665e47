// A PAM module that agrees to everything and writes down how it was called: "auth a.so|first argument|second".

#define _GNU_SOURCE
#include <dlfcn.h>
#include <security/pam_modules.h>
#include <stdio.h>
#include <string.h>

static const char kOwnPlace = 0;

static int Note(const char* type, int count, const char** arguments) {
    Dl_info own;
    FILE* const log = fopen("/tmp/probe.log", "ae");
    if (!log || !dladdr(&kOwnPlace, &own)) return PAM_ABORT;
    fprintf(log, "%s %s", type, strrchr(own.dli_fname, '/') + 1);
    for (int index = 0; index < count; ++index) fprintf(log, "|%s", arguments[index]);
    fputc('\n', log);
    return fclose(log) == 0 ? PAM_SUCCESS : PAM_ABORT;
}

#define EXPORT __attribute__((visibility("default")))

EXPORT int pam_sm_authenticate(pam_handle_t* handle, int flags, int count, const char** arguments) {
    (void)handle, (void)flags;
    return Note("auth", count, arguments);
}

EXPORT int pam_sm_setcred(pam_handle_t* handle, int flags, int count, const char** arguments) {
    (void)handle, (void)flags, (void)count, (void)arguments;
    return PAM_SUCCESS;
}

EXPORT int pam_sm_acct_mgmt(pam_handle_t* handle, int flags, int count, const char** arguments) {
    (void)handle, (void)flags;
    return Note("account", count, arguments);
}

EXPORT int pam_sm_chauthtok(pam_handle_t* handle, int flags, int count, const char** arguments) {
    (void)handle;
    return (flags & PAM_PRELIM_CHECK) != 0 ? PAM_SUCCESS : Note("password", count, arguments);
}

EXPORT int pam_sm_open_session(pam_handle_t* handle, int flags, int count, const char** arguments) {
    (void)handle, (void)flags;
    return Note("session", count, arguments);
}

EXPORT int pam_sm_close_session(pam_handle_t* handle, int flags, int count, const char** arguments) {
    (void)handle, (void)flags, (void)count, (void)arguments;
    return PAM_SUCCESS;
}
