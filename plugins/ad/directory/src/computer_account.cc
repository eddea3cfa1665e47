#include "computer_account.h"

#include <ldap.h>
#include <sys/utsname.h>

#include <algorithm>
#include <charconv>

#include "addirectory/ad_error.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

constexpr std::int64_t kAccountDisabled = 0x0002;
constexpr std::int64_t kPasswordNotRequired = 0x0020;
constexpr std::int64_t kWorkstationAccount = 0x1000;
constexpr std::int64_t kControllerAccount = 0x2000 | 0x4000000;
constexpr char kAesOnly[] = "24";
// The default container for computers, wherever the domain keeps it.
constexpr char kComputersGuid[] = "<WKGUID=AA312825768811D1ADED00C04FD8D5CD,";

const std::vector<std::string>& AccountAttributes() {
    static const auto* names = new std::vector<std::string>{
        // lives as long as the process
        "objectClass",
        "userAccountControl",
        "dNSHostName",
        "servicePrincipalName",
        "msDS-SupportedEncryptionTypes",
        "operatingSystem",
        "operatingSystemVersion",
        "msDS-KeyVersionNumber",
        "objectSid",
    };
    return *names;
}

// The texts of an account, kept for the time of a request.
struct AccountTexts {
    explicit AccountTexts(const std::string& computer, const std::string& domain)
        : samAccountName(computer + "$"), hostName(HostName(computer, domain)) {
        for (const char* service : {"HOST/", "RestrictedKrbHost/"}) {
            servicePrincipals.push_back(service + computer);
            servicePrincipals.push_back(service + hostName);
        }
        utsname system = {};
        uname(&system);
        systemName = system.sysname;
        systemVersion = system.release;
    }

    std::string samAccountName;
    std::string hostName;
    std::vector<std::string> servicePrincipals;
    std::string systemName;
    std::string systemVersion;
};

std::vector<std::string_view> Views(const std::vector<std::string>& texts) { return {texts.begin(), texts.end()}; }

bool HasClass(const LdapEntry& entry, const std::string& name) {
    const auto classes = entry.Values("objectclass");
    return std::any_of(classes.begin(), classes.end(), [&](const auto& one) { return SameName(one, name); });
}

bool IsRefusal(const LdapError& error) { return error.Code() == LDAP_INSUFFICIENT_ACCESS; }

// Adds what is missing to the principals that are there, which other services may have added.
std::vector<std::string> MergedPrincipals(const LdapEntry& existing, const AccountTexts& texts) {
    std::vector<std::string> merged = existing.Values("serviceprincipalname");
    for (const auto& wanted : texts.servicePrincipals) {
        const auto same = [&](const std::string& one) { return SameName(one, wanted); };
        if (std::none_of(merged.begin(), merged.end(), same)) {
            merged.push_back(wanted);
        }
    }
    return merged;
}

// One replacement, unless the attribute has that value already.
void ReplaceText(std::vector<LdapChange>& changes, const LdapEntry& existing, const char* name,
                 const std::string& value) {
    if (existing.Text(LowerCase(name)) != value) {
        changes.push_back({LdapChangeKind::Replace, {name, {value}}});
    }
}

std::int64_t EnabledControl(const LdapEntry& existing) {
    const std::int64_t control = existing.Number("useraccountcontrol");
    return (control & ~(kAccountDisabled | kPasswordNotRequired)) | kWorkstationAccount;
}

}  // namespace

// A managed service account is a computer by its classes, and its secret is the controllers' own.
void RequireOrdinaryComputer(const LdapEntry& account) {
    const bool ordinary = HasClass(account, "computer") && !HasClass(account, "msDS-ManagedServiceAccount") &&
                          !HasClass(account, "msDS-GroupManagedServiceAccount") &&
                          (account.Number("useraccountcontrol") & kControllerAccount) == 0;
    if (!ordinary) {
        throw AdError(kStatusAccountExists,
                      "'" + account.distinguishedName + "' is not an ordinary computer's account");
    }
}

