// The provider "ad": real Active Directory domains, over Kerberos, LDAP and DNS.

#include "authentication/provider_abi.h"
#include "call.h"
#include "pluginkit/provider_table.h"

namespace nimbrel::ad {
namespace {

struct Provider {
    using Host = ad::Host;
    using UserCredentials = ad::UserCredentials;
    using MachineAccount = MachineAccountJoin;

    static constexpr std::int32_t kTrustStateFault = kTrustStateUnreadable;
    static constexpr std::int32_t kRelationshipFault = kRelationshipUnreadable;

    template <class Work>
    static std::uint32_t AnswerStatus(const char*, const Work& work) {
        return ad::AnswerStatus(work);
    }
    template <class Work>
    static std::int32_t AnswerValue(const char*, std::int32_t fault, const Work& work) {
        return ad::AnswerValue(fault, work);
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
