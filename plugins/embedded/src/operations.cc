// The provider "embedded": a directory held in a SQLite file on this host, for evaluation, air-gapped laboratories and
// rehearsing a management agent. It speaks to no network and is no replacement for a real directory.

#include "authentication/provider_abi.h"
#include "embeddeddirectory/host.h"
#include "pluginkit/provider_table.h"
#include "rehearse.h"

namespace nimbrel::embedded {
namespace {

struct Provider {
    using Host = embedded::Host;
    using UserCredentials = embedded::UserCredentials;

    static constexpr char kName[] = "embedded";

    static std::optional<std::int64_t> AnswerInstead(const char* operation, const kit::CancellationShield& shield) {
        return Rehearse(operation, shield);
    }

    template <class Work>
    static void WithHost(const Work& work) {
        work(Host());
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
