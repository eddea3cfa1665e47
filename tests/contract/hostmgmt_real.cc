// The host-management library over the real configuration store.

#include <atomic>
#include <thread>

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

// Two locks are taken, and by a fork in the same order.
TEST(AdvancedOptions, ForkedChildrenOfABusyProcessChangeThem) {
    RealHost::Reset();
    const auto options = HostFactory::GetHost()->GetAdvancedOptions();
    std::atomic<bool> stop = false;
    std::thread busy([&] {
        while (!stop) options->DeclareInteger("A.x", 1, "");
    });
    for (int i = 0; i < 20; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            try {
                options->DeclareInteger("B.y", i, "");
                options->Remove("B.y");
                _exit(0);
            } catch (...) {
                _exit(1);
            }
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "round " << i;
    }
    stop = true;
    busy.join();
    RealHost::Reset();
}

TEST(AdvancedOptions, RemovedOptionIsNotBroughtBackByOneWhoSetsIt) {
    const auto options = HostFactory::GetHost()->GetAdvancedOptions();
    for (int round = 0; round < 60; ++round) {
        options->DeclareInteger("A.x", 0, "");
        const auto option =
            std::dynamic_pointer_cast<AdvancedIntegerOption>(options->GetRootBranch()->GetBranch("A")->GetOption("x"));
        ASSERT_NE(option, nullptr);
        std::thread setter([&] {
            try {
                for (int value = 0;; ++value) option->SetValue(value);
            } catch (const HostMgmtException&) {  // it has been removed
            }
        });
        while (option->GetValue() < 3) {
        }
        options->Remove("A.x");
        setter.join();
        EXPECT_EQ(options->GetRootBranch()->GetBranch("A"), nullptr);
        EXPECT_EQ(options->GetRootBranch()->GetOption("x"), nullptr);
    }
    RealHost::Reset();
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Real, AdvancedOptionsContract, RealHost);
