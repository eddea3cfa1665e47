// The questions about this host's domain, most of them asked with the machine's own keytab.

#include <algorithm>
#include <optional>
#include <utility>

#include "addirectory/host.h"
#include "computer_account.h"
#include "host_state.h"
#include "log_on.h"
#include "membership_lock.h"
#include "names.h"
#include "pluginkit/failure_log.h"
#include "session.h"
#include "session_pool.h"
#include "trusts.h"
#include "unfinished_join.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kMaximumListEntries = 256;
// A log-on that succeeded so short a time ago answers for the trust state, too.
constexpr std::chrono::seconds kTrustStateAge{3};

std::string WithoutFinalDot(const std::string& name) {
    return name.size() > 1 && name.back() == '.' ? name.substr(0, name.size() - 1) : name;
}

bool IsDomain(const Membership& membership, const std::string& domain) {
    return SameName(membership.domain, domain) || SameName(membership.netbiosName, domain);
}

HostState LoadJoined(const Settings& settings, std::uint32_t otherwise) {
    HostState state = HostState::Load(settings.membership);
    if (!state.membership) {
        throw AdError(otherwise, "This host is not joined to a domain");
    }
    return state;
}

std::vector<Trust> AskTrusts(const Settings& settings, const HostState& state) {
    return OnMachineSession(settings, state, Deadline::After(settings.queryBudget),
                            [](Session& session) { return ReadTrusts(session.Ldap(), session.At()); });
}

// Where the account stands is asked for without the network, and an administrator may have moved it since the join: a
// session that is open anyway looks. Nothing waits for that; who cannot note it now does so another time.
void NoteAccountName(const Settings& settings, const HostState& state, Session& session, const Deadline& deadline) {
    session.SetDeadline(deadline.OrAfter(settings.controllerBudget));
    const auto account = ComputerAccounts(session.Ldap(), session.At()).Find(state.membership->computer);
    if (!account || account->distinguishedName == state.membership->distinguishedName) {
        return;
    }
    const MembershipLock lock(settings, Deadline::After(std::chrono::milliseconds(0)));
    HostState now = HostState::Load(settings.membership);
    if (now.membership && now.Format() == state.Format()) {
        now.membership->distinguishedName = account->distinguishedName;
        now.Save(settings.membership);
    }
}

// A join that was cut short at its very end has made a member of this host, and left its keys behind.
void ForgetEndedJoin(const Settings& settings) {
    const UnfinishedJoin record(settings);
    if (!record.IsThere()) {
        return;
    }
    try {
        const MembershipLock lock(settings, Deadline::After(std::chrono::milliseconds(0)));
        if (HostState::Load(settings.membership).membership) {
            record.Forget();
        }
    } catch (const AdError&) {  // the next question does it
    }
}

// False for a session that has fallen silent meanwhile.
bool IsStillGoodAfterNoting(const Settings& settings, const HostState& state, Session& session,
                            const Deadline& deadline) {
    try {
        NoteAccountName(settings, state, session, deadline);
        return true;
    } catch (const AdError& error) {
        return error.Status() != kStatusNoSuchDomain;
    }
}

const Trust* FindTrust(const std::vector<Trust>& trusts, const std::string& domain) {
    const auto found =
        std::find_if(trusts.begin(), trusts.end(), [&](const Trust& trust) { return trust.IsNamed(domain); });
    return found == trusts.end() ? nullptr : &*found;
}

std::int32_t TrustStateOf(std::uint32_t status) {
    switch (status) {
        case kStatusLogonFailure:
        case kStatusPasswordMustChange:
            return kTrustStateSecretMismatch;
        case kStatusAccountDisabled:
        case kStatusAccountExpired:
            return kTrustStateAccountDisabled;
        case kStatusNoTrustAccount:
            return kTrustStateAccountMissing;
        case kStatusNoSuchDomain:
            return kTrustStateNoController;
        case kStatusTimeSkew:
            return kTrustStateClockOff;
        case kStatusNotJoined:
            return kTrustStateNotMember;
        default:
            return kTrustStateUnreadable;
    }
}

std::int32_t RelationshipOfStatus(std::uint32_t status) {
    switch (status) {
        case kStatusNotJoined:
            return kRelationshipNotMember;
        case kStatusTimeSkew:
            return kRelationshipClockOff;
        case kStatusBadConfiguration:
        case kStatusInternalError:
        case kStatusAccessDenied:
            return kRelationshipUnreadable;
        default:
            return kRelationshipNoController;
    }
}

// --- Canonical user names ---

// The account name, spelled as in the directory, of a user known by account name or by user principal name.
std::optional<std::string> FindUser(LdapConnection& connection, const Controller& controller, const UserName& user) {
    const std::string name = EscapeFilter(user.name);
    const std::string suffix = EscapeFilter(user.domain.empty() ? controller.facts.domain : user.domain);
    const auto found = connection.Search({controller.domainDN,
                                          LdapScope::Subtree,
                                          "(&(objectCategory=person)(objectClass=user)(|(sAMAccountName=" + name +
                                              ")(userPrincipalName=" + name + "@" + suffix + ")))",
                                          {"sAMAccountName"}});
    for (const auto& entry : found) {
        if (SameName(entry.Text("samaccountname"), user.name)) {
            return entry.Text("samaccountname");
        }
    }
    return found.empty() ? std::nullopt : std::optional(found.front().Text("samaccountname"));
}

