// The host-management library over the real configuration store.

#include "advanced_options_contract.h"
#include "host.h"

namespace {

const auto* const kPrivateRoot = host::RequirePrivateRoot();

struct RealHost {
    static void Reset() { std::filesystem::remove_all("/var/lib/nimbrel"); }
};

TEST(AdvancedOptions, FailureOfTheStoreKeepsItsClass) {
    std::filesystem::create_directories("/var/lib/nimbrel");
    WriteFile("/var/lib/nimbrel/configstore.db", "not a database");
    const auto root = HostFactory::GetHost()->GetAdvancedOptions()->GetRootBranch();
    EXPECT_THROW(root->GetBranch("UserVars"), OrbConfigStore::ConfigStoreException);
    EXPECT_THROW(root->GetOption("x"), HostMgmtException);
    RealHost::Reset();
}

TEST(AdvancedOptions, ReadingThemStoresNothing) {
    RealHost::Reset();
    const auto root = HostFactory::GetHost()->GetAdvancedOptions()->GetRootBranch();
    EXPECT_NE(root->GetBranch("UserVars")->GetOption("ActiveDirectoryVerifyAPXCertificate"), nullptr);
    EXPECT_FALSE(std::filesystem::exists("/var/lib/nimbrel"));
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Real, AdvancedOptionsContract, RealHost);
