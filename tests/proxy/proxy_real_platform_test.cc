// A life with the proxy over the real platform: the SQLite configuration store, the hosts file, the resolver's file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "hostmgmt/advanced_options.h"
#include "proxy/certificates.h"
#include "proxy/journal.h"
#include "proxy/root.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kStoreFolder = "/var/lib/nimbrel";
constexpr const char* kHosts = "/etc/hosts";
constexpr const char* kResolver = "/etc/resolv.conf";
constexpr const char* kOption = "UserVars.ActiveDirectoryVerifyAPXCertificate";

class ProxyOnRealPlatform : public ::testing::Test {
 protected:
    ProxyOnRealPlatform() {
        Remove(kStoreFolder);
        WriteSystemFile(kHosts, "127.0.0.1 localhost\n192.0.2.10\tnode01  # management\n192.0.2.53 lab.test\n");
        WriteSystemFile(kResolver, "nameserver 127.0.0.1\n");
        Install("scripted_proxy", "scripted_proxy");
        WriteSystemFile("/etc/nimbrel/nimauth/apxprovider.conf", "provider = \"scripted_proxy\"\n");
        Script::Reset();
        Journal::Clear();
    }
    ~ProxyOnRealPlatform() override {
        Journal::WhenAdded(nullptr);
        EXPECT_FALSE(IsLoaded("/usr/libexec/nimauth/libscripted_proxy.so"));
    }

    static ActiveDirectoryStore MakeStore() {
        Install("scripted_provider", "scripted_provider");
        WriteSystemFile(kProviderFile, "provider = \"scripted_provider\"\n");
        return ActiveDirectoryStore(60);
    }
    static void SetVerifyOption(std::int64_t value) {
        HostMgmt::HostFactory::GetHost()->GetAdvancedOptions()->DeclareInteger(kOption, value, "");
    }

    std::string Join(const std::string& organizationalUnit = "", bool skipHostnameCheck = false) {
        return Outcome([&] { store.JoinDomainWithAPX("192.0.2.7", organizationalUnit, skipHostnameCheck); });
    }

    // "domain_name, organizational_unit, auth_proxy_address", or what reading them throws.
    static std::string Settings() {
        try {
            ActiveDirectoryConfigStore settings;
            return settings.GetDomainName() + ", " + settings.GetOrganizationalUnit() + ", " +
                   settings.GetAuthProxyAddr();
        } catch (const std::exception& error) {
            return Describe(error);
        }
    }
    static constexpr const char* kNoSettings = "ConfigurationError: Failed to get the requested object";

    ActiveDirectoryStore store = MakeStore();
};

TEST_F(ProxyOnRealPlatform, ImportJoinLeaveAndJoinAgain) {
    const std::string certificate = MakeCertificate("ed25519");
    store.ImportCertificateForAPX(certificate);
    for (int round = 1; round <= 2; ++round) {
        EXPECT_EQ(Settings(), kNoSettings);
        EXPECT_EQ(Join("OU=Hosts"), "success");
        EXPECT_EQ(Settings(), "corp.test, OU=Hosts, 192.0.2.7");
        store.PartDomain();
    }
    EXPECT_EQ(Settings(), kNoSettings);
    EXPECT_EQ(ActiveDirectoryConfigStore().GetThumbprint(), FingerprintOf(certificate));
    EXPECT_EQ(ActiveDirectoryConfigStore().GetCertificate(), certificate);
    EXPECT_EQ(Journal::Lines("account").front(),
              "account(192.0.2.7, node01, OU=Hosts, 1, " + FingerprintOf(certificate) + ", " + certificate + ")");
}

// The resolver answers from the file that the check has just changed: the name that the account gets is the earlier one.
TEST_F(ProxyOnRealPlatform, TheHostIsGivenItsNameInTheProxysDomain) {
    SetVerifyOption(0);
    EXPECT_EQ(Join(), "success");
    EXPECT_EQ(ReadFile(kHosts),
              "127.0.0.1 localhost\n192.0.2.10\tnode01.corp.test node01  # management\n192.0.2.53 lab.test\n");
    EXPECT_EQ(ReadFile(kResolver), "nameserver 127.0.0.1\n");
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01, null, 0, , null)"));
    EXPECT_EQ(Join(), "success");
    EXPECT_EQ(Journal::Lines("account").back(), "account(192.0.2.7, node01.corp.test, null, 0, , null)");
}

