// The built plug-in in a private root that has a domain: from the table to the files of the host.

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "addirectory/host.h"
#include "authentication/provider_abi.h"
#include "plugins/ad/domain/domain.h"
#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::HasSubstr;

const NimauthProviderOperations& Table() {
    static void* module = dlopen(NIMAUTH_AD_MODULE, RTLD_LAZY);
    const void* table = module ? dlsym(module, "ActiveDirectoryClientOperations") : nullptr;
    if (!table) {
        ADD_FAILURE() << dlerror();
        std::abort();
    }
    return *static_cast<const NimauthProviderOperations*>(table);
}

class JoinedProvider : public ::testing::Test {
 protected:
    JoinedProvider() {
        std::filesystem::create_directories("/etc/nimbrel/nimauth");
        std::filesystem::remove("/etc/krb5.keytab");
        WriteFile("/etc/nimbrel/nimauth/ad.conf",
                  "name_servers = 127.0.0.1\nname_server_port = " + std::to_string(corp.names->Port()) +
                      "\nldap_port = " + std::to_string(corp.controller.LdapPort()) + "\nkerberos_port = " +
                      std::to_string(corp.controller.KerberosPort()) + "\ncontroller_seconds = 20\n");
        const Credentials credentials = {"admin1", "Secret-1"};
        EXPECT_EQ(Table().joinDomain("corp.test", "Hosts", &credentials), 0U);
    }
    ~JoinedProvider() override {
        if (std::filesystem::exists("/var/lib/nimbrel/ad/membership")) {
            EXPECT_EQ(Table().partDomain(nullptr), 0U);
        }
    }

    static std::string MachineAccountDN() {
        char* text = nullptr;
        NimauthRelease release = nullptr;
        EXPECT_EQ(Table().getMachineAccountDN(&text, &release), 0U);
        const std::string copy = text;
        release(text);
        return copy;
    }

    TestDomain corp;
};

TEST_F(JoinedProvider, JoinWritesWhatLogInsNeed) {
    EXPECT_EQ(MachineAccountDN(), "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    EXPECT_TRUE(corp.entries.Account("NODE01$"));
    EXPECT_EQ(ModeOf("/etc/krb5.keytab"), 0600U);
    const std::string settings = ReadFile("/etc/sssd/conf.d/50-nimauth-domain.conf");
    EXPECT_THAT(settings, HasSubstr("[domain/corp.test]"));
    EXPECT_THAT(settings, HasSubstr("NODE01$"));
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateHealthy);
}

TEST_F(JoinedProvider, LeaveTakesThemAway) {
    const Credentials credentials = {"admin1", "Secret-1"};
    EXPECT_EQ(Table().partDomain(&credentials), 0U);
    EXPECT_FALSE(corp.entries.Account("NODE01$"));
    EXPECT_FALSE(std::filesystem::exists("/etc/sssd/conf.d/50-nimauth-domain.conf"));
    EXPECT_FALSE(std::filesystem::exists("/etc/krb5.keytab"));
}

TEST_F(JoinedProvider, SmartCardServicesAreKept) {
    const char* services[] = {"login", "sshd", nullptr};
    EXPECT_EQ(Table().setSmartCardEnabledServices(services), 0U);
    char** texts = nullptr;
    NimauthRelease release = nullptr;
    ASSERT_EQ(Table().getSmartCardEnabledServices(&texts, &release), 0U);
    EXPECT_STREQ(texts[0], "login");
    EXPECT_STREQ(texts[1], "sshd");
    EXPECT_EQ(texts[2], nullptr);
    release(texts);
}

TEST_F(JoinedProvider, LogInFileThatCannotBeWrittenEndsTheJoin) {
    EXPECT_EQ(Table().partDomain(nullptr), 0U);
    std::filesystem::remove_all("/etc/sssd");
    WriteFile("/etc/sssd", "in the way");
    const Credentials credentials = {"admin1", "Secret-1"};
    EXPECT_NE(Table().joinDomain("corp.test", nullptr, &credentials), 0U);
    EXPECT_FALSE(std::filesystem::exists("/etc/krb5.keytab"));
    EXPECT_FALSE(std::filesystem::exists("/var/lib/nimbrel/ad/membership"));
    EXPECT_EQ(MachineAccountDN(), "");
    std::filesystem::remove("/etc/sssd");
}

}  // namespace
}  // namespace nimbrel::ad::test
