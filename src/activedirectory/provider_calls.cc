#include <alloca.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "activedirectory/plugin_results.h"
#include "authentication/exceptions.h"
#include "authentication/provider.h"
#include "foundation/system_calls.h"

namespace nimbrel::authentication {
namespace {

constexpr int kJoinAttempts = 4;
constexpr unsigned int kJoinPause = 30;  // seconds

void ThrowIfFailed(std::uint32_t status) {
    if (status != 0) ThrowMappedException(status);
}

template <typename Operation>
Operation Require(Operation operation) {
    if (operation == nullptr) throw CallNotImplementedException();
    return operation;
}

// Slots 12 and 13 are part of the table only from its version 2 on; what an older table holds there is not looked at.
void RequireTableVersion2(const NimauthProviderOperations& operations) {
    if (operations.tableVersion < NIMAUTH_PROVIDER_TABLE_VERSION) throw CallNotImplementedException();
}

// A domain controller may not have heard yet of an account or password that another one has just been told.
bool IsRetryable(std::uint32_t status) { return status == 1326 || status == 0xFFFF0000; }

// A signal must not shorten the pause.
void PauseBetweenAttempts() {
    for (unsigned int rest = kJoinPause; rest != 0;) rest = sleep(rest);
}

const char* NullIfEmpty(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

}  // namespace

// The pause comes after the last failure too: a join that fails each time takes four calls and 120 seconds.
void ActiveDirectoryProvider::JoinDomain(const std::string& domain, const std::string& organizationalUnit,
                                         const Credentials& credentials) const {
    std::uint32_t status = 0;
    for (int attempt = 1; attempt <= kJoinAttempts; ++attempt) {
        const auto join = Require(_operations->joinDomain);
        status = join(domain.c_str(), NullIfEmpty(organizationalUnit), &credentials);
        if (!IsRetryable(status)) break;
        PauseBetweenAttempts();
    }
    ThrowIfFailed(status);
}

void ActiveDirectoryProvider::JoinDomainWithMachineAccount(const APX::DirectoryDomainInfo& domain,
                                                           const APX::MachineAccountInfo& account) const {
    RequireTableVersion2(*_operations);
    const auto join = Require(_operations->joinDomainWithMachineAccount);
    const NimauthDirectoryDomainRecord domainRecord = {domain.reserved.c_str(), domain.netbiosName.c_str(),
                                                       domain.dnsName.c_str(), domain.sid.c_str()};
    const NimauthMachineAccountRecord accountRecord = {account.hostName.c_str(), account.dnsDomainName.c_str(),
                                                       account.reserved.c_str(), account.principalField2.c_str(),
                                                       account.principalField3.c_str()};
    std::uint32_t status = 0;
    for (int attempt = 1; attempt <= kJoinAttempts; ++attempt) {
        NimauthSyslog(LOG_INFO, "Adding host to domain: Attempt (%d/%d)", attempt, kJoinAttempts);
        status = join(&domainRecord, &accountRecord);
        if (!IsRetryable(status)) break;
        PauseBetweenAttempts();
    }
    ThrowIfFailed(status);
}

void ActiveDirectoryProvider::PartDomain() const { ThrowIfFailed(Require(_operations->partDomain)(nullptr)); }

void ActiveDirectoryProvider::PartDomain(const Credentials& credentials) const {
    ThrowIfFailed(Require(_operations->partDomain)(&credentials));
}

Domain ActiveDirectoryProvider::GetActiveDomain() const {
    NimauthDomainRecord record = {nullptr, nullptr};
    NimauthRelease release = nullptr;
    ThrowIfFailed(Require(_operations->getActiveDomain)(&record, &release));
    return TakeResult(record.netbiosName, release, [&] {
        const std::string dnsName = TakeText(record.dnsName, release);
        return Domain(dnsName, TextOrEmpty(record.netbiosName));
    });
}

void ActiveDirectoryProvider::SetPreferredDomainControllers(const std::deque<std::string>& controllers) const {
    const auto set = Require(_operations->setPreferredDomainControllers);
    auto pointers = std::make_unique<const char*[]>(controllers.size() + 1);
    FillTextPointers(controllers, pointers.get());
    const std::uint32_t status = set(pointers.get());
    pointers.reset();
    ThrowIfFailed(status);
}

std::deque<std::string> ActiveDirectoryProvider::GetPreferredDomainControllers() const {
    char** controllers = nullptr;
    NimauthRelease release = nullptr;
    ThrowIfFailed(Require(_operations->getPreferredDomainControllers)(&controllers, &release));
    return TakeTexts<std::deque<std::string>>(controllers, release);
}

TrustState ActiveDirectoryProvider::GetDomainTrustState() const {
    return static_cast<TrustState>(Require(_operations->getDomainTrustState)());
}

std::deque<Domain> ActiveDirectoryProvider::GetTrustedDomains() const {
    NimauthDomainRecord** records = nullptr;
    NimauthRelease release = nullptr;
    ThrowIfFailed(Require(_operations->getTrustedDomains)(&records, &release));
    return TakeResult(records, release, [records] {
        std::deque<Domain> domains;
        for (NimauthDomainRecord** record = records; record != nullptr && *record != nullptr; ++record) {
            domains.emplace_back(TextOrEmpty((*record)->dnsName), TextOrEmpty((*record)->netbiosName));
        }
        return domains;
    });
}

std::string ActiveDirectoryProvider::GetMachineAccountDN() const {
    char* name = nullptr;
    NimauthRelease release = nullptr;
    ThrowIfFailed(Require(_operations->getMachineAccountDN)(&name, &release));
    return TakeText(name, release);
}

std::string ActiveDirectoryProvider::GetAnyDomainController(const std::string& firstName,
                                                            const std::string& domain) const {
    char* controller = nullptr;
    NimauthRelease release = nullptr;
    ThrowIfFailed(
        Require(_operations->getAnyDomainController)(NullIfEmpty(firstName), domain.c_str(), &controller, &release));
    return TakeText(controller, release);
}

std::string ActiveDirectoryProvider::ConvertCanonicalUsername(const std::string& name) const {
    char* canonicalName = nullptr;
    NimauthRelease release = nullptr;
    ThrowIfFailed(Require(_operations->convertCanonicalUsername)(name.c_str(), &canonicalName, &release));
    return TakeText(canonicalName, release);
}

std::string ActiveDirectoryProvider::GetHostPrincipalForDomain(const std::string& domain) const {
    RequireTableVersion2(*_operations);
    char* principal = nullptr;
    NimauthRelease release = nullptr;
    ThrowIfFailed(Require(_operations->getHostPrincipalForDomain)(domain.c_str(), &principal, &release));
    return TakeText(principal, release);
}

TrustRelationship ActiveDirectoryProvider::GetDomainTrustRelationship(const std::string& domain) const {
    return static_cast<TrustRelationship>(Require(_operations->getDomainTrustRelationship)(domain.c_str()));
}

// The array lies on the stack: nothing is allocated between the caller and the plug-in.
void ActiveDirectoryProvider::SetSmartCardEnabledServices(const std::vector<std::string>& services) const {
    const auto set = Require(_operations->setSmartCardEnabledServices);
    auto** const pointers = static_cast<const char**>(alloca((services.size() + 1) * sizeof(const char*)));
    FillTextPointers(services, pointers);
    ThrowIfFailed(set(pointers));
}

std::vector<std::string> ActiveDirectoryProvider::GetSmartCardEnabledServices() const {
    char** services = nullptr;
    NimauthRelease release = nullptr;
    ThrowIfFailed(Require(_operations->getSmartCardEnabledServices)(&services, &release));
    return TakeTexts<std::vector<std::string>>(services, release);
}

}  // namespace nimbrel::authentication
