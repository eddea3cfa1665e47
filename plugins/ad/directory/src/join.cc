// Joining: the account in the domain, the keytab, the log-ins, the membership. One transaction.

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "addirectory/host.h"
#include "computer_account.h"
#include "files.h"
#include "gate.h"
#include "host_state.h"
#include "keytab.h"
#include "log_on.h"
#include "membership_lock.h"
#include "names.h"
#include "session.h"
#include "trusts.h"
#include "undo_list.h"
#include "unfinished_join.h"

namespace nimbrel::ad {
namespace {

void RequireNotJoined(const HostState& state) {
    if (state.membership) {
        throw AdError(kStatusAlreadyJoined,
                      "This host is already joined to the domain '" + state.membership->domain + "'");
    }
}

// Which secret of an account that was made for this host is in force, as far as the controller has told.
enum class SecretState { OneTime, Unknown, Fresh };

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
          _unfinished(settings),
          _fresh(kit::Secret::Random()) {
        RequireNotJoined(_state);
        TakeAwayUnfinished();
    }

    void JoinAsUser(const std::string& unit, const UserCredentials& credentials) {
        _logOn = UserLogOn(_settings, credentials, _deadline);
        ComputerAccounts accounts = LogOn();
        _survey = accounts.Look(_computer, unit);
        Begin();
        _undo.Add("the machine account", [this] { TakeBackAccount(); });
        accounts.Prepare(_survey, _computer, _fresh, _account);
        Finish();
    }

    void JoinAsMachine(const MachineAccountJoin& join) {
        _oneTime = kit::Secret(join.oneTimeSecret);
        _logOn = OneTimeLogOn();
        ComputerAccounts accounts = LogOn();
        _survey = accounts.Look(_computer, "");
        if (!_survey.existing) {
            throw AdError(kStatusLogonFailure, "The machine account is unknown");
        }
        RequireSameDomain(_survey.domain, join);
        _account.distinguishedName = _survey.existing->distinguishedName;
        if (_goesOn) {
            _keys = KeysInKeytab(_unfinished.Keytab(), _computer, _domain);
        } else {
            _leftIsUseless = _mayGoOn;  // as the one-time secret is good
            Begin();
            ChangeSecret(accounts);
        }
        accounts.CompleteOwn(_computer, *_survey.existing);
        accounts.Complete(_account);
        Finish();
    }

 private:
    // What a join that was cut short has left on this host; its record stays until this one makes its own or succeeds.
    void TakeAwayUnfinished() {
        _left = _unfinished.Find();
        if (!_left) {
            return;
        }
        _mayGoOn = _left->account.computer == _computer && _left->account.domain == _domain;
        _logInsEnabled = true;
        _undo.Add("the settings of domain log-ins", [this] { DisableLogIns(); });
        RemoveKeysFromKeytab(_settings.keytab, _left->keytab.View());
    }

    // From now on the domain is changed.
    void Begin() {
        _keys = KeysOfSecret(_computer, _domain, _fresh);
        _undo.Add("the record of the join", [this] { TakeBackRecord(); });
        _unfinished.Record({_computer, _domain}, _keys);
    }

    // Keys stay where the domain may still hold them: this join's, else those of one that was cut short.
    void TakeBackRecord() {
        const bool isInForce = _secretState != SecretState::OneTime;
        const bool isUseless = _leftIsUseless || (_mayGoOn && _account.hasFreshSecret);
        if (!isInForce && _left && !isUseless) {
            _unfinished.Restore(*_left);
        } else if (!isInForce) {
            _unfinished.Forget();
        }
    }

    // A one-time secret that is used up may have been used by a join of this host that was cut short.
    Session::LogOn OneTimeLogOn() {
        return [this](Tickets& tickets, const Controller& controller) {
            try {
                SecretLogOn(_oneTime)(tickets, controller);
                _goesOn = false;
            } catch (const KerberosError& error) {
                const bool isRefused =
                    error.Code() == KRB5KDC_ERR_PREAUTH_FAILED || error.Code() == KRB5_PREAUTH_FAILED;
                if (!_mayGoOn || !isRefused || !LogOnAsRecorded(tickets, controller)) {
                    throw;
                }
                _goesOn = true;
            }
        };
    }

    // False where the domain has other keys by now.
    bool LogOnAsRecorded(Tickets& tickets, const Controller& controller) const {
        try {
            MachineLogOn(_computer, _unfinished.Keytab())(tickets, controller);
            return true;
        } catch (const StaleRefusalError&) {
            return false;
        }
    }

    // The keytab's own problems show before the domain is touched.
    ComputerAccounts LogOn() {
        _keytab = std::make_unique<KeytabChange>(_settings.keytab);
        _session = std::make_unique<Session>(_settings, _domain, _state.preferredControllers, _logOn, _deadline,
                                             Patience::Change);
        return {_session->Ldap(), _session->At()};
    }

