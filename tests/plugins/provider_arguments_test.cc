// What a provider is given, byte for byte.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "authentication/provider.h"
#include "plugins/misbehaving/recording.h"
#include "plugins/provider_root.h"

namespace nimbrel::authentication::test {
namespace {

class ProviderArguments : public ::testing::Test {
 protected:
    ProviderArguments() : plugin(Installed()), provider("recording") {}

    // What the provider wrote down of its last call.
    std::string Seen() { return plugin->lastCall(); }

    Plugin<RecordingControl> plugin;
    const ActiveDirectoryProvider provider;

 private:
    static std::string Installed() {
        RemoveProviders();
        InstallProvider("recording");
        return "recording";
    }
};

TEST_F(ProviderArguments, OfAJoin) {
    provider.JoinDomain("corp.test", "OU=Hosts/Sub", {"user", "secret"});
    EXPECT_EQ(Seen(), "joinDomain(corp.test, OU=Hosts/Sub, {user, secret})");
}

TEST_F(ProviderArguments, AnEmptyOrganizationalUnitIsNull) {
    provider.JoinDomain("corp.test", "", {"user", "secret"});
    EXPECT_EQ(Seen(), "joinDomain(corp.test, null, {user, secret})");
}

TEST_F(ProviderArguments, AnEmptyDomainIsAnEmptyText) {
    provider.JoinDomain("", "OU=Hosts", {"user", "secret"});
    EXPECT_EQ(Seen(), "joinDomain(, OU=Hosts, {user, secret})");
}

TEST_F(ProviderArguments, CredentialsPassAsTheyAre) {
    const Credentials credentials{nullptr, ""};
    provider.JoinDomain("corp.test", "", credentials);
    EXPECT_EQ(Seen(), "joinDomain(corp.test, null, {null, })");
    EXPECT_EQ(plugin->lastAddress(), &credentials);

    const Credentials others{"", nullptr};
    provider.PartDomain(others);
    EXPECT_EQ(Seen(), "partDomain({, null})");
    EXPECT_EQ(plugin->lastAddress(), &others);
}

TEST_F(ProviderArguments, ALeaveWithoutCredentialsPassesNull) {
    provider.PartDomain();
    EXPECT_EQ(Seen(), "partDomain(null)");
}

TEST_F(ProviderArguments, ListsEndWithANullAndKeepTheirOrder) {
    provider.SetPreferredDomainControllers({"dc2", "", "dc1"});
    EXPECT_EQ(Seen(), "setPreferredDomainControllers([dc2, , dc1])");
    provider.SetSmartCardEnabledServices({"sshd", "login"});
    EXPECT_EQ(Seen(), "setSmartCardEnabledServices([sshd, login])");
}

TEST_F(ProviderArguments, AnEmptyListIsAnArrayOfOnlyTheNull) {
    provider.SetPreferredDomainControllers({});
    EXPECT_EQ(Seen(), "setPreferredDomainControllers([])");
    EXPECT_NE(plugin->lastAddress(), nullptr);
    provider.SetSmartCardEnabledServices({});
    EXPECT_EQ(Seen(), "setSmartCardEnabledServices([])");
    EXPECT_NE(plugin->lastAddress(), nullptr);
}

TEST_F(ProviderArguments, TextOutputsStartNull) {
    provider.GetMachineAccountDN();
    EXPECT_EQ(Seen(), "getMachineAccountDN(null)");
    provider.ConvertCanonicalUsername("user");
    EXPECT_EQ(Seen(), "convertCanonicalUsername(user, null)");
    provider.GetHostPrincipalForDomain("corp.test");
    EXPECT_EQ(Seen(), "getHostPrincipalForDomain(corp.test, null)");
}

TEST_F(ProviderArguments, OnlyTheFirstNameOfAControllerQuestionIsNullWhenEmpty) {
    provider.GetAnyDomainController("first", "corp.test");
    EXPECT_EQ(Seen(), "getAnyDomainController(first, corp.test, null)");
    provider.GetAnyDomainController("", "");
    EXPECT_EQ(Seen(), "getAnyDomainController(null, , null)");
}

TEST_F(ProviderArguments, EmptyNamesOfOtherQuestionsAreEmptyTexts) {
    provider.ConvertCanonicalUsername("");
    EXPECT_EQ(Seen(), "convertCanonicalUsername(, null)");
    provider.GetHostPrincipalForDomain("");
    EXPECT_EQ(Seen(), "getHostPrincipalForDomain(, null)");
    provider.GetDomainTrustRelationship("");
    EXPECT_EQ(Seen(), "getDomainTrustRelationship()");
    provider.GetDomainTrustRelationship("lab.test");
    EXPECT_EQ(Seen(), "getDomainTrustRelationship(lab.test)");
}

TEST_F(ProviderArguments, MachineAccountRecordsCarryTheirFieldsInOrder) {
    provider.JoinDomainWithMachineAccount({"r", "CORP", "corp.test", "S-1-5-21-1-2-3"},
                                          {"node01", "corp.test", "s", "field2", "field3"});
    EXPECT_EQ(Seen(),
              "joinDomainWithMachineAccount({r, CORP, corp.test, S-1-5-21-1-2-3}, "
              "{node01, corp.test, s, field2, field3})");
}

TEST_F(ProviderArguments, EmptyFieldsOfMachineAccountRecordsAreEmptyTexts) {
    provider.JoinDomainWithMachineAccount({}, {});
    EXPECT_EQ(Seen(), "joinDomainWithMachineAccount({, , , }, {, , , , })");
}

}  // namespace
}  // namespace nimbrel::authentication::test
