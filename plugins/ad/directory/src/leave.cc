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

// What a leave takes away, and the keytab by which the account is known.
struct Leaving {
    Membership membership;
    std::vector<std::string> preferredControllers;
    std::string keytab;
    bool isJoined = false;
};

[[noreturn]] void FailNotJoined() { throw AdError(kStatusNotJoined, "This host is not joined to a domain"); }

// The membership, or what a join has left that was cut short before there was one. Throws `DamagedRecordError` where
// nobody can tell what that was.
Leaving WhatToLeave(const Settings& settings) {
    const HostState state = HostState::Load(settings.membership);
    if (state.membership) {
        return {*state.membership, state.preferredControllers, settings.keytab, true};
    }
    const UnfinishedJoin unfinished(settings);
    const auto left = unfinished.Find();
    if (!left) {
        FailNotJoined();
    }
    const Membership begun = {left->account.domain, "", "", left->account.computer, ""};
    return {begun, state.preferredControllers, unfinished.Path()};
}

// A record that nobody can read is to be forgotten all the same, or no join would be possible any more.
Leaving WhatToForget(const Settings& settings) {
    try {
        return WhatToLeave(settings);
    } catch (const DamagedRecordError&) {
        return {};
    }
}

bool IsRefusalOfKey(const AdError& error) {
    // The latter: it has no key of the kind that a join makes.
    return error.Status() == kStatusLogonFailure || error.Status() == kStatusAccountRestriction;
}

bool IsWordOnAccount(const AdError& error) {
    return error.Status() == kStatusAccountDisabled || error.Status() == kStatusAccountExpired ||
           error.Status() == kStatusPasswordMustChange || error.Status() == kStatusNoTrustAccount;
}

// Whether the account takes this host's key. The controller that has told of the account is asked first. One that refuses
// the key may not have heard of it yet, and another one is asked; or that one has not heard yet of the other host that has
// taken the account over, which the account's key version tells. An account that is disabled or the like takes no key at
// all: there the version alone tells, where the SID shows that it is still the same account.
bool IsKeyTaken(const Settings& settings, const Leaving& leaving, const Controller& teller, bool isOfThisVersion,
                const Deadline& deadline) {
    const auto logOn = MachineLogOn(leaving.membership.computer, "FILE:" + leaving.keytab);
    bool isRefused = false;
    const auto tryKey = [&](const Controller& controller) {
        try {
            TryLogOn(settings, controller, logOn, deadline);
        } catch (const AdError& error) {
            isRefused = isRefused || IsRefusalOfKey(error);
            throw;
        }
    };
    try {
        try {
            tryKey(teller);
            return true;
        } catch (const AdError& error) {
            if (IsWordOnAccount(error)) {
                throw;
            }
            AvoidController(settings, teller.name);
        }
        AtSomeController(settings, leaving.membership.domain, leaving.preferredControllers, deadline, Patience::Query,
                         [&](const LocatedController& located) { tryKey(located.controller); });
        return isOfThisVersion;
    } catch (const AdError& error) {
        if (!isRefused && !IsWordOnAccount(error)) {
            throw;
        }
        return !isRefused && isOfThisVersion && !leaving.membership.accountSid.empty();
    }
}

// Why the account that bears this host's name is not this host's; empty if it is. Another host of the name has made an
// account of its own, or has taken this one over and set another secret. A host that has lost its key cannot tell the
// latter, but knows the account with which it has joined. `teller` is the controller that has told of the account.
std::string WhyOfAnother(const Settings& settings, const Leaving& leaving, const LdapEntry& account,
                         const Controller& teller, const Deadline& deadline) {
    const Membership& membership = leaving.membership;
    if (!membership.accountSid.empty() && AccountSid(account) != membership.accountSid) {
        return "it is not the one with which this host has joined";
    }
    const auto version = KeyVersionIn(leaving.keytab, membership.computer, membership.domain);
    if (!version) {
        return membership.accountSid.empty() ? "this host has no key to show that the account is its own" : "";
    }
    const std::int64_t told = account.Number("msds-keyversionnumber");
    const bool isOfThisVersion = told != 0 && told <= *version;
    const bool isTaken = IsKeyTaken(settings, leaving, teller, isOfThisVersion, deadline);
    return isTaken ? "" : "nothing shows that its key is the one of this host's keytab";
}

