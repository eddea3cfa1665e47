// Leaving: the account in the domain first, if a user says so, then this host's own traces.

#include <syslog.h>

#include <exception>
#include <functional>

#include "addirectory/host.h"
#include "computer_account.h"
#include "host_state.h"
#include "keytab.h"
#include "log_on.h"
#include "membership_lock.h"
#include "names.h"
#include "session.h"

namespace nimbrel::ad {
namespace {

void RequireJoined(const HostState& state) {
    if (!state.membership) {
        throw AdError(kStatusNotJoined, "This host is not joined to a domain");
    }
}

// Why the account that bears this host's name is not this host's; empty if it is. Another host of the name has made an
// account of its own, or has taken this one over and set another secret.
std::string WhyOfAnother(const Settings& settings, const Membership& membership, const Controller& controller,
                         const LdapEntry& account, const Deadline& deadline) {
    if (!membership.accountSid.empty() && AccountSid(account) != membership.accountSid) {
        return "it is not the one with which this host has joined";
    }
    return IsAccountOfKeytab(settings, controller, membership.computer, deadline)
               ? ""
               : "it does not take the key of this host's keytab";
}

void RemoveAccount(const Settings& settings, const HostState& state, const UserCredentials& credentials,
                   const Deadline& deadline) {
    Session session(settings, state.membership->domain, state.preferredControllers,
                    UserLogOn(settings, credentials, deadline), deadline, Patience::Change);
    ComputerAccounts accounts(session.Ldap(), session.At());
    const auto account = accounts.Find(state.membership->computer);
    if (!account) {
        return;
    }
    const std::string reason = WhyOfAnother(settings, *state.membership, session.At(), *account, deadline);
    if (reason.empty()) {
        accounts.DeleteOrDisable(*account);
    } else {
        syslog(LOG_WARNING, "This host leaves '%s' and its machine account '%s' stays there: %s",
               state.membership->domain.c_str(), state.membership->computer.c_str(), reason.c_str());
    }
}

// Every step is tried, so that as little as possible stays behind; the first failure is reported, and the membership
// stays recorded until all others are done, so that the leave can be repeated.
void ForgetLocally(const Settings& settings, LogInSoftware& logIns, const Membership& membership) {
    std::exception_ptr failure;
    const auto attempt = [&](const std::function<void()>& step) {
        try {
            step();
        } catch (...) {
            failure = failure ? failure : std::current_exception();
        }
    };
    attempt([&] { logIns.Disable(); });
    attempt([&] { RemoveRealmFromKeytab(settings.keytab, UpperCase(membership.domain)); });
    if (failure) {
        std::rethrow_exception(failure);
    }
    HostState().Save(settings.membership);
}

}  // namespace

void Host::Part(const std::optional<UserCredentials>& credentials) const {
    RequireJoined(HostState::Load(_settings.membership));
    const Deadline deadline = Deadline::After(_settings.leaveBudget);
    const MembershipLock lock(_settings, deadline);
    const HostState state = HostState::Load(_settings.membership);
    RequireJoined(state);
    if (credentials) {
        RemoveAccount(_settings, state, *credentials, deadline);
    }
    ForgetLocally(_settings, _logIns, *state.membership);
}

}  // namespace nimbrel::ad