bool IsDisabled(const LdapEntry& account) { return (account.Number("useraccountcontrol") & kAccountDisabled) != 0; }

std::string AccountSid(const LdapEntry& account) { return SidText(account.Text("objectsid")); }

// A controller's codes are positive, those of the library negative.
bool IsAnswered(const LdapError& error) { return error.Code() > 0; }

kit::Secret PasswordValue(std::string_view password) {
    std::vector<char> bytes;
    bytes.reserve(4 * password.size() + 5);
    const auto put = [&](unsigned unit) {
        bytes.push_back(static_cast<char>(unit & 0xff));
        bytes.push_back(static_cast<char>(unit >> 8));
    };
    const bool wellFormed = IsUtf8(password);
    put('"');
    for (std::size_t i = 0; wellFormed && i < password.size();) {
        const auto first = static_cast<unsigned char>(password[i]);
        const std::size_t length = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
        unsigned long point = length == 1 ? first : first & (0xffU >> (length + 1));
        for (std::size_t j = 1; j < length; ++j) {
            point = point << 6 | (static_cast<unsigned char>(password[i + j]) & 0x3fU);
        }
        if (point >= 0x10000) {
            put(static_cast<unsigned>(0xd800 + ((point - 0x10000) >> 10)));
            point = 0xdc00 + ((point - 0x10000) & 0x3ff);
        }
        put(static_cast<unsigned>(point));
        i += length;
    }
    put('"');
    kit::Secret value(std::string_view(bytes.data(), bytes.size()));
    kit::Wipe(bytes.data(), bytes.size());
    if (!wellFormed) {
        throw AdError(kStatusLogonFailure, "The password is not UTF-8 text");
    }
    return value;
}

ComputerAccounts::Survey ComputerAccounts::Look(const std::string& computer, const std::string& unit) {
    const std::string& base = _controller.domainDN;
    const std::string place = unit.empty() ? kComputersGuid + base + ">" : UnitDN(unit, _controller.facts.domain);
    // All at once: one journey to the controller.
    const int account = _connection.Start(
        {base, LdapScope::Subtree, "(sAMAccountName=" + EscapeFilter(computer + "$") + ")", AccountAttributes()});
    const int domain = _connection.Start({base, LdapScope::Base, "(objectClass=*)", {"objectSid"}});
    const int names = _connection.Start({"CN=Partitions," + _controller.configurationDN,
                                         LdapScope::OneLevel,
                                         "(&(objectClass=crossRef)(nCName=" + EscapeFilter(base) + "))",
                                         {"nETBIOSName", "dnsRoot"}});
    const int container = _connection.Start({place, LdapScope::Base, "(objectClass=*)", {"objectClass"}});

    Survey survey;
    const auto accounts = _connection.Finish(account);
    const auto domains = _connection.Finish(domain);
    const auto crossReferences = _connection.Finish(names);
    const auto containers = FinishContainer(container);
    if (domains.empty() || crossReferences.empty() || containers.empty()) {
        throw AdError(kStatusInternalError, "The controller does not tell about its domain");
    }
    survey.domain = {LowerCase(crossReferences.front().Text("dnsroot")), crossReferences.front().Text("netbiosname"),
                     SidText(domains.front().Text("objectsid"))};
    survey.container = containers.front().distinguishedName;
    if (!accounts.empty()) {
        RequireOrdinaryComputer(accounts.front());
        survey.existing = accounts.front();
    }
    return survey;
}

// A unit of another domain is told of by a referral to it.
std::vector<LdapEntry> ComputerAccounts::FinishContainer(int question) {
    try {
        return _connection.Finish(question);
    } catch (const LdapError& error) {
        if (error.Code() != LDAP_REFERRAL) {
            throw;
        }
        throw AdError(kStatusFileNotFound, "The organizational unit is not in the domain");
    }
}