// False where the account that bears this host's name stays, as it is another host's, or may not be deleted.
bool RemoveAccount(const Settings& settings, const Leaving& leaving, const UserCredentials& credentials,
                   const Deadline& deadline) {
    Session session(settings, leaving.membership.domain, leaving.preferredControllers,
                    UserLogOn(settings, credentials, deadline), deadline, Patience::Change);
    ComputerAccounts accounts(session.Ldap(), session.At());
    const auto account = accounts.Find(leaving.membership.computer);
    if (!account) {
        return true;
    }
    std::string reason = WhyOfAnother(settings, leaving, *account, session.At(), deadline);
    if (reason.empty()) {
        if (accounts.DeleteOrDisable(*account)) {
            return true;
        }
        reason = "the user may not delete it, so that it is disabled";
    }
    syslog(LOG_WARNING, "This host leaves '%s' and its machine account '%s' stays there: %s",
           leaving.membership.domain.c_str(), leaving.membership.computer.c_str(), reason.c_str());
    return false;
}

// A host without a key is believed by the SID of its account. One that has thrown its key away itself is not: another host
// may have taken the account over since.
void NoteThatKeyGoes(const Settings& settings) {
    HostState state = HostState::Load(settings.membership);
    if (state.membership && !state.membership->accountSid.empty()) {
        state.membership->accountSid.clear();
        state.Save(settings.membership);
    }
}

// Where the account stays, nothing goes before it is noted that the key does. Then every step is tried, so that as little
// as possible stays behind; the first failure is reported, and the membership stays recorded until all others are done, so
// that the leave can be repeated.
void ForgetLocally(const Settings& settings, LogInSoftware& logIns, const Membership& membership, bool accountStays) {
    std::exception_ptr failure;
    const auto attempt = [&](const std::function<void()>& step) {
        try {
            step();
        } catch (...) {
            failure = failure ? failure : std::current_exception();
        }
    };
    if (accountStays) {
        NoteThatKeyGoes(settings);
    }
    attempt([&] { logIns.Disable(); });
    if (!membership.domain.empty()) {
        attempt([&] { RemoveRealmFromKeytab(settings.keytab, UpperCase(membership.domain)); });
    }
    attempt([&] { RemoveLeftover(settings.keytab); });
    if (failure) {
        std::rethrow_exception(failure);
    }
    UnfinishedJoin(settings).Forget();
    HostState().Save(settings.membership);
}

}  // namespace

void Host::Part(const std::optional<UserCredentials>& credentials) const {
    const auto whatToLeave = [&] { return credentials ? WhatToLeave(_settings) : WhatToForget(_settings); };
    const bool wasJoined = whatToLeave().isJoined;
    const Deadline deadline = Deadline::After(_settings.leaveBudget);
    const MembershipLock lock(_settings, deadline);
    const Leaving leaving = whatToLeave();
    // What looked like a join that was cut short was one under way, and whoever wanted to leave did not mean it.
    if (leaving.isJoined && !wasJoined) {
        FailNotJoined();
    }
    const bool accountGoes = credentials && RemoveAccount(_settings, leaving, *credentials, deadline);
    ForgetLocally(_settings, _logIns, leaving.membership, !accountGoes);
    if (leaving.membership.domain.empty()) {
        syslog(LOG_WARNING,
               "The record of an unfinished join was damaged, and is removed: its keys may be in '%s' still",
               _settings.keytab.c_str());
    }
}

}  // namespace nimbrel::ad
