// Leaving: the account in the domain first, if a user says so, then this host's own traces.

#include <syslog.h>

#include <exception>
#include <functional>

#include "addirectory/host.h"
#include "computer_account.h"
#include "files.h"
#include "host_state.h"
#include "keytab.h"
#include "log_on.h"
#include "membership_lock.h"
#include "names.h"
#include "session.h"
#include "unfinished_join.h"

namespace nimbrel::ad {
namespace {

// What a leave takes away, and the keytab, as libkrb5 names it, by which the account is known.
struct Leaving {
    Membership membership;
    std::vector<std::string> preferredControllers;
    std::string keytab;
};

// The membership, or what a join has left that was cut short before there was one.
Leaving WhatToLeave(const Settings& settings) {
    const HostState state = HostState::Load(settings.membership);
    if (state.membership) {
        return {*state.membership, state.preferredControllers, "FILE:" + settings.keytab};
    }
    const UnfinishedJoin unfinished(settings);
    const auto left = unfinished.Find();
    if (!left) {
        throw AdError(kStatusNotJoined, "This host is not joined to a domain");
    }
    return {
        {left->account.domain, "", "", left->account.computer, ""}, state.preferredControllers, unfinished.Keytab()};
}

// Why the account that bears this host's name is not this host's; empty if it is. Another host of the name has made an
// account of its own, or has taken this one over and set another secret.
std::string WhyOfAnother(const Settings& settings, const Leaving& leaving, const Controller& controller,
                         const LdapEntry& account, const Deadline& deadline) {
    const Membership& membership = leaving.membership;
    if (!membership.accountSid.empty() && AccountSid(account) != membership.accountSid) {
        return "it is not the one with which this host has joined";
    }
    return IsAccountOfKeytab(settings, controller, membership.computer, leaving.keytab, deadline)
               ? ""
               : "it does not take the key of this host's keytab";
}

void RemoveAccount(const Settings& settings, const Leaving& leaving, const UserCredentials& credentials,
                   const Deadline& deadline) {
    Session session(settings, leaving.membership.domain, leaving.preferredControllers,
                    UserLogOn(settings, credentials, deadline), deadline, Patience::Change);
    ComputerAccounts accounts(session.Ldap(), session.At());
    const auto account = accounts.Find(leaving.membership.computer);
    if (!account) {
        return;
    }
    const std::string reason = WhyOfAnother(settings, leaving, session.At(), *account, deadline);
    if (reason.empty()) {
        accounts.DeleteOrDisable(*account);
    } else {
        syslog(LOG_WARNING, "This host leaves '%s' and its machine account '%s' stays there: %s",
               leaving.membership.domain.c_str(), leaving.membership.computer.c_str(), reason.c_str());
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
    attempt([&] { RemoveLeftover(settings.keytab); });
    if (failure) {
        std::rethrow_exception(failure);
    }
    UnfinishedJoin(settings).Forget();
    HostState().Save(settings.membership);
}

}  // namespace

void Host::Part(const std::optional<UserCredentials>& credentials) const {
    WhatToLeave(_settings);
    const Deadline deadline = Deadline::After(_settings.leaveBudget);
    const MembershipLock lock(_settings, deadline);
    const Leaving leaving = WhatToLeave(_settings);
    if (credentials) {
        RemoveAccount(_settings, leaving, *credentials, deadline);
    }
    ForgetLocally(_settings, _logIns, leaving.membership);
}

}  // namespace nimbrel::ad
