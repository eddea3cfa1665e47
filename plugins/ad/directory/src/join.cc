// Joining: the account in the domain, the keytab, the log-ins, the membership. One transaction.

#include <syslog.h>

#include <utility>

#include "addirectory/host.h"
#include "computer_account.h"
#include "files.h"
#include "host_state.h"
#include "keytab.h"
#include "log_on.h"
#include "membership_lock.h"
#include "names.h"
#include "session.h"
#include "trusts.h"
#include "undo_list.h"

namespace nimbrel::ad::inline directory {
namespace {

void RequireNotJoined(const HostState& state) {
    if (state.membership) {
        throw AdError(kStatusAlreadyJoined,
                      "This host is already joined to the domain '" + state.membership->domain + "'");
    }
}

// One join under way.
class JoinTransaction {
 public:
    JoinTransaction(const Settings& settings, LogInSoftware& logIns, std::string computer, std::string domain)
        : _settings(settings),
          _logIns(logIns),
          _computer(std::move(computer)),
          _domain(std::move(domain)),
          _deadline(Deadline::After(settings.joinBudget)),
          _lock(settings, _deadline),
          _state(HostState::Load(settings.membership)),
          _fresh(Secret::Random()) {
        RequireNotJoined(_state);
    }

    void JoinAsUser(const std::string& unit, const UserCredentials& credentials) {
        const auto logOn = UserLogOn(_settings, credentials, _deadline);
        PrepareKeytab();
        Session session(_settings, _domain, _state.preferredControllers, logOn, _deadline);
        ComputerAccounts accounts(session.Ldap(), session.At());
        const auto survey = accounts.Look(_computer, unit);
        _undo.Add("the machine account", [&] { UndoAccount(session, logOn); });
        accounts.Prepare(survey, _computer, _fresh, _account);
        Finish(session, survey.domain);
    }

    void JoinAsMachine(const MachineAccountJoin& join) {
        const Secret oneTime(join.oneTimeSecret);
        const auto logOn = [&](Tickets& tickets, const Controller& controller) {
            LogOnWithOneTimeSecret(tickets, controller, oneTime);
        };
        PrepareKeytab();
        Session session(_settings, _domain, _state.preferredControllers, logOn, _deadline);
        ComputerAccounts accounts(session.Ldap(), session.At());
        const auto survey = accounts.Look(_computer, "");
        if (!survey.existing) {
            throw AdError(kStatusLogonFailure, "The machine account is unknown");
        }
        RequireSameDomain(survey.domain, join);
        _account.distinguishedName = survey.existing->distinguishedName;
        _undo.Add("the changed secret of the machine account", [&] { UndoSecret(session, *survey.existing, oneTime); });
        _account.secretIsSet = true;
        accounts.ChangeSecret(*survey.existing, oneTime, _fresh);
        accounts.CompleteOwn(_computer, *survey.existing);
        _account.keyVersion = accounts.KeyVersion(_account.distinguishedName);
        Finish(session, survey.domain);
    }

 private:
    // The keytab's own problems show before the domain is touched.
    void PrepareKeytab() { _keytab = std::make_unique<KeytabChange>(_settings.keytab); }

    void LogOnWithOneTimeSecret(Tickets& tickets, const Controller& controller, const Secret& oneTime) const {
        tickets.LogOnWithPassword({_computer + "$@" + UpperCase(controller.facts.domain), false}, oneTime.Text());
    }

    static void RequireSameDomain(const DomainFacts& domain, const MachineAccountJoin& join) {
        const bool sameSid = join.sid.empty() || SameName(join.sid, domain.sid);
        const bool sameName = join.netbiosName.empty() || SameName(join.netbiosName, domain.netbiosName);
        if (!sameSid || !sameName) {
            throw AdError(kStatusDomainInconsistent,
                          "The SID or the NetBIOS name is not that of the domain '" + domain.dnsName + "'");
        }
    }

    // The account stands; now this host.
    void Finish(Session& session, const DomainFacts& domain) {
        const auto trusts = ReadTrusts(session.Ldap(), session.At());
        _keytab->SetKeys({_computer, _domain, _account.keyVersion}, _fresh);
        TryKeytab(session.At());
        _keytab->Commit();
        _undo.Add("keys in the keytab", [this] { _keytab->Revert(); });
        EnableLogIns(domain, trusts);
        _state.membership = Membership{_domain, domain.netbiosName, domain.sid, _computer, _account.distinguishedName};
        _state.Save(_settings.membership);
        _undo.Keep();
    }

