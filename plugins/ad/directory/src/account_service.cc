#include "addirectory/account_service.h"

#include <ctime>
#include <type_traits>

#include "computer_account.h"
#include "controller_locator.h"
#include "gate.h"
#include "kerberos.h"
#include "log_on.h"
#include "names.h"
#include "session.h"

namespace nimbrel::ad {
namespace {

constexpr char kMarkAttribute[] = "adminDescription";
constexpr std::size_t kMarkDigits = 32;
// From 1601 to 1970, in the domain's units of 100 nanoseconds.
constexpr std::int64_t kEpochDifference = 116'444'736'000'000'000;

void CheckMark(const std::string& mark) {
    const bool good = mark.size() == kMarkDigits && mark.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (!good) {
        throw AdError(kStatusInvalidParameter, "A mark has 32 lower-case hexadecimal digits");
    }
}

std::string MarkText(const std::string& mark) { return "nimauth:" + mark; }
std::string MarkText(const std::string& mark, std::int64_t keyVersion) {
    return MarkText(mark) + ":" + std::to_string(keyVersion);
}

// True if the secret was set when the account was made and not since: for an account whose maker was interrupted before
// it had noted the key version.
bool SecretIsFirst(const LdapEntry& account) {
    std::tm time = {};
    if (!strptime(account.Text("whencreated").c_str(), "%Y%m%d%H%M%S", &time)) {
        return false;
    }
    const auto created = std::int64_t{timegm(&time)};
    const std::int64_t set = (account.Number("pwdlastset") - kEpochDifference) / 10'000'000;
    return account.Number("pwdlastset") != 0 && set - created <= 1;
}

bool IsUnusedUnderMark(const LdapEntry& account, const std::string& mark) {
    const std::string text = account.Text(LowerCase(kMarkAttribute));
    if (text == MarkText(mark)) {
        return SecretIsFirst(account);
    }
    return text == MarkText(mark) + ":" + account.Text("msds-keyversionnumber");
}

bool HasNeverLoggedOn(const LdapEntry& account) {
    return account.Number("lastlogon") == 0 && account.Number("lastlogontimestamp") == 0 &&
           account.Number("logoncount") == 0 && account.Text(LowerCase(kMarkAttribute)).empty();
}

// What follows a change does not fail with a refusal's own status: by that the caller would take it that nothing was
// changed.
template <class Step>
void AfterChange(const std::string& computer, const Step& step) {
    try {
        step();
    } catch (const AdError& error) {
        throw AdError(kStatusInternalError, "The machine account '" + computer +
                                                "' was changed, but its key version cannot be noted: " + error.what());
    }
}

// One piece of the service's work: its session and what it does to accounts on it.
class Work {
 public:
    Work(const Settings& settings, const ServiceAccount& account)
        : _settings(settings),
          _deadline(Deadline::After(settings.joinBudget)),
          _session(Open(settings, account, _deadline)),
          _accounts(_session.Ldap(), _session.At()) {}

    ComputerAccounts::Survey Look(const std::string& computer, const std::string& unit) {
        return Asked([&] { return _accounts.Look(computer, unit); });
    }

    // An enabled host's account, with what tells whether somebody uses it.
    LdapEntry Require(const std::string& computer) {
        return Asked([&] { return Find(computer); });
    }

    // The same of one that was made a while ago. A controller that fails is not avoided: another one need not know of the
    // account yet, and by its word the account would be made once more.
    LdapEntry RequireAgain(const std::string& computer) {
        try {
            return Find(computer);
        } catch (const AdError& error) {
            throw UnchangedError(error.Status(), error.what());
        }
    }

    void Create(const ComputerAccounts::Survey& survey, const std::string& computer, const std::string& mark,
                const kit::Secret& secret) {
        ComputerAccount account;
        account.note = MarkText(mark);
        Changed([&] { _accounts.Create(survey, computer, secret, account); });
        AfterChange(computer, [&] {
            _accounts.Complete(account);
            NoteKeyVersion(account.distinguishedName, mark, account.keyVersion);
        });
    }

    // The secret counts the key version up, and the mark changes with it in one: wherever this is interrupted, the
    // account carries a mark and the version that belongs to it, the old ones or the new ones.
    HandedOutAccount SetSecret(const LdapEntry& account, const std::string& computer, const std::string& mark) {
        kit::Secret secret = kit::Secret::Random();
        const kit::Secret password = PasswordValue(secret.View());
        const std::int64_t next = account.Number("msds-keyversionnumber") + 1;
        const std::string text = MarkText(mark, next);
        Changed([&] {
            _session.Ldap().Modify(account.distinguishedName,
                                   {{LdapChangeKind::Replace, {kMarkAttribute, {text}}},
                                    {LdapChangeKind::Replace, {"unicodePwd", {password.View()}}}});
        });
        AfterChange(computer, [&] {
            const std::int64_t keyVersion = _accounts.KeyVersion(account.distinguishedName);
            if (keyVersion != next) {
                // Another controller, or somebody else meanwhile, has set a secret that had not been seen here.
                NoteKeyVersion(account.distinguishedName, mark, keyVersion);
            }
        });
        return {computer + "$", std::move(secret)};
    }