// A user by principal name alone, whose suffix is no domain's name: "alice@example.com".
std::optional<std::string> FindByPrincipalName(LdapConnection& connection, const Controller& controller,
                                               const UserName& user) {
    const auto found =
        connection.Search({controller.domainDN,
                           LdapScope::Subtree,
                           "(&(objectCategory=person)(objectClass=user)(userPrincipalName=" + EscapeFilter(user.name) +
                               "@" + EscapeFilter(user.domain) + "))",
                           {"sAMAccountName"}});
    return found.empty() ? std::nullopt : std::optional(found.front().Text("samaccountname"));
}

// Ends a dialogue: the realm wants proof of a user's identity, so it knows the user.
struct UserIsKnown {};

// A trust that lets nobody out gives this host no ticket for the partner. Its key distribution centre is asked for the
// user instead: the first answer, for which no password is needed, tells whether there is one.
bool RealmKnowsUser(const Settings& settings, const Controller& controller, const UserName& user,
                    const Deadline& deadline) {
    const std::string realm = UpperCase(controller.facts.domain);
    KdcCarrier carrier(settings, realm, controller.endpoint, deadline);
    bool asked = false;
    Tickets tickets(realm, [&](const std::string& to, std::string_view request) {
        if (std::exchange(asked, true)) {
            throw UserIsKnown();
        }
        return carrier.Exchange(to, request);
    });
    try {
        tickets.LogOnWithPassword({user.name + "@" + realm, false}, "");
        return true;
    } catch (const UserIsKnown&) {
        return true;
    } catch (const KerberosError& error) {
        switch (error.Code()) {
            case KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN:
                return false;
            // What only a user that is there can be told. The last: of whom no proof is asked, a ticket is given at once,
            // which no password of ours opens.
            case KRB5KDC_ERR_CLIENT_REVOKED:
            case KRB5KDC_ERR_KEY_EXP:
            case KRB5KDC_ERR_NAME_EXP:
            case KRB5KDC_ERR_POLICY:
            case KRB5KRB_AP_ERR_BAD_INTEGRITY:
                return true;
            default:
                throw;
        }
    }
}

std::optional<std::string> FindTrustedUser(const Settings& settings, Session& session, const Trust& trust,
                                           const UserName& user, const Deadline& deadline) {
    std::optional<std::string> found;
    AtSomeController(settings, trust.dnsName, {}, deadline, Patience::Query, [&](LocatedController located) {
        if (trust.LetsUsersOut()) {
            const LocatedController there = session.ConnectTo(std::move(located));
            found = FindUser(*there.connection, there.controller, user);
        } else if (RealmKnowsUser(settings, located.controller, user, deadline)) {
            found = LowerCase(user.name);
        }
    });
    return found;
}

// "user@domain" of a user of the own domain or a trusted one.
std::optional<std::string> FindAnywhere(const Settings& settings, const Membership& own, Session& session,
                                        const UserName& user, const Deadline& deadline) {
    const auto in = [](const std::optional<std::string>& found, const std::string& domain) {
        return found ? std::optional(*found + "@" + domain) : std::nullopt;
    };
    if (user.domain.empty() || IsDomain(own, user.domain)) {
        return in(FindUser(session.Ldap(), session.At(), {user.name, own.domain}), own.domain);
    }
    const auto trusts = ReadTrusts(session.Ldap(), session.At());
    const Trust* trust = FindTrust(trusts, user.domain);
    if (!trust) {
        return in(FindByPrincipalName(session.Ldap(), session.At(), user), own.domain);
    }
    if (!trust->LetsUsersIn()) {
        return std::nullopt;
    }
    return in(FindTrustedUser(settings, session, *trust, {user.name, trust->dnsName}, deadline), trust->dnsName);
}

// A value tells less than a status. Not to be joined is no failure.
void LogReason(const AdError& error) {
    if (error.Status() != kStatusNotJoined) {
        kit::LogFailure("ad", error.Status(), error.what());
    }
}

}  // namespace

DomainNames Host::ActiveDomain() const {
    const auto membership = HostState::Load(_settings.membership).membership;
    return membership ? DomainNames{membership->domain, membership->netbiosName} : DomainNames{};
}

std::string Host::MachineAccountDN() const {
    const auto membership = HostState::Load(_settings.membership).membership;
    return membership ? membership->distinguishedName : "";
}

std::vector<std::string> Host::PreferredControllers() const {
    return HostState::Load(_settings.membership).preferredControllers;
}