    // A ticket by the new keys, from the controller that has just made the account.
    void TryKeytab(const Controller& controller) const {
        KdcCarrier carrier(_settings, UpperCase(_domain), controller.endpoint, _deadline);
        Tickets tickets(UpperCase(_domain), [&](const std::string& realm, std::string_view request) {
            return carrier.Exchange(realm, request);
        });
        MachineLogOn(_computer, _keytab->TrialName())(tickets, controller);
    }

    void EnableLogIns(const DomainFacts& domain, const std::vector<Trust>& trusts) {
        JoinedDomain joined = {_domain,
                               UpperCase(_domain),
                               domain.netbiosName,
                               HostName(_computer, _domain),
                               _computer + "$",
                               _settings.keytab,
                               {}};
        for (const auto& trust : trusts) {
            if (trust.LetsUsersIn() && !trust.netbiosName.empty()) {
                joined.trustedForests.push_back(trust.dnsName);
            }
        }
        _logIns.Enable(joined);
        _undo.Add("the settings of domain log-ins", [this] { _logIns.Disable(); });
    }

    // On the same connection while it answers, else on a new one.
    void UndoAccount(Session& session, const Session::LogOn& logOn) const {
        const Deadline deadline = Deadline::After(_settings.rollBackBudget);
        try {
            session.SetDeadline(deadline.OrAfter(_settings.controllerBudget));
            ComputerAccounts(session.Ldap(), session.At()).Undo(_account);
        } catch (const AdError& error) {
            if (error.Status() != kStatusNoSuchDomain) {
                throw;
            }
            Session again(_settings, _domain, {session.At().name}, logOn, deadline);
            ComputerAccounts(again.Ldap(), again.At()).Undo(_account);
        }
    }

    // The one-time secret is good again, so that the join can be repeated with it.
    void UndoSecret(Session& session, const LdapEntry& account, const Secret& oneTime) const {
        const Deadline deadline = Deadline::After(_settings.rollBackBudget);
        try {
            session.SetDeadline(deadline.OrAfter(_settings.controllerBudget));
            ComputerAccounts(session.Ldap(), session.At()).ChangeSecret(account, _fresh, oneTime);
        } catch (const AdError& error) {
            if (error.Status() != kStatusNoSuchDomain) {
                throw;
            }
            const auto logOn = [&](Tickets& tickets, const Controller& controller) {
                LogOnWithOneTimeSecret(tickets, controller, _fresh);
            };
            Session again(_settings, _domain, {session.At().name}, logOn, deadline);
            ComputerAccounts(again.Ldap(), again.At()).ChangeSecret(account, _fresh, oneTime);
        }
    }

    const Settings& _settings;
    LogInSoftware& _logIns;
    const std::string _computer;
    const std::string _domain;
    const Deadline _deadline;
    const MembershipLock _lock;
    HostState _state;
    const Secret _fresh;
    std::unique_ptr<KeytabChange> _keytab;
    ComputerAccount _account;
    UndoList _undo;  // last, so that it runs while everything else is there
};

}  // namespace

void Host::Join(const std::string& domain, const std::string& hostName, const std::string& unit,
                const UserCredentials& credentials) const {
    RequireNotJoined(HostState::Load(_settings.membership));
    const std::string computer = ComputerName(hostName);
    const std::string dnsName = DnsName(domain);
    if (!unit.empty()) {
        UnitDN(unit, dnsName);
    }
    JoinTransaction(_settings, _logIns, computer, dnsName).JoinAsUser(unit, credentials);
}

void Host::JoinWithMachineAccount(const std::string& hostName, const MachineAccountJoin& join) const {
    RequireNotJoined(HostState::Load(_settings.membership));
    if (!hostName.empty()) {
        ComputerName(hostName);
    }
    const std::string dnsName = DnsName(join.dnsName);
    std::string computer;
    try {
        computer = ComputerName(join.accountName);
    } catch (const AdError&) {
        throw AdError(kStatusLogonFailure,
                      "The machine account is unknown");  // to a domain a malformed one is just that
    }
    JoinTransaction(_settings, _logIns, computer, dnsName).JoinAsMachine(join);
}

}  // namespace nimbrel::ad::inline directory
