// The provider "embedded": a directory held in a SQLite file on this host, for evaluation, air-gapped laboratories and
// rehearsing a management agent. It speaks to no network and is no replacement for a real directory.

#include "authentication/provider_abi.h"
#include "call.h"
#include "pluginkit/provider_table.h"

namespace nimbrel::embedded {
namespace {

// Each operation does what is rehearsed for it first.
struct Provider {
    using Host = embedded::Host;
    using UserCredentials = embedded::UserCredentials;
    using MachineAccount = MachineAccountJoin;

    static constexpr std::int32_t kTrustStateFault = kTrustStateUnreadable;
    static constexpr std::int32_t kRelationshipFault = kRelationshipUnreadable;

    template <class Work>
    static std::uint32_t AnswerStatus(const char* operation, const Work& work) {
        return embedded::AnswerStatus(operation, work);
    }
    template <class Work>
    static std::int32_t AnswerValue(const char* operation, std::int32_t fault, const Work& work) {
        return embedded::AnswerValue(operation, fault, work);
    }
};

}  // namespace
}  // namespace nimbrel::embedded

// Both come with this provider (see logins/) and let the users of the joined domain log in on this host.
const NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    NIMAUTH_PROVIDER_API_VERSION, "pam_nimauth_embedded.so", nullptr, "nimembedded", nullptr,
};

const NimauthProviderOperations ActiveDirectoryClientOperations =
    nimbrel::kit::ProviderTable<nimbrel::embedded::Provider>::Operations();