void ComputerAccounts::Prepare(const Survey& survey, const std::string& computer, const kit::Secret& secret,
                               ComputerAccount& account) {
    if (survey.existing) {
        Reset(*survey.existing, computer, secret, account);
    } else {
        Create(survey, computer, secret, account);
    }
    Complete(account);
}

void ComputerAccounts::Create(const Survey& survey, const std::string& computer, const kit::Secret& secret,
                              ComputerAccount& account) {
    const AccountTexts texts(computer, survey.domain.dnsName);
    const std::string control = std::to_string(kWorkstationAccount);
    const kit::Secret password = PasswordValue(secret.View());
    const std::string name = "CN=" + computer + "," + survey.container;
    std::vector<LdapAttribute> attributes = {
        {"objectClass", {"top", "person", "organizationalPerson", "user", "computer"}},
        {"sAMAccountName", {texts.samAccountName}},
        {"userAccountControl", {control}},
        {"dNSHostName", {texts.hostName}},
        {"servicePrincipalName", Views(texts.servicePrincipals)},
        {"msDS-SupportedEncryptionTypes", {kAesOnly}},
    };
    if (account.note.empty()) {
        attributes.push_back({"operatingSystem", {texts.systemName}});
        attributes.push_back({"operatingSystemVersion", {texts.systemVersion}});
    } else {
        attributes.push_back({"adminDescription", {account.note}});
    }
    // Last: libldap moves what it has encoded when it needs more room, and leaves the old place as it is.
    attributes.push_back({"unicodePwd", {password.View()}});
    account.distinguishedName = name;
    account.mayBeOthers = true;
    try {
        _connection.Add(name, attributes);
    } catch (const LdapError& error) {
        // A refusal has made nothing, a busy controller's neither; without an answer the account may be there.
        if (IsAnswered(error)) {
            account.distinguishedName.clear();
        }
        throw;
    }
    account.mayBeOthers = false;
    account.hasFreshSecret = true;
}

void ComputerAccounts::Reset(const LdapEntry& existing, const std::string& computer, const kit::Secret& secret,
                             ComputerAccount& account) {
    const AccountTexts texts(computer, _controller.facts.domain);
    const std::string control = std::to_string(EnabledControl(existing));
    const auto principals = MergedPrincipals(existing, texts);
    std::vector<LdapChange> needed;
    ReplaceText(needed, existing, "userAccountControl", control);
    ReplaceText(needed, existing, "dNSHostName", texts.hostName);
    if (principals != existing.Values("serviceprincipalname")) {
        needed.push_back({LdapChangeKind::Replace, {"servicePrincipalName", Views(principals)}});
    }
    std::vector<LdapChange> all = needed;
    const std::string encryption = kAesOnly;
    ReplaceText(all, existing, "msDS-SupportedEncryptionTypes", encryption);
    ReplaceText(all, existing, "operatingSystem", texts.systemName);
    ReplaceText(all, existing, "operatingSystemVersion", texts.systemVersion);

    account.distinguishedName = existing.distinguishedName;
    account.before = existing;
    try {
        if (!all.empty()) {
            _connection.Modify(existing.distinguishedName, all);
        }
    } catch (const LdapError& error) {
        if (!IsRefusal(error)) {
            throw;
        }
        // Who may reset an account need not have a right to all of its attributes.
        if (!needed.empty()) {
            _connection.Modify(existing.distinguishedName, needed);
        }
    }
    const kit::Secret password = PasswordValue(secret.View());
    _connection.Modify(existing.distinguishedName, {{LdapChangeKind::Replace, {"unicodePwd", {password.View()}}}});
    account.hasFreshSecret = true;
}

void ComputerAccounts::ChangeSecret(const LdapEntry& account, const kit::Secret& old, const kit::Secret& fresh) {
    const kit::Secret oldValue = PasswordValue(old.View());
    const kit::Secret freshValue = PasswordValue(fresh.View());
    _connection.Modify(account.distinguishedName, {{LdapChangeKind::Delete, {"unicodePwd", {oldValue.View()}}},
                                                   {LdapChangeKind::Add, {"unicodePwd", {freshValue.View()}}}});
}

