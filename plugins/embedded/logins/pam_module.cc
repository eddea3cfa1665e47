// pam_nimauth_embedded.so: lets users of the joined embedded domain log in on this host. For evaluation and rehearsals
// only.
//
//     auth  [success=end default=ignore]  pam_nimauth_embedded.so use_first_pass
//
// Argument: use_first_pass never asks for a password, and uses the one that an earlier module was given.
//
// Local accounts are none of its business: a user whom the name services do not know under the directory's own uid and
// gid is an unknown one, so that no local account can be entered with a directory password of the same name, and no local
// group's rights come with a name.
//
// Threads: as libpam, one handle per thread.

#include <grp.h>
#include <pwd.h>
#include <security/pam_ext.h>
#include <security/pam_modules.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <exception>
#include <optional>
#include <string_view>

#include "accounts.h"
#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/host.h"
#include "fork_gate.h"
#include "pluginkit/cancellation.h"

#pragma GCC visibility push(default)

namespace {

using namespace nimbrel::embedded;

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

// Nothing is thrown into libpam. Never around a call that asks the user: such a call may be cancelled, or end the thread.
template <class Work>
int Guarded(pam_handle_t* handle, const Work& work) noexcept {
    const nimbrel::kit::CancellationShield shield;
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

// Told without a look at the directory's files: whatever becomes of those, log-ins of local accounts are not held up. An
// entry that needs more room is none of the directory's.
bool IsLocal(const char* user) {
    std::array<char, 4096> buffer{};
    struct passwd entry = {};
    struct passwd* found = nullptr;
    const int error = getpwnam_r(user, &entry, buffer.data(), buffer.size(), &found);
    return error == ERANGE || (error == 0 && found != nullptr && !IsAccountNumber(found->pw_uid));
}

// True if the host knows this user and this group, and no others, under the account's name.
bool NameServicesAgree(const Account& account) {
    std::array<char, 4096> buffer{};
    struct passwd user = {};
    struct passwd* foundUser = nullptr;
    if (getpwnam_r(account.name.c_str(), &user, buffer.data(), buffer.size(), &foundUser) != 0 ||
        foundUser == nullptr || foundUser->pw_uid != account.uid || foundUser->pw_gid != account.uid) {
        return false;
    }
    struct group group = {};
    struct group* foundGroup = nullptr;
    return getgrnam_r(account.name.c_str(), &group, buffer.data(), buffer.size(), &foundGroup) == 0 &&
           foundGroup != nullptr && foundGroup->gr_gid == account.uid;
}

// The user's account. A user who has none is not the module's business: `PAM_USER_UNKNOWN`.
int GetAccount(pam_handle_t* handle, const char* user, std::optional<Account>& account) {
    return Guarded(handle, [&] {
        if (IsLocal(user)) return PAM_USER_UNKNOWN;
        account = FindAccount(user, SourceOfFlags());
        return account && NameServicesAgree(*account) ? PAM_SUCCESS : PAM_USER_UNKNOWN;
    });
}

// Asks the application for the user if need be: outside every guard, since it may end the thread that asks.
int AskForAccount(pam_handle_t* handle, std::optional<Account>& account) {
    const char* user = nullptr;
    const int status = pam_get_user(handle, &user, nullptr);
    return status == PAM_SUCCESS ? GetAccount(handle, user, account) : status;
}

bool Has(int count, const char** words, std::string_view wanted) {
    for (int index = 0; index < count; ++index) {
        if (wanted == words[index]) return true;
    }
    return false;
}

// As `AskForAccount` for the password.
int GetPassword(pam_handle_t* handle, bool ask, const char** password) {
    const void* given = nullptr;
    const int status = pam_get_item(handle, PAM_AUTHTOK, &given);
    if (status != PAM_SUCCESS) return status;
    *password = static_cast<const char*>(given);
    if (*password != nullptr) return PAM_SUCCESS;
    return ask ? pam_get_authtok(handle, PAM_AUTHTOK, password, nullptr) : PAM_AUTH_ERR;
}

int Authenticate(const Account& account, const char* password) {
    if (LookedUpHost().TrustState() != kTrustStateHealthy) return PAM_AUTHINFO_UNAVAIL;
    const std::string domain = JoinedDomain();
    const ForkGate gate;
    LookedUpDirectory().Authenticate(domain, {account.name, password});
    return PAM_SUCCESS;
}

int CheckFlags(const std::optional<UserFlags>& flags) {
    if (!flags) return PAM_AUTHINFO_UNAVAIL;
    if (flags->disabled || flags->locked) return PAM_PERM_DENIED;
    if (flags->expired) return PAM_ACCT_EXPIRED;
    return flags->passwordExpired || flags->mustChangePassword ? PAM_AUTHTOK_EXPIRED : PAM_SUCCESS;
}

}  // namespace

extern "C" {

int pam_sm_authenticate(pam_handle_t* pamh, int, int argc, const char** argv) {
    std::optional<Account> account;
    if (const int status = AskForAccount(pamh, account); status != PAM_SUCCESS) return status;
    const char* password = nullptr;
    const int status = GetPassword(pamh, !Has(argc, argv, "use_first_pass"), &password);
    if (status != PAM_SUCCESS) return status;
    return Guarded(pamh, [&] { return Authenticate(*account, password); });
}

int pam_sm_setcred(pam_handle_t*, int, int, const char**) { return PAM_SUCCESS; }

int pam_sm_acct_mgmt(pam_handle_t* pamh, int, int, const char**) {
    std::optional<Account> account;
    const int status = AskForAccount(pamh, account);
    return status == PAM_SUCCESS ? CheckFlags(account->flags) : status;
}

// A session is never refused here, and those of local users are none of the module's business.
int pam_sm_open_session(pam_handle_t* pamh, int, int, const char**) {
    std::optional<Account> account;
    if (AskForAccount(pamh, account) != PAM_SUCCESS) return PAM_SUCCESS;
    return Guarded(pamh, [] {
        PublishAccounts();
        return PAM_SUCCESS;
    });
}

int pam_sm_close_session(pam_handle_t*, int, int, const char**) { return PAM_SUCCESS; }

// Passwords of the embedded directory are set by its administrator.
int pam_sm_chauthtok(pam_handle_t* pamh, int, int, const char**) {
    std::optional<Account> account;
    const int status = AskForAccount(pamh, account);
    return status == PAM_SUCCESS ? PAM_AUTHTOK_ERR : status;
}

}  // extern "C"

#pragma GCC visibility pop
