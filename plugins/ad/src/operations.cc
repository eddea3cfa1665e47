// The provider "ad": real Active Directory domains, over Kerberos, LDAP and DNS.

#include "addirectory/host.h"
#include "authentication/provider_abi.h"
#include "gate.h"
#include "log_in_software.h"
#include "pluginkit/provider_table.h"

namespace nimbrel::ad {
namespace {

struct Provider {
    using Host = ad::Host;
    using UserCredentials = ad::UserCredentials;

    static constexpr char kName[] = "ad";

    static std::optional<std::int64_t> AnswerInstead(const char*, const kit::CancellationShield&) { return {}; }

    // Inside the gate: neither a fork nor an exit of the process falls into the work. The settings are those of this
    // moment.
    template <class Work>
    static void WithHost(const Work& work) {
        const InsideGate gate;
        const Settings settings = Settings::Load();
        DomainLogInSoftware logIns(settings);
        work(Host(settings, logIns));
    }
};

}  // namespace
}  // namespace nimbrel::ad

// Domain users log in through SSSD.
const NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    NIMAUTH_PROVIDER_API_VERSION, "pam_sss.so", nullptr, "sss", nullptr,
};

const NimauthProviderOperations ActiveDirectoryClientOperations =
    nimbrel::kit::ProviderTable<nimbrel::ad::Provider>::Operations();