    Session::LogOn SecretLogOn(const kit::Secret& secret) const {
        return [this, &secret](Tickets& tickets, const Controller& controller) {
            tickets.LogOnWithPassword({_computer + "$@" + UpperCase(controller.facts.domain), false}, secret.Text());
        };
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
    void Finish() {
        const auto trusts = ReadTrusts(_session->Ldap(), _session->At());
        _keytab->SetKeys({_computer, _domain, _account.keyVersion}, std::move(_keys));
        // From the controller that has just made the account.
        TryLogOn(_settings, _session->At(), MachineLogOn(_computer, _keytab->TrialName()), _deadline);
        // First the way back: a file may be replaced and the call fail all the same, when its folder cannot be synced.
        _undo.Add("keys in the keytab", [this] { _keytab->Revert(); });
        _keytab->Commit();
        EnableLogIns(_survey.domain, trusts);
        _undo.Add("the membership", [this] {
            _state.membership.reset();
            _state.Save(_settings.membership);
        });
        _state.membership = Membership{_domain,   _survey.domain.netbiosName, _survey.domain.sid,
                                       _computer, _account.distinguishedName, _account.sid};
        _state.Save(_settings.membership);
        _unfinished.Forget();
        _undo.Keep();
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
            if (trust.LetsUsersIn() && trust.isActiveDirectory) {
                joined.trustedForests.push_back(trust.dnsName);
            }
        }
        // Beforehand, as it may take memory.
        _undo.Add("the settings of domain log-ins", [this] { DisableLogIns(); });
        _logIns.Enable(joined);
        _logInsEnabled = true;
    }

    void DisableLogIns() {
        if (_logInsEnabled) {
            _logIns.DisableDomain();
            _logInsEnabled = false;
        }
    }

    // With a way back once the change may have been made: the one-time secret is good again then, so that the join can
    // be repeated with it.
    void ChangeSecret(ComputerAccounts& accounts) {
        _undo.Add("the changed secret of the machine account", [this] { TakeBackSecret(); });
        _secretState = SecretState::Unknown;
        try {
            accounts.ChangeSecret(*_survey.existing, _oneTime, _fresh);
        } catch (const LdapError& error) {
            if (IsAnswered(error)) {
                _secretState = SecretState::OneTime;
            }
            throw;
        }
        _secretState = SecretState::Fresh;
    }

    void TakeBackSecret() {
        if (_secretState == SecretState::OneTime) {
            return;
        }
        _logOn = SecretLogOn(_fresh);
        try {
            TakeBack([this](ComputerAccounts& domain) {
                if (_secretState == SecretState::Fresh || IsGoodSecret()) {
                    domain.ChangeSecret(*_survey.existing, _fresh, _oneTime);
                }
            });
            _secretState = SecretState::OneTime;
        } catch (const KerberosError& error) {
            const bool wasNeverChanged = _secretState == SecretState::Unknown && error.Status() == kStatusLogonFailure;
            if (!wasNeverChanged) {
                throw;
            }
            _secretState = SecretState::OneTime;
        }
    }

    // Whose creation got no answer is this join's if its secret is: nobody else knows that.
    void TakeBackAccount() {
        if (_account.distinguishedName.empty()) {
            return;
        }
        TakeBack([this](ComputerAccounts& domain) {
            if (!_account.mayBeOthers || IsGoodSecret()) {
                domain.Undo(_account);
            }
        });
    }

    bool IsGoodSecret() const {
        try {
            TryLogOn(_settings, _session->At(), SecretLogOn(_fresh), Deadline::After(_settings.controllerBudget));
            return true;
        } catch (const KerberosError& error) {
            if (error.Status() != kStatusLogonFailure) {
                throw;
            }
            return false;
        }
    }

    // On the same connection while it answers, else on new ones to the same controller, which alone is sure to know of
    // the change, for as long as it may take.
    void TakeBack(const std::function<void(ComputerAccounts& domain)>& work) {
        const Controller controller = _session->At();
        const Deadline deadline = Deadline::After(_settings.rollBackBudget);
        _session->SetDeadline(deadline.OrAfter(_settings.controllerBudget));
        while (!TakeBackOn(*_session, work, deadline)) {
            Pause();
            try {
                _session = std::make_unique<Session>(_settings, controller, _domain, _logOn, deadline);
            } catch (const AdError& error) {
                RequireAnotherTry(error, deadline);
            }
        }
    }

    static bool TakeBackOn(Session& session, const std::function<void(ComputerAccounts& domain)>& work,
                           const Deadline& deadline) {
        try {
            ComputerAccounts domain(session.Ldap(), session.At());
            work(domain);
            return true;
        } catch (const AdError& error) {
            RequireAnotherTry(error, deadline);
            return false;
        }
    }

    // Called while the error is handled: passes it on, as what it is, unless the controller may answer yet.
    static void RequireAnotherTry(const AdError& error, const Deadline& deadline) {
        if (error.Status() != kStatusNoSuchDomain || deadline.HasPassed()) {
            throw;
        }
    }

    static void Pause() {
        const OutsideGate outside;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }

    const Settings& _settings;
    LogInSoftware& _logIns;
    const std::string _computer;
    const std::string _domain;
    const Deadline _deadline;
    const MembershipLock _lock;
    HostState _state;
    const UnfinishedJoin _unfinished;
    std::optional<UnfinishedJoin::Left> _left;  // of a join that was cut short
    const kit::Secret _fresh;
    kit::Secret _oneTime;
    MachineKeys _keys;
    Session::LogOn _logOn;
    std::unique_ptr<KeytabChange> _keytab;
    std::unique_ptr<Session> _session;
    ComputerAccounts::Survey _survey;
    ComputerAccount _account;
    SecretState _secretState = SecretState::OneTime;
    bool _mayGoOn = false;  // this host's own join with this account was cut short
    bool _leftIsUseless = false;
    bool _goesOn = false;  // with the keys of that one
    bool _logInsEnabled = false;
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

void Host::JoinWithMachineAccount(const MachineAccountJoin& join) const {
    RequireNotJoined(HostState::Load(_settings.membership));
    if (!join.hostName.empty()) {
        ComputerName(join.hostName);
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

}  // namespace nimbrel::ad
