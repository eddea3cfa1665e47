#include "embeddeddirectory/host.h"

#include <syslog.h>

#include <algorithm>
#include <utility>

#include "fork_gate.h"
#include "names.h"
#include "published_accounts.h"

namespace nimbrel::embedded {
namespace {

MembershipInfo ToMembership(const JoinedComputer& joined) {
    const ComputerInfo& computer = joined.computer;
    return {joined.domain, computer.name,          computer.distinguishedName,
            computer.path, computer.hostPrincipal, computer.keyVersion};
}

void RequireNotJoined(const std::optional<MembershipInfo>& membership) {
    if (membership) {
        throw DirectoryError(kStatusAlreadyJoined,
                             "This host is already joined to the domain '" + membership->domain.dnsName + "'");
    }
}

MembershipInfo RequireJoined(const std::optional<MembershipInfo>& membership, std::uint32_t status) {
    if (!membership) {
        throw DirectoryError(status, "This host is not joined to a domain");
    }
    return *membership;
}

// A compensating step must not hide the failure that made it necessary.
template <class Step>
void Compensate(const Step& step) {
    try {
        step();
    } catch (const std::exception&) {
        return;
    }
}

void RecordOrUndo(Directory& directory, MembershipChange& change, const JoinedComputer& joined) {
    try {
        change.Record(ToMembership(joined), joined.secret.View());
        change.Commit();
    } catch (...) {
        // Restore the account: account and membership must agree.
        Compensate([&] { directory.UndoJoin(joined); });
        throw;
    }
}

void RequireSameDomain(const Directory& directory, const MachineAccountJoin& join) {
    const auto domain = directory.FindDomain(join.dnsName);
    if (!domain) {
        return;  // the join itself reports it
    }
    const bool sameSid = join.sid.empty() || SameName(join.sid, domain->sid);
    const bool sameName = join.netbiosName.empty() || SameName(join.netbiosName, domain->netbiosName);
    if (!sameSid || !sameName) {
        throw DirectoryError(kStatusDomainInconsistent,
                             "The SID or the NetBIOS name is not that of the domain '" + domain->dnsName + "'");
    }
}

// The host's own log-on, which a real domain asks for before it answers a question.
void LogOn(const Directory& directory, const Membership& membership, const MembershipInfo& current) {
    const kit::Secret secret = membership.MachineSecret();
    switch (directory.CheckComputer(current.domain.dnsName, current.accountName, secret.View())) {
        case kTrustStateHealthy:
            return;
        case kTrustStateAccountMissing:
            throw DirectoryError(kStatusNoTrustAccount, "The domain has no account for this host");
        case kTrustStateAccountDisabled:
            throw DirectoryError(kStatusAccountDisabled, "This host's account is disabled");
        case kTrustStateNoController:
            throw DirectoryError(kStatusNoSuchDomain, "No controller of this host's domain is reachable");
        default:
            throw DirectoryError(kStatusLogonFailure, "This host's secret is no longer that of its account");
    }
}

bool HasAccount(const Directory& directory, const MembershipInfo& membership) {
    const auto computers = directory.ListComputers(membership.domain.dnsName);
    return std::any_of(computers.begin(), computers.end(),
                       [&](const ComputerInfo& one) { return one.name == membership.accountName; });
}

bool TrustsUsersOf(const TrustInfo& trust) { return trust.direction != TrustDirection::Inbound; }

bool IsPartner(const TrustInfo& trust, const std::string& domain) {
    return SameName(trust.partnerDnsName, domain) || SameName(trust.partnerNetbiosName, domain);
}

bool IsDomain(const DomainInfo& info, const std::string& domain) {
    return SameName(info.dnsName, domain) || SameName(info.netbiosName, domain);
}

const TrustInfo* FindTrust(const std::vector<TrustInfo>& trusts, const std::string& domain) {
    const auto found =
        std::find_if(trusts.begin(), trusts.end(), [&](const TrustInfo& trust) { return IsPartner(trust, domain); });
    return found == trusts.end() ? nullptr : &*found;
}

std::string WithoutFinalDot(const std::string& name) {
    return name.size() > 1 && name.back() == '.' ? name.substr(0, name.size() - 1) : name;
}

bool HasReachableController(const std::vector<ControllerInfo>& controllers) {
    return std::any_of(controllers.begin(), controllers.end(), [](const auto& one) { return one.reachable; });
}

[[noreturn]] void FailNoController(const std::string& domain) {
    throw DirectoryError(kStatusNoSuchDomain, "No controller of the domain '" + domain + "' is reachable");
}

const ControllerInfo* FirstReachable(const std::vector<ControllerInfo>& controllers,
                                     const std::vector<std::string>& wanted) {
    for (const auto& name : wanted) {
        for (const auto& controller : controllers) {
            if (controller.reachable && SameName(controller.name, WithoutFinalDot(name))) {
                return &controller;
            }
        }
    }
    return nullptr;
}

// The domain, own or trusted, whose user is meant. Throws 1317 for any other.
std::string HomeDomain(const Directory& directory, const DomainInfo& own, const std::string& domain) {
    if (domain.empty() || IsDomain(own, domain)) {
        return own.dnsName;
    }
    const auto trusts = directory.ListTrusts(own.dnsName);
    const TrustInfo* trust = FindTrust(trusts, domain);
    if (!trust || !TrustsUsersOf(*trust)) {
        throw DirectoryError(kStatusNoSuchAccount, "The domain '" + domain + "' is not trusted");
    }
    return trust->partnerDnsName;
}

template <class Change>
void InGate(const Change& change) {
    const ForkGate gate;
    change();
}

}  // namespace

Host::Host(std::string directoryPath, std::string membershipPath, OpenMode mode)
    : _directoryPath(std::move(directoryPath)), _membershipPath(std::move(membershipPath)), _mode(mode) {}

// Who can log in now; of no other files.
void Host::Publish() const noexcept {
    if (_directoryPath == kDefaultDirectoryPath && _membershipPath == kDefaultMembershipPath) {
        PublishAccounts();
    }
}

void Host::Join(const std::string& domain, const std::string& hostName, const std::string& unit,
                const UserCredentials& credentials) const {
    InGate([&] {
        Membership membership = Membership::Open(_membershipPath, _mode);
        RequireNotJoined(membership.Current());
        ComputerName(hostName);
        Directory directory = Directory::Open(_directoryPath, _mode);
        MembershipChange change = membership.BeginChange();
        RequireNotJoined(change.Current());
        RecordOrUndo(directory, change, directory.JoinComputer(domain, hostName, unit, credentials));
    });
    Publish();
}

void Host::JoinWithMachineAccount(const MachineAccountJoin& join) const {
    InGate([&] {
        Membership membership = Membership::Open(_membershipPath, _mode);
        RequireNotJoined(membership.Current());
        if (!join.hostName.empty()) {
            ComputerName(join.hostName);
        }
        Directory directory = Directory::Open(_directoryPath, _mode);
        RequireSameDomain(directory, join);
        MembershipChange change = membership.BeginChange();
        RequireNotJoined(change.Current());
        RecordOrUndo(directory, change,
                     directory.JoinPreStagedComputer(join.dnsName, join.accountName, join.oneTimeSecret));
    });
    Publish();
}

void Host::Part(const std::optional<UserCredentials>& credentials) const {
    std::optional<MembershipInfo> keptAccount;
    InGate([&] {
        Membership membership = Membership::Open(_membershipPath, _mode);
        RequireJoined(membership.Current(), kStatusNotJoined);
        if (!credentials) {
            MembershipChange change = membership.BeginChange();
            change.Forget();
            change.Commit();
            return;
        }
        Directory directory = Directory::Open(_directoryPath, _mode);
        MembershipChange change = membership.BeginChange();
        const MembershipInfo current = RequireJoined(change.Current(), kStatusNotJoined);
        const kit::Secret secret = membership.MachineSecret();
        const auto deleted =
            directory.DeleteComputer(current.domain.dnsName, current.accountName, *credentials, secret.View());
        if (!deleted && HasAccount(directory, current)) {
            keptAccount = current;
        }
        try {
            change.Forget();
            change.Commit();
        } catch (...) {
            // Bring the account back: the host is still joined.
            Compensate([&] {
                if (deleted) {
                    directory.UndoDelete(*deleted);
                }
            });
            throw;
        }
    });
    Publish();
    if (keptAccount) {
        syslog(LOG_WARNING, "This host leaves '%s' and its machine account '%s' stays there: %s",
               keptAccount->domain.dnsName.c_str(), keptAccount->accountName.c_str(),
               "it does not take this host's secret");
    }
}

DomainInfo Host::ActiveDomain() const {
    const ForkGate gate;
    const auto current = Membership::Open(_membershipPath, _mode).Current();
    return current ? current->domain : DomainInfo{};
}

std::string Host::MachineAccountDN() const {
    const ForkGate gate;
    const auto current = Membership::Open(_membershipPath, _mode).Current();
    return current ? current->distinguishedName : "";
}

std::vector<std::string> Host::PreferredControllers() const {
    const ForkGate gate;
    return Membership::Open(_membershipPath, _mode).PreferredControllers();
}

void Host::SetPreferredControllers(const std::vector<std::string>& controllers) const {
    const ForkGate gate;
    Membership::Open(_membershipPath, _mode).SetPreferredControllers(controllers);
}

std::vector<std::string> Host::SmartCardServices() const {
    const ForkGate gate;
    return Membership::Open(_membershipPath, _mode).SmartCardServices();
}

void Host::SetSmartCardServices(const std::vector<std::string>& services) const {
    const ForkGate gate;
    Membership::Open(_membershipPath, _mode).SetSmartCardServices(services);
}

std::int32_t Host::TrustState() const {
    const ForkGate gate;
    try {
        const Membership membership = Membership::Open(_membershipPath, _mode);
        const auto current = membership.Current();
        if (!current) {
            return kTrustStateNotMember;
        }
        const kit::Secret secret = membership.MachineSecret();
        return Directory::Open(_directoryPath, _mode)
            .CheckComputer(current->domain.dnsName, current->accountName, secret.View());
    } catch (const DirectoryError& error) {
        // Translated: the query has no status, only values.
        switch (error.Status()) {
            case kStatusNoSuchDomain:
                return kTrustStateNoController;
            case kStatusNotJoined:
                return kTrustStateNotMember;
            default:
                return kTrustStateUnreadable;
        }
    }
}

std::int32_t Host::TrustRelationship(const std::string& domain) const {
    const ForkGate gate;
    try {
        const auto current = Membership::Open(_membershipPath, _mode).Current();
        if (!current) {
            return kRelationshipNotMember;
        }
        if (IsDomain(current->domain, WithoutFinalDot(domain))) {
            return kRelationshipOwnDomain;
        }
        const Directory directory = Directory::Open(_directoryPath, _mode);
        if (!HasReachableController(directory.ListControllers(current->domain.dnsName))) {
            return kRelationshipNoController;
        }
        const auto trusts = directory.ListTrusts(current->domain.dnsName);
        const TrustInfo* trust = FindTrust(trusts, WithoutFinalDot(domain));
        return trust ? trust->relationship.value_or(kRelationshipUnknownDomain) : kRelationshipUnknownDomain;
    } catch (const DirectoryError& error) {
        // Translated: the query has no status, only values.
        return error.Status() == kStatusNoSuchDomain ? kRelationshipNoController : kRelationshipUnreadable;
    }
}

std::vector<DomainInfo> Host::TrustedDomains() const {
    const ForkGate gate;
    const Membership membership = Membership::Open(_membershipPath, _mode);
    const MembershipInfo current = RequireJoined(membership.Current(), kStatusFileNotFound);
    const Directory directory = Directory::Open(_directoryPath, _mode);
    LogOn(directory, membership, current);
    std::vector<DomainInfo> domains;
    for (const auto& trust : directory.ListTrusts(current.domain.dnsName)) {
        if (TrustsUsersOf(trust)) {
            domains.push_back({trust.partnerDnsName, trust.partnerNetbiosName, ""});
        }
    }
    return domains;
}

std::string Host::AnyController(const std::string& firstChoice, const std::string& domain) const {
    const ForkGate gate;
    const auto membership = Membership::Open(_membershipPath, _mode).Export();
    const std::string joined = membership.membership ? membership.membership->domain.dnsName : "";
    const std::string wanted = domain.empty() ? joined : domain;
    if (wanted.empty()) {
        FailNoController(wanted);
    }
    const auto controllers = Directory::Open(_directoryPath, _mode).ListControllers(wanted);
    std::vector<std::string> preferred = {firstChoice};
    preferred.insert(preferred.end(), membership.preferredControllers.begin(), membership.preferredControllers.end());
    if (const ControllerInfo* controller = FirstReachable(controllers, preferred)) {
        return controller->name;
    }
    const auto any = std::find_if(controllers.begin(), controllers.end(),
                                  [](const auto& controller) { return controller.reachable; });
    if (any == controllers.end()) {
        FailNoController(wanted);
    }
    return any->name;
}

std::string Host::CanonicalUserName(const std::string& name) const {
    const ForkGate gate;
    const QualifiedName qualified = SplitUserName(name);
    const Membership membership = Membership::Open(_membershipPath, _mode);
    const MembershipInfo current = RequireJoined(membership.Current(), kStatusNotJoined);
    const Directory directory = Directory::Open(_directoryPath, _mode);
    LogOn(directory, membership, current);
    const std::string home = HomeDomain(directory, current.domain, qualified.domain);
    if (!HasReachableController(directory.ListControllers(home))) {
        FailNoController(home);
    }
    const auto user = directory.FindUser(home, qualified.name);
    if (!user) {
        throw DirectoryError(kStatusNoSuchAccount, "There is no user '" + name + "'");
    }
    return user->name + "@" + user->domain;
}

std::string Host::HostPrincipal(const std::string& domain) const {
    const ForkGate gate;
    const auto current = Membership::Open(_membershipPath, _mode).Current();
    if (!current) {
        throw DirectoryError(kStatusNoSuchDomain, "This host is not joined to a domain");
    }
    if (IsDomain(current->domain, WithoutFinalDot(domain))) {
        return current->hostPrincipal;
    }
    const auto trusts = Directory::Open(_directoryPath, _mode).ListTrusts(current->domain.dnsName);
    if (!FindTrust(trusts, WithoutFinalDot(domain))) {
        throw DirectoryError(kStatusNoSuchDomain, "The domain '" + domain + "' is neither the host's own nor trusted");
    }
    return current->hostPrincipal;
}

std::optional<Directory::TakenRehearsal> Host::TakeRehearsal(std::string_view operation) const {
    const ForkGate gate;
    return Directory::Open(_directoryPath, _mode).TakeRehearsal(operation);
}

bool Host::StillRehearsed(std::int64_t ticket) const {
    const ForkGate gate;
    return Directory::Open(_directoryPath, _mode).StillRehearsed(ticket);
}

}  // namespace nimbrel::embedded
