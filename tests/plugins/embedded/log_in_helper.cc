// A program that logs a user in without a password, as sshd does for a key, and says what it found.
//
//     log_in_helper SERVICE USER
//
// Prints "secure 1" if the kernel takes it for a program with other rights than its starter's, the user's number, and the
// results of account management and of the session.

#include <pwd.h>
#include <security/pam_appl.h>
#include <sys/auxv.h>

#include <cstdio>

namespace {

int Converse(int, const struct pam_message**, struct pam_response**, void*) { return PAM_CONV_ERR; }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const struct passwd* user = getpwnam(argv[2]);
    std::printf("secure %lu\nuser %ld\n", getauxval(AT_SECURE), user ? static_cast<long>(user->pw_uid) : -1L);
    const struct pam_conv conversation = {Converse, nullptr};
    pam_handle_t* handle = nullptr;
    if (pam_start(argv[1], argv[2], &conversation, &handle) != PAM_SUCCESS) return 3;
    std::printf("account %d\n", pam_acct_mgmt(handle, 0));
    std::printf("session %d\n", pam_open_session(handle, 0));
    return pam_end(handle, PAM_SUCCESS);
}
