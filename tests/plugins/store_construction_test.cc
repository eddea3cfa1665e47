// How the store finds its provider, and what it says when it does not.

#include <filesystem>
#include <stdexcept>

#include "authentication/exceptions.h"
#include "authentication/store_factory.h"
#include "plugins/calls.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

constexpr char kProviderConf[] = "/etc/nimbrel/nimauth/provider.conf";

class StoreConstruction : public ::testing::Test {
 protected:
    StoreConstruction() {
        RemoveProviders();
        std::filesystem::create_directories("/etc/nimbrel/nimauth");
        Closes().count.Reset();
    }

    template <typename Error>
    static std::string Refusal() {
        return TextOf<Error>([] { ActiveDirectoryStore store(kPatient); });
    }
    static std::string Refusal() { return Refusal<InvalidActiveDirectoryProviderException>(); }
};

TEST_F(StoreConstruction, WithoutProviderConfNoProviderIsInstalled) {
    EXPECT_EQ(Refusal(), "The specified Active Directory provider '(none installed)' is invalid");
}

TEST_F(StoreConstruction, AProviderConfThatCannotBeReadCountsAsNone) {
    std::filesystem::create_directories(kProviderConf);
    EXPECT_EQ(Refusal(), "The specified Active Directory provider '(none installed)' is invalid");
}

TEST_F(StoreConstruction, AnEmptyProviderIsUnset) {
    for (const char* line : {"provider =\n", "provider = \"\"\n", "provider=''\n"}) {
        ConfigureProvider(line);
        EXPECT_EQ(Refusal(), "The specified Active Directory provider '(unset)' is invalid") << line;
    }
}

TEST_F(StoreConstruction, AMissingKeyPassesUnchanged) {
    ConfigureProvider("providers = \"named_first\"\n");
    EXPECT_EQ(Refusal<InvalidKeyException>(), "The specified key 'provider' was not found in this configuration");
    ConfigureProvider("");
    EXPECT_EQ(Refusal<InvalidKeyException>(), "The specified key 'provider' was not found in this configuration");
}

TEST_F(StoreConstruction, AMalformedFilePassesUnchanged) {
    ConfigureProvider("provider named_first\n");
    EXPECT_NE(Refusal<ConfigurationError>(), "(nothing was thrown)");
}

TEST_F(StoreConstruction, AProviderThatCannotBeLoadedIsNamedWithoutTheLoadersText) {
    ConfigureProvider("provider = \"absent\"\n");
    EXPECT_EQ(Refusal(), "The specified Active Directory provider 'absent' is invalid");
    EXPECT_EQ(Closes().count.Get(), 0);
}

TEST_F(StoreConstruction, AnUnfitProviderPassesWithItsReasonAndIsClosed) {
    InstallProvider("api_version_4");
    ConfigureProvider("provider = \"api_version_4\"\n");
    EXPECT_EQ(Refusal(),
              "The specified Active Directory provider 'api_version_4' is invalid: The API version (4) is not "
              "supported by this version of libnimauth");
    EXPECT_EQ(Closes().count.Get(), 1);

    InstallProvider("no_operations");
    ConfigureProvider("provider = \"no_operations\"\n");
    EXPECT_EQ(Refusal(), "The specified Active Directory provider 'no_operations' is invalid: " +
                             ProviderPath("no_operations") + ": undefined symbol: ActiveDirectoryClientOperations");
    EXPECT_EQ(Closes().count.Get(), 2);
}

TEST_F(StoreConstruction, AProviderWithoutModuleNamesIsALogicError) {
    InstallProvider("null_nss_module");
    ConfigureProvider("provider = \"null_nss_module\"\n");
    EXPECT_THROW(ActiveDirectoryStore{kPatient}, std::logic_error);
}

TEST_F(StoreConstruction, TheFactoryMakesOneOnTheConfiguredProvider) {
    AuthenticationStoreFactory& factory = *Singleton<AuthenticationStoreFactory>::_instance;
    EXPECT_THROW(factory.CreateInstance("Active Directory"), InvalidActiveDirectoryProviderException);
    InstallProvider("named_first");
    ConfigureProvider("  provider\t=  'named_first'  \n\nother = 1\n");
    const std::unique_ptr<AuthenticationStore> store = factory.CreateInstance("Active Directory");
    EXPECT_EQ(store->GetDisplayName(), "Active Directory");
    EXPECT_TRUE(IsLoaded(ProviderPath("named_first")));
}

TEST_F(StoreConstruction, NeitherMakingNorEndingAStoreAsksTheProvider) {
    InstallProvider("scripted");
    ConfigureProvider("provider = \"scripted\"\n");
    const Plugin<ScriptedControl> plugin("scripted");
    plugin->reset();
    { const ActiveDirectoryStore store(kPatient); }
    EXPECT_EQ(plugin->order(nullptr, 0), 0);
    EXPECT_EQ(Closes().count.Get(), 1);
}

}  // namespace
}  // namespace nimbrel::authentication::test