TEST_F(ProxyOnRealPlatform, ADomainThatResolvesIsSearchedFromThenOn) {
    SetVerifyOption(0);
    WriteSystemFile(kHosts, "192.0.2.10 node01.corp.test node01\n192.0.2.53 lab.test\n");
    Script::SetText("dns", "lab.test");
    EXPECT_EQ(Join(), "success");
    EXPECT_THAT(ReadFile(kResolver), HasSubstr("search lab.test"));
    EXPECT_THAT(Journal::Lines("warning"),
                ElementsAre("warning: The fully qualified hostname node01.corp.test does not "
                            "match the expected value node01.lab.test\n"));
    EXPECT_EQ(Settings(), "lab.test, , 192.0.2.7");
}

TEST_F(ProxyOnRealPlatform, WithoutTheCheckNoFileOfTheHostChanges) {
    SetVerifyOption(0);
    const std::string hosts = ReadFile(kHosts);
    EXPECT_EQ(Join("", true), "success");
    EXPECT_EQ(ReadFile(kHosts), hosts);
    EXPECT_EQ(ReadFile(kResolver), "nameserver 127.0.0.1\n");
}

TEST_F(ProxyOnRealPlatform, AHostThatItsFilesDoNotKnowIsRefused) {
    SetVerifyOption(0);
    ASSERT_EQ(sethostname("stranger", std::strlen("stranger")), 0);
    EXPECT_EQ(Join(), "InvalidHostNameException: The current hostname is invalid: hostname cannot be resolved");
    EXPECT_THAT(Journal::Lines("proxy"), IsEmpty());
    ASSERT_EQ(sethostname("node01", std::strlen("node01")), 0);
}

TEST_F(ProxyOnRealPlatform, AFreshHostVerifiesAndHasImportedNothing) {
    EXPECT_EQ(Join(),
              "InvalidThumbprintStoreException: The specified thumbprint store 'auth_proxy_certificate' is "
              "invalid");
    EXPECT_THAT(Journal::Lines(), ElementsAre("error: Unable to fetch thumbprint from Config Store: Failed to get the "
                                              "requested object"));
}

TEST_F(ProxyOnRealPlatform, ADiskThatIsFullAfterTheJoinMakesTheHostLeaveAgain) {
    const MountedOver disk(kStoreFolder, "size=256k");
    SetVerifyOption(0);
    Journal::WhenAdded([&](const std::string& line) {
        if (line.rfind("join", 0) == 0) disk.Fill();
    });
    EXPECT_THAT(Join(), StartsWith("ConfigStoreException: "));
    Journal::WhenAdded(nullptr);
    const std::vector<std::string> lines = Journal::Lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_THAT(lines[lines.size() - 3], StartsWith("error: Failed to store domain details to Config Store: "));
    EXPECT_THAT(lines[lines.size() - 3], testing::EndsWith(".Leaving Domain..."));
    EXPECT_EQ(lines[lines.size() - 2], "part(null)");
    EXPECT_EQ(lines[lines.size() - 1], "proxy closed");
    Remove(std::string(kStoreFolder) + "/filler");
    EXPECT_EQ(Settings(), kNoSettings);
}

TEST_F(ProxyOnRealPlatform, AFullDiskRefusesAnImportAndKeepsTheOldCertificate) {
    const std::string first = MakeCertificate("ed25519");
    const std::string second = MakeCertificate("ed25519");
    const MountedOver disk(kStoreFolder, "size=256k");
    store.ImportCertificateForAPX(first);
    disk.Fill();
    EXPECT_THAT(Outcome([&] { store.ImportCertificateForAPX(second); }), StartsWith("ConfigStoreException: "));
    EXPECT_EQ(Journal::Lines("error: Failed to store thumbprint to Config Store: ").size(), 1u);
    Remove(std::string(kStoreFolder) + "/filler");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetCertificate(), first);
}

TEST_F(ProxyOnRealPlatform, ADamagedStoreIsAnOptionThatCannotBeRead) {
    WriteSystemFile("/var/lib/nimbrel/configstore.db", "no database at all");
    EXPECT_EQ(Join(),
              "InvalidVerifyAPXCertificateOptionException: The VerifyAPXCertificate option is invalid: Unable to get "
              "advanced option UserVars.ActiveDirectoryVerifyAPXCertificate");
    EXPECT_THAT(Journal::Lines(), IsEmpty());
}

}  // namespace
}  // namespace nimbrel::authentication::test
