// The provider "ad": real Active Directory domains, over Kerberos, LDAP and DNS.
//
// Each operation checks its pointers (87) and hands the rest to `Host`.

#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "authentication/provider_abi.h"
#include "call.h"
#include "results.h"

namespace nimbrel::ad {
namespace {

std::string TextOrEmpty(const char* text) { return text ? text : ""; }

std::vector<std::string> Texts(const char* const* texts) {
    std::vector<std::string> copies;
    for (; *texts; ++texts) {
        copies.emplace_back(*texts);
    }
    return copies;
}

bool IsComplete(const Credentials* credentials) {
    return credentials && credentials->userName && credentials->password;
}

// The texts stay the caller's: no copy of the password is made here.
UserCredentials View(const Credentials& credentials) { return {credentials.userName, credentials.password}; }

std::string LocalHostName() {
    std::array<char, 256> name = {};
    if (gethostname(name.data(), name.size() - 1) != 0) {
        throw AdError(kStatusInvalidComputerName, "This host's name cannot be read");
    }
    return name.data();
}

// Nothing is returned unless the work succeeds.
template <class Result>
void Clear(Result* result, NimauthRelease* release) {
    *result = {};
    *release = nullptr;
}

extern "C" {

static std::uint32_t JoinDomain(const char* domain, const char* organizationalUnit, const Credentials* credentials) {
    if (!domain || !IsComplete(credentials)) {
        return kStatusInvalidParameter;
    }
    return AnswerStatus([&](const Host& host) {
        host.Join(domain, LocalHostName(), TextOrEmpty(organizationalUnit), View(*credentials));
    });
}

static std::uint32_t PartDomain(const Credentials* credentials) {
    if (credentials && !IsComplete(credentials)) {
        return kStatusInvalidParameter;
    }
    return AnswerStatus(
        [&](const Host& host) { host.Part(credentials ? std::optional(View(*credentials)) : std::nullopt); });
}

static std::uint32_t GetActiveDomain(NimauthDomainRecord* domain, NimauthRelease* release) {
    if (!domain || !release) {
        return kStatusInvalidParameter;
    }
    Clear(domain, release);
    return AnswerStatus([&](const Host& host) { ReturnDomain(host.ActiveDomain(), domain, release); });
}

static std::uint32_t SetPreferredDomainControllers(const char* const* controllers) {
    if (!controllers) {
        return kStatusInvalidParameter;
    }
    return AnswerStatus([&](const Host& host) { host.SetPreferredControllers(Texts(controllers)); });
}

static std::uint32_t GetPreferredDomainControllers(char*** controllers, NimauthRelease* release) {
    if (!controllers || !release) {
        return kStatusInvalidParameter;
    }
    Clear(controllers, release);
    return AnswerStatus([&](const Host& host) { ReturnTexts(host.PreferredControllers(), controllers, release); });
}

static std::int32_t GetDomainTrustState() {
    return AnswerValue(kTrustStateUnreadable, [](const Host& host) { return host.TrustState(); });
}

static std::uint32_t GetTrustedDomains(NimauthDomainRecord*** domains, NimauthRelease* release) {
    if (!domains || !release) {
        return kStatusInvalidParameter;
    }
    Clear(domains, release);
    return AnswerStatus([&](const Host& host) { ReturnDomains(host.TrustedDomains(), domains, release); });
}

static std::uint32_t GetMachineAccountDN(char** distinguishedName, NimauthRelease* release) {
    if (!distinguishedName || !release) {
        return kStatusInvalidParameter;
    }
    Clear(distinguishedName, release);
    return AnswerStatus([&](const Host& host) { ReturnText(host.MachineAccountDN(), distinguishedName, release); });
}

static std::uint32_t GetAnyDomainController(const char* firstName, const char* domain, char** controller,
                                            NimauthRelease* release) {
    if (!domain || !controller || !release) {
        return kStatusInvalidParameter;
    }
    Clear(controller, release);
    return AnswerStatus(
        [&](const Host& host) { ReturnText(host.AnyController(TextOrEmpty(firstName), domain), controller, release); });
}

static std::uint32_t ConvertCanonicalUsername(const char* name, char** canonicalName, NimauthRelease* release) {
    if (!name || !canonicalName || !release) {
        return kStatusInvalidParameter;
    }
    Clear(canonicalName, release);
    return AnswerStatus([&](const Host& host) { ReturnText(host.CanonicalUserName(name), canonicalName, release); });
}

static std::uint32_t JoinDomainWithMachineAccount(const NimauthDirectoryDomainRecord* domain,
                                                  const NimauthMachineAccountRecord* account) {
    if (!domain || !domain->dnsName || !account || !account->principalField2 || !account->principalField3) {
        return kStatusInvalidParameter;
    }
    return AnswerStatus([&](const Host& host) {
        host.JoinWithMachineAccount(TextOrEmpty(account->hostName),
                                    {domain->dnsName, TextOrEmpty(domain->netbiosName), TextOrEmpty(domain->sid),
                                     account->principalField2, account->principalField3});
    });
}

static std::uint32_t GetHostPrincipalForDomain(const char* domain, char** principal, NimauthRelease* release) {
    if (!domain || !principal || !release) {
        return kStatusInvalidParameter;
    }
    Clear(principal, release);
    return AnswerStatus([&](const Host& host) { ReturnText(host.HostPrincipal(domain), principal, release); });
}

static std::int32_t GetDomainTrustRelationship(const char* domain) {
    return AnswerValue(kRelationshipUnreadable,
                       [&](const Host& host) { return host.TrustRelationship(TextOrEmpty(domain)); });
}

static std::uint32_t SetSmartCardEnabledServices(const char* const* services) {
    if (!services) {
        return kStatusInvalidParameter;
    }
    return AnswerStatus([&](const Host& host) { host.SetSmartCardServices(Texts(services)); });
}

static std::uint32_t GetSmartCardEnabledServices(char*** services, NimauthRelease* release) {
    if (!services || !release) {
        return kStatusInvalidParameter;
    }
    Clear(services, release);
    return AnswerStatus([&](const Host& host) { ReturnTexts(host.SmartCardServices(), services, release); });
}

}  // extern "C"

}  // namespace
}  // namespace nimbrel::ad

// Domain users log in through SSSD.
const NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    NIMAUTH_PROVIDER_API_VERSION, "pam_sss.so", nullptr, "sss", nullptr,
};

const NimauthProviderOperations ActiveDirectoryClientOperations = {
    NIMAUTH_PROVIDER_TABLE_VERSION,
    nimbrel::ad::JoinDomain,
    nimbrel::ad::PartDomain,
    nimbrel::ad::GetActiveDomain,
    nimbrel::ad::SetPreferredDomainControllers,
    nimbrel::ad::GetPreferredDomainControllers,
    nullptr,
    nimbrel::ad::GetDomainTrustState,
    nimbrel::ad::GetTrustedDomains,
    nimbrel::ad::GetMachineAccountDN,
    nimbrel::ad::GetAnyDomainController,
    nimbrel::ad::ConvertCanonicalUsername,
    nimbrel::ad::JoinDomainWithMachineAccount,
    nimbrel::ad::GetHostPrincipalForDomain,
    nimbrel::ad::GetDomainTrustRelationship,
    nimbrel::ad::SetSmartCardEnabledServices,
    nimbrel::ad::GetSmartCardEnabledServices,
};