 private:
    static Session Open(const Settings& settings, const ServiceAccount& account, const Deadline& deadline) {
        try {
            return {settings, DnsName(account.domain), {}, LogOn(account), deadline, Patience::Change};
        } catch (const AdError& error) {
            if (error.Status() == kStatusNoSuchDomain) {
                throw UnreachableError(error.what());
            }
            throw UnchangedError(error.Status(), error.what());
        }
    }

    static Session::LogOn LogOn(const ServiceAccount& account) {
        return [&account](Tickets& tickets, const Controller& controller) {
            tickets.LogOnWithKeytab({account.name + "@" + UpperCase(controller.facts.domain), false},
                                    "FILE:" + account.keytab);
        };
    }

    // A question: it changes nothing, whatever becomes of it.
    template <class Question>
    std::invoke_result_t<Question> Asked(const Question& question) {
        try {
            return question();
        } catch (const AdError& error) {
            FailUnchanged(error);
        }
    }

    // A change: one that is refused has changed nothing, and one that is not answered may have been made.
    template <class Change>
    void Changed(const Change& change) {
        try {
            change();
        } catch (const LdapError& error) {
            if (!IsAnswered(error)) {
                throw;
            }
            FailUnchanged(error);
        }
    }

    // A controller that takes log-ons and fails after them would be found again and again. Only where nothing was
    // changed: what may have been, another one need not know yet.
    [[noreturn]] void FailUnchanged(const AdError& error) const {
        if (error.Status() == kStatusNoSuchDomain) {
            AvoidController(_settings, _session.At().name);
        }
        throw UnchangedError(error.Status(), error.what());
    }

    LdapEntry Find(const std::string& computer) {
        const auto found =
            _session.Ldap().Search({_session.At().domainDN,
                                    LdapScope::Subtree,
                                    "(sAMAccountName=" + EscapeFilter(computer + "$") + ")",
                                    {"objectClass", "userAccountControl", "msDS-KeyVersionNumber", "whenCreated",
                                     "pwdLastSet", "lastLogon", "lastLogonTimestamp", "logonCount", kMarkAttribute}});
        if (found.empty()) {
            throw AdError(kStatusNoSuchAccount, "There is no machine account '" + computer + "'");
        }
        RequireOrdinaryComputer(found.front());
        if (IsDisabled(found.front())) {
            throw AdError(kStatusAccountDisabled, "The machine account '" + computer + "' is disabled");
        }
        return found.front();
    }

    // Notes the key version with the mark: from now on a join can be told from the outside.
    void NoteKeyVersion(const std::string& distinguishedName, const std::string& mark, std::int64_t keyVersion) {
        const std::string text = MarkText(mark, keyVersion);
        _session.Ldap().Modify(distinguishedName, {{LdapChangeKind::Replace, {kMarkAttribute, {text}}}});
    }

    const Settings& _settings;
    Deadline _deadline;
    Session _session;
    ComputerAccounts _accounts;
};

[[noreturn]] void FailInUse(const std::string& computer) {
    throw UnchangedError(kStatusAccountExists, "The machine account '" + computer + "' exists or is in use");
}

}  // namespace

void AccountService::RequireKey() const {
    ad::RequireKey(_account.keytab, _account.name + "@" + UpperCase(DnsName(_account.domain)));
}

ServiceDomain AccountService::Domain() const {
    const InsideGate gate;
    const auto facts = Work(_settings, _account).Look("", "").domain;
    return {facts.dnsName, facts.netbiosName, facts.sid};
}

HandedOutAccount AccountService::Create(const std::string& name, const std::string& unit,
                                        const std::string& mark) const {
    const InsideGate gate;
    CheckMark(mark);
    const std::string computer = ComputerName(name);
    Work work(_settings, _account);
    const auto survey = work.Look(computer, unit);
    if (survey.existing) {
        FailInUse(computer);
    }
    kit::Secret secret = kit::Secret::Random();
    work.Create(survey, computer, mark, secret);
    return {computer + "$", std::move(secret)};
}

HandedOutAccount AccountService::Renew(const std::string& name, const std::string& mark) const {
    const InsideGate gate;
    CheckMark(mark);
    const std::string computer = ComputerName(name);
    Work work(_settings, _account);
    const LdapEntry account = work.RequireAgain(computer);
    if (!IsUnusedUnderMark(account, mark)) {
        FailInUse(computer);
    }
    return work.SetSecret(account, computer, mark);
}

HandedOutAccount AccountService::TakeOver(const std::string& name, const std::string& mark) const {
    const InsideGate gate;
    CheckMark(mark);
    const std::string computer = ComputerName(name);
    Work work(_settings, _account);
    const LdapEntry account = work.Require(computer);
    if (!HasNeverLoggedOn(account)) {
        FailInUse(computer);
    }
    return work.SetSecret(account, computer, mark);
}

}  // namespace nimbrel::ad