void Host::SetPreferredControllers(const std::vector<std::string>& controllers) const {
    if (controllers.size() > kMaximumListEntries) {
        throw AdError(kStatusInvalidParameter, "The list has more than 256 entries");
    }
    std::vector<std::string> names;
    std::transform(controllers.begin(), controllers.end(), std::back_inserter(names),
                   [](const std::string& name) { return ControllerName(name); });
    const MembershipLock lock(_settings, Deadline::After(_settings.queryBudget));
    HostState state = HostState::Load(_settings.membership);
    const HostState before = state;
    state.preferredControllers = names;
    state.Save(_settings.membership);
    try {
        _logIns.SetPreferredControllers(names);
    } catch (...) {
        before.Save(_settings.membership);  // both agree
        throw;
    }
}

std::vector<std::string> Host::SmartCardServices() const { return _logIns.SmartCardServices(); }

void Host::SetSmartCardServices(const std::vector<std::string>& services) const {
    const auto isBad = [](const std::string& name) {
        return name.empty() || name.size() > 255 || !IsUtf8(name) || HasControlCharacters(name);
    };
    if (services.size() > kMaximumListEntries || std::any_of(services.begin(), services.end(), isBad)) {
        throw AdError(kStatusInvalidParameter, "Service names take 1 to 255 bytes of UTF-8 text, and 256 is the limit");
    }
    _logIns.SetSmartCardServices(services);
}

std::int32_t Host::TrustState() const {
    try {
        const HostState state = LoadJoined(_settings, kStatusNotJoined);
        const std::string key = SessionKey(_settings, state);
        PooledSession session = TakeSession(key);
        const Deadline deadline = Deadline::After(_settings.queryBudget);
        if (!session.session || !session.IsYoungerThan(kTrustStateAge)) {
            session = LogOnMachine(_settings, state, deadline);
        }
        if (!std::exchange(session.hasToldName, true) &&
            !IsStillGoodAfterNoting(_settings, state, *session.session, deadline)) {
            return kTrustStateHealthy;  // it was a moment ago
        }
        GiveBackSession(key, std::move(session));
        ForgetEndedJoin(_settings);
        return kTrustStateHealthy;
    } catch (const AdError& error) {
        LogReason(error);
        return TrustStateOf(error.Status());  // translated: the query has no status, only values
    }
}

std::int32_t Host::TrustRelationship(const std::string& domain) const {
    try {
        const HostState state = LoadJoined(_settings, kStatusNotJoined);
        const std::string wanted = WithoutFinalDot(domain);
        if (IsDomain(*state.membership, wanted)) {
            return kRelationshipOwnDomain;
        }
        const auto trusts = AskTrusts(_settings, state);
        const Trust* trust = FindTrust(trusts, wanted);
        return trust ? trust->relationship : kRelationshipUnknownDomain;
    } catch (const AdError& error) {
        LogReason(error);
        return RelationshipOfStatus(error.Status());  // translated, as above
    }
}

std::vector<DomainNames> Host::TrustedDomains() const {
    std::vector<DomainNames> domains;
    for (const auto& trust : AskTrusts(_settings, LoadJoined(_settings, kStatusFileNotFound))) {
        if (trust.LetsUsersIn()) {
            domains.push_back({trust.dnsName, trust.netbiosName});
        }
    }
    return domains;
}

std::string Host::AnyController(const std::string& firstChoice, const std::string& domain) const {
    const HostState state = HostState::Load(_settings.membership);
    const Deadline deadline = Deadline::After(_settings.queryBudget);
    const bool isOwn = state.membership && (domain.empty() || IsDomain(*state.membership, WithoutFinalDot(domain)));
    if (domain.empty() && !isOwn) {
        throw AdError(kStatusNoSuchDomain, "This host is not joined to a domain");
    }
    std::vector<std::string> preferred;
    if (!firstChoice.empty()) {
        preferred.push_back(ControllerName(firstChoice));
    }
    if (isOwn) {
        preferred.insert(preferred.end(), state.preferredControllers.begin(), state.preferredControllers.end());
    }
    const std::string name = isOwn ? state.membership->domain : DnsName(domain);
    return LocateController(_settings, name, preferred, deadline).controller.name;
}

std::string Host::CanonicalUserName(const std::string& name) const {
    const UserName user = SplitUserName(name);
    const HostState state = LoadJoined(_settings, kStatusNotJoined);
    const Deadline deadline = Deadline::After(_settings.queryBudget);
    const auto found = OnMachineSession(_settings, state, deadline, [&](Session& session) {
        return FindAnywhere(_settings, *state.membership, session, user, deadline);
    });
    if (!found) {
        throw AdError(kStatusNoSuchAccount, "There is no user '" + name + "'");
    }
    return *found;
}

std::string Host::HostPrincipal(const std::string& domain) const {
    const HostState state = LoadJoined(_settings, kStatusNoSuchDomain);
    const std::string wanted = WithoutFinalDot(domain);
    if (!IsDomain(*state.membership, wanted) && !FindTrust(AskTrusts(_settings, state), wanted)) {
        throw AdError(kStatusNoSuchDomain, "The domain '" + domain + "' is neither the host's own nor trusted");
    }
    return HostPrincipalName(state.membership->computer, state.membership->domain);
}

}  // namespace nimbrel::ad
