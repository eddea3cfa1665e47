// pam_nimauth_embedded.so: lets users of the joined embedded domain log in on this host. For evaluation and rehearsals
// only.
//
//     auth  [success=end default=ignore]  pam_nimauth_embedded.so use_first_pass
//
// Argument: use_first_pass never asks for a password, and uses the one that an earlier module was given.
//
// Local accounts are none of its business: a user whom the name services do not know under the directory's own uid is
// an unknown one, so that no local account can be entered with a directory password of the same name.
//
// Threads: as libpam, one handle per thread.

#include <pthread.h>
#include <pwd.h>
#include <security/pam_ext.h>
#include <security/pam_modules.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <exception>
#include <string_view>

#include "accounts.h"
#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/host.h"
#include "fork_gate.h"

#pragma GCC visibility push(default)

namespace {

using namespace nimbrel::embedded;

// SQLite cannot be left half-way by a thread that is cancelled.
class NoCancellation {
 public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;
    ~NoCancellation() { pthread_setcancelstate(_before, nullptr); }

 private:
    int _before = 0;
};

// The PAM result of a refusal by the directory.
int ResultOf(const DirectoryError& error) {
    switch (error.Status()) {
        case kStatusLogonFailure:
            return PAM_AUTH_ERR;
        case kStatusAccountDisabled:
        case kStatusAccountLocked:
            return PAM_PERM_DENIED;
        case kStatusAccountExpired:
            return PAM_ACCT_EXPIRED;
        case kStatusPasswordExpired:
        case kStatusPasswordMustChange:
            return PAM_SUCCESS;  // the password is right; account management refuses
        default:
            return PAM_AUTHINFO_UNAVAIL;
    }
}

// Nothing is thrown into libpam.
template <class Work>
int Guarded(pam_handle_t* handle, const Work& work) noexcept {
    const NoCancellation shield;
    try {
        return work();
    } catch (const DirectoryError& error) {
        pam_syslog(handle, LOG_NOTICE, "%s", error.what());
        return ResultOf(error);
    } catch (...) {
        pam_syslog(handle, LOG_ERR, "the embedded directory could not be asked");
        return PAM_SYSTEM_ERR;
    }
}

bool NameServicesAgree(const char* user, const Account& account) {
    std::array<char, 4096> buffer{};
    struct passwd entry = {};
    struct passwd* found = nullptr;
    return getpwnam_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
           found->pw_uid == account.uid;
}

// Calls `work` with the user's account; an unknown user is not its business.
template <class Work>
int ForAccount(pam_handle_t* handle, const Work& work) {
    return Guarded(handle, [&]() -> int {
        const char* user = nullptr;
        const int status = pam_get_user(handle, &user, nullptr);
        if (status != PAM_SUCCESS) return status;
        const auto account = FindAccount(user);
        if (!account || !NameServicesAgree(user, *account)) return PAM_USER_UNKNOWN;
        return work(*account);
    });
}

bool Has(int count, const char** words, std::string_view wanted) {
    for (int index = 0; index < count; ++index) {
        if (wanted == words[index]) return true;
    }
    return false;
}

int GetPassword(pam_handle_t* handle, bool ask, const char** password) {
    const void* given = nullptr;
    const int status = pam_get_item(handle, PAM_AUTHTOK, &given);
    if (status != PAM_SUCCESS) return status;
    *password = static_cast<const char*>(given);
    if (*password != nullptr) return PAM_SUCCESS;
    return ask ? pam_get_authtok(handle, PAM_AUTHTOK, password, nullptr) : PAM_AUTH_ERR;
}

int Authenticate(const Account& account, const char* password) {
    if (Host().TrustState() != kTrustStateHealthy) return PAM_AUTHINFO_UNAVAIL;
    const std::string domain = JoinedDomain();
    const ForkGate gate;
    Directory::Open().Authenticate(domain, {account.name, password});
    return PAM_SUCCESS;
}

int CheckFlags(const UserFlags& flags) {
    if (flags.disabled || flags.locked) return PAM_PERM_DENIED;
    if (flags.expired) return PAM_ACCT_EXPIRED;
    return flags.passwordExpired || flags.mustChangePassword ? PAM_AUTHTOK_EXPIRED : PAM_SUCCESS;
}

}  // namespace

extern "C" {

int pam_sm_authenticate(pam_handle_t* handle, int, int count, const char** words) {
    return ForAccount(handle, [&](const Account& account) {
        const char* password = nullptr;
        const int status = GetPassword(handle, !Has(count, words, "use_first_pass"), &password);
        return status == PAM_SUCCESS ? Authenticate(account, password) : status;
    });
}

int pam_sm_setcred(pam_handle_t*, int, int, const char**) { return PAM_SUCCESS; }

int pam_sm_acct_mgmt(pam_handle_t* handle, int, int, const char**) {
    return ForAccount(handle, [](const Account& account) { return CheckFlags(account.flags); });
}

int pam_sm_open_session(pam_handle_t*, int, int, const char**) {
    const NoCancellation shield;
    PublishAccounts();
    return PAM_SUCCESS;
}

int pam_sm_close_session(pam_handle_t*, int, int, const char**) { return PAM_SUCCESS; }

// Passwords of the embedded directory are set by its administrator.
int pam_sm_chauthtok(pam_handle_t* handle, int, int, const char**) {
    return ForAccount(handle, [](const Account&) { return PAM_AUTHTOK_ERR; });
}

}  // extern "C"

#pragma GCC visibility pop