void ComputerAccounts::CompleteOwn(const std::string& computer, const LdapEntry& account) {
    const AccountTexts texts(computer, _controller.facts.domain);
    const auto principals = MergedPrincipals(account, texts);
    std::vector<LdapChange> changes;
    ReplaceText(changes, account, "dNSHostName", texts.hostName);
    if (principals != account.Values("serviceprincipalname")) {
        changes.push_back({LdapChangeKind::Replace, {"servicePrincipalName", Views(principals)}});
    }
    try {
        if (!changes.empty()) {
            _connection.Modify(account.distinguishedName, changes);
        }
    } catch (const LdapError& error) {
        // Whoever made the account is to set what the host itself may not.
        const bool notOurs = IsRefusal(error) || error.Code() == LDAP_CONSTRAINT_VIOLATION;
        if (!notOurs) {
            throw;
        }
    }
}

std::uint32_t ComputerAccounts::KeyVersion(const std::string& distinguishedName) {
    ComputerAccount account;
    account.distinguishedName = distinguishedName;
    Complete(account);
    return account.keyVersion;
}

void ComputerAccounts::Complete(ComputerAccount& account) {
    const auto found = _connection.Search(
        {account.distinguishedName, LdapScope::Base, "(objectClass=*)", {"msDS-KeyVersionNumber", "objectSid"}});
    const LdapEntry entry = found.empty() ? LdapEntry() : found.front();
    account.keyVersion = static_cast<std::uint32_t>(entry.Number("msds-keyversionnumber"));
    account.sid = AccountSid(entry);
}

void ComputerAccounts::Undo(const ComputerAccount& account) {
    if (account.distinguishedName.empty()) {
        return;
    }
    if (!account.before) {
        try {
            _connection.Delete(account.distinguishedName, false);
        } catch (const LdapError& error) {
            if (error.Code() != LDAP_NO_SUCH_OBJECT) {
                throw;
            }
        }
        return;
    }
    static constexpr const char* kRestored[] = {"userAccountControl",   "dNSHostName",
                                                "servicePrincipalName", "msDS-SupportedEncryptionTypes",
                                                "operatingSystem",      "operatingSystemVersion"};
    for (const char* name : kRestored) {
        const auto values = account.before->Values(LowerCase(name));
        try {
            _connection.Modify(account.distinguishedName, {{LdapChangeKind::Replace, {name, Views(values)}}});
        } catch (const LdapError& error) {
            // What the user may not write was not changed either.
            if (!IsRefusal(error)) {
                throw;
            }
        }
    }
}

std::optional<LdapEntry> ComputerAccounts::Find(const std::string& computer) {
    const auto found =
        _connection.Search({_controller.domainDN, LdapScope::Subtree,
                            "(sAMAccountName=" + EscapeFilter(computer + "$") + ")", AccountAttributes()});
    return found.empty() ? std::nullopt : std::optional(found.front());
}

void ComputerAccounts::DeleteWithChildren(const std::string& distinguishedName) {
    try {
        _connection.Delete(distinguishedName, false);
    } catch (const LdapError& error) {
        if (error.Code() != LDAP_NOT_ALLOWED_ON_NONLEAF) {
            throw;
        }
        _connection.Delete(distinguishedName, true);
    }
}

bool ComputerAccounts::DeleteOrDisable(const LdapEntry& account) {
    try {
        DeleteWithChildren(account.distinguishedName);
        return true;
    } catch (const LdapError& error) {
        if (error.Code() == LDAP_NO_SUCH_OBJECT) {
            return true;
        }
        if (!IsRefusal(error)) {
            throw;
        }
    }
    const std::string control = std::to_string(account.Number("useraccountcontrol") | kAccountDisabled);
    _connection.Modify(account.distinguishedName, {{LdapChangeKind::Replace, {"userAccountControl", {control}}}});
    return false;
}

}  // namespace nimbrel::ad
