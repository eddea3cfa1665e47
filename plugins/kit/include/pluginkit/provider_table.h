// The operations of a provider's C table, for a host object that does the work.
//
// Each operation checks its pointers (87), empties its results, and hands the rest to the provider's `Host`. No exception
// crosses the C border, and the calling thread is not cancelled in the middle of the work. A provider describes itself by
// a class:
//
//     struct MyProvider {
//         using Host = ...;              // Join, Part, ActiveDomain, ...: one function for each operation
//         using UserCredentials = ...;   // {user name, password}, of texts that stay the caller's
//         static constexpr char kName[] = "mine";  // for the system log
//         // The status or value to answer with in place of the work, or unset.
//         static std::optional<std::int64_t> AnswerInstead(const char* operation, const CancellationShield& shield);
//         // Calls `work` with a host.
//         template <class Work> static void WithHost(const Work& work);
//     };
//
//     const NimauthProviderOperations ActiveDirectoryClientOperations = kit::ProviderTable<MyProvider>::Operations();

#ifndef NIMBREL_PLUGINKIT_PROVIDER_TABLE_H_
#define NIMBREL_PLUGINKIT_PROVIDER_TABLE_H_

#include <unistd.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "authentication/provider_abi.h"
#include "pluginkit/cancellation.h"
#include "pluginkit/failure_log.h"
#include "pluginkit/machine_account_join.h"
#include "pluginkit/results.h"
#include "pluginkit/status_error.h"
#include "pluginkit/trust_values.h"

namespace nimbrel::kit {

template <class Provider>
class ProviderTable {
 public:
    static constexpr NimauthProviderOperations Operations() {
        return {NIMAUTH_PROVIDER_TABLE_VERSION,
                JoinDomain,
                PartDomain,
                GetActiveDomain,
                SetPreferredDomainControllers,
                GetPreferredDomainControllers,
                nullptr,
                GetDomainTrustState,
                GetTrustedDomains,
                GetMachineAccountDN,
                GetAnyDomainController,
                ConvertCanonicalUsername,
                JoinDomainWithMachineAccount,
                GetHostPrincipalForDomain,
                GetDomainTrustRelationship,
                SetSmartCardEnabledServices,
                GetSmartCardEnabledServices};
    }

 private:
    using Host = typename Provider::Host;
    using UserCredentials = typename Provider::UserCredentials;

    template <class Work>
    static std::uint32_t AnswerStatus(const char* operation, const Work& work) {
        const CancellationShield shield;
        if (const std::optional<std::int64_t> instead = Provider::AnswerInstead(operation, shield)) {
            return static_cast<std::uint32_t>(*instead);
        }
        try {
            Provider::WithHost(work);
            return status::kStatusSuccess;
        } catch (...) {
            return StatusOfCurrentException(Provider::kName);
        }
    }

    template <class Work>
    static std::int32_t AnswerValue(const char* operation, std::int32_t fault, const Work& work) {
        const CancellationShield shield;
        if (const std::optional<std::int64_t> instead = Provider::AnswerInstead(operation, shield)) {
            return static_cast<std::int32_t>(*instead);
        }
        try {
            std::int32_t value = fault;
            Provider::WithHost([&](const Host& host) { value = work(host); });
            return value;
        } catch (...) {
            StatusOfCurrentException(Provider::kName);  // for the log: there is no status to answer with
            return fault;
        }
    }

    static std::string TextOrEmpty(const char* text) { return text ? text : ""; }

    static std::vector<std::string> Texts(const char* const* texts) {
        std::vector<std::string> copies;
        for (; *texts; ++texts) {
            copies.emplace_back(*texts);
        }
        return copies;
    }

    static bool IsComplete(const Credentials* credentials) {
        return credentials && credentials->userName && credentials->password;
    }

    // The texts stay the caller's: no copy of the password is made here.
    static UserCredentials View(const Credentials& credentials) { return {credentials.userName, credentials.password}; }

    // Empty if the host has none, which the host object refuses as any malformed one.
    static std::string LocalHostName() {
        std::array<char, 256> name = {};
        return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
    }

    template <class Domain>
    static std::vector<DomainNames> NamesOf(const std::vector<Domain>& domains) {
        std::vector<DomainNames> names;
        names.reserve(domains.size());
        for (const auto& domain : domains) {
            names.push_back({domain.dnsName, domain.netbiosName});
        }
        return names;
    }

    // Nothing is returned unless the work succeeds.
    template <class Result>
    static void Clear(Result* result, NimauthRelease* release) {
        *result = {};
        *release = nullptr;
    }

    template <class Ask>
    static std::uint32_t AnswerText(const char* operation, char** result, NimauthRelease* release, const Ask& ask) {
        Clear(result, release);
        return AnswerStatus(operation, [&](const Host& host) { ReturnText(ask(host), result, release); });
    }

    template <class Ask>
    static std::uint32_t AnswerTexts(const char* operation, char*** result, NimauthRelease* release, const Ask& ask) {
        if (!result || !release) {
            return status::kStatusInvalidParameter;
        }
        Clear(result, release);
        return AnswerStatus(operation, [&](const Host& host) { ReturnTexts(ask(host), result, release); });
    }

    static std::uint32_t JoinDomain(const char* domain, const char* unit, const Credentials* credentials) {
        if (!domain || !IsComplete(credentials)) {
            return status::kStatusInvalidParameter;
        }
        return AnswerStatus("join-domain", [&](const Host& host) {
            host.Join(domain, LocalHostName(), TextOrEmpty(unit), View(*credentials));
        });
    }

    static std::uint32_t PartDomain(const Credentials* credentials) {
        if (credentials && !IsComplete(credentials)) {
            return status::kStatusInvalidParameter;
        }
        return AnswerStatus("part-domain", [&](const Host& host) {
            host.Part(credentials ? std::optional(View(*credentials)) : std::nullopt);
        });
    }

    static std::uint32_t GetActiveDomain(NimauthDomainRecord* domain, NimauthRelease* release) {
        if (!domain || !release) {
            return status::kStatusInvalidParameter;
        }
        Clear(domain, release);
        return AnswerStatus("get-active-domain", [&](const Host& host) {
            const auto active = host.ActiveDomain();
            ReturnDomain({active.dnsName, active.netbiosName}, domain, release);
        });
    }

    static std::uint32_t SetPreferredDomainControllers(const char* const* controllers) {
        if (!controllers) {
            return status::kStatusInvalidParameter;
        }
        return AnswerStatus("set-preferred-domain-controllers",
                            [&](const Host& host) { host.SetPreferredControllers(Texts(controllers)); });
    }

    static std::uint32_t GetPreferredDomainControllers(char*** controllers, NimauthRelease* release) {
        return AnswerTexts("get-preferred-domain-controllers", controllers, release,
                           [](const Host& host) { return host.PreferredControllers(); });
    }

    static std::int32_t GetDomainTrustState() {
        return AnswerValue("get-domain-trust-state", trust::kTrustStateUnreadable,
                           [](const Host& host) { return host.TrustState(); });
    }

    static std::uint32_t GetTrustedDomains(NimauthDomainRecord*** domains, NimauthRelease* release) {
        if (!domains || !release) {
            return status::kStatusInvalidParameter;
        }
        Clear(domains, release);
        return AnswerStatus("get-trusted-domains",
                            [&](const Host& host) { ReturnDomains(NamesOf(host.TrustedDomains()), domains, release); });
    }

    static std::uint32_t GetMachineAccountDN(char** distinguishedName, NimauthRelease* release) {
        if (!distinguishedName || !release) {
            return status::kStatusInvalidParameter;
        }
        return AnswerText("get-machine-account-dn", distinguishedName, release,
                          [](const Host& host) { return host.MachineAccountDN(); });
    }

    static std::uint32_t GetAnyDomainController(const char* firstName, const char* domain, char** controller,
                                                NimauthRelease* release) {
        if (!domain || !controller || !release) {
            return status::kStatusInvalidParameter;
        }
        return AnswerText("get-any-domain-controller", controller, release,
                          [&](const Host& host) { return host.AnyController(TextOrEmpty(firstName), domain); });
    }

    static std::uint32_t ConvertCanonicalUsername(const char* name, char** canonicalName, NimauthRelease* release) {
        if (!name || !canonicalName || !release) {
            return status::kStatusInvalidParameter;
        }
        return AnswerText("convert-canonical-username", canonicalName, release,
                          [&](const Host& host) { return host.CanonicalUserName(name); });
    }

    static std::uint32_t JoinDomainWithMachineAccount(const NimauthDirectoryDomainRecord* domain,
                                                      const NimauthMachineAccountRecord* account) {
        if (!domain || !domain->dnsName || !account || !account->principalField2 || !account->principalField3) {
            return status::kStatusInvalidParameter;
        }
        return AnswerStatus("join-domain-with-machine-account", [&](const Host& host) {
            host.JoinWithMachineAccount(MachineAccountJoin{TextOrEmpty(account->hostName), domain->dnsName,
                                                           TextOrEmpty(domain->netbiosName), TextOrEmpty(domain->sid),
                                                           account->principalField2, account->principalField3});
        });
    }

    static std::uint32_t GetHostPrincipalForDomain(const char* domain, char** principal, NimauthRelease* release) {
        if (!domain || !principal || !release) {
            return status::kStatusInvalidParameter;
        }
        return AnswerText("get-host-principal-for-domain", principal, release,
                          [&](const Host& host) { return host.HostPrincipal(domain); });
    }

    static std::int32_t GetDomainTrustRelationship(const char* domain) {
        return AnswerValue("get-domain-trust-relationship", trust::kRelationshipUnreadable,
                           [&](const Host& host) { return host.TrustRelationship(TextOrEmpty(domain)); });
    }

    static std::uint32_t SetSmartCardEnabledServices(const char* const* services) {
        if (!services) {
            return status::kStatusInvalidParameter;
        }
        return AnswerStatus("set-smart-card-enabled-services",
                            [&](const Host& host) { host.SetSmartCardServices(Texts(services)); });
    }

    static std::uint32_t GetSmartCardEnabledServices(char*** services, NimauthRelease* release) {
        return AnswerTexts("get-smart-card-enabled-services", services, release,
                           [](const Host& host) { return host.SmartCardServices(); });
    }
};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_PROVIDER_TABLE_H_
