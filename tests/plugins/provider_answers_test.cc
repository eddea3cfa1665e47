// What a provider's answers become, and what becomes of its outputs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "authentication/exceptions.h"
#include "authentication/provider.h"
#include "plugins/misbehaving/counting.h"
#include "plugins/misbehaving/null_answers.h"
#include "plugins/misbehaving/scripted.h"
#include "plugins/provider_root.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Call = std::function<void(const ActiveDirectoryProvider&)>;

const Credentials kUser{"user", "secret"};
const APX::DirectoryDomainInfo kDomain{"", "CORP", "corp.test", "S-1-5-21-1-2-3"};
const APX::MachineAccountInfo kAccount{"node01", "corp.test", "", "principal", "ticket"};

// Every operation, by its slot.
struct Operation {
    int slot;
    const char* name;
    Call call;
};
const std::vector<Operation>& Operations() {
    using P = ActiveDirectoryProvider;
    static const std::vector<Operation> operations = {
        {kJoinDomain, "JoinDomain", [](const P& p) { p.JoinDomain("corp.test", "", kUser); }},
        {kPartDomain, "PartDomain()", [](const P& p) { p.PartDomain(); }},
        {kPartDomain, "PartDomain(credentials)", [](const P& p) { p.PartDomain(kUser); }},
        {kGetActiveDomain, "GetActiveDomain", [](const P& p) { p.GetActiveDomain(); }},
        {kSetPreferredDomainControllers, "SetPreferredDomainControllers",
         [](const P& p) { p.SetPreferredDomainControllers({"dc1"}); }},
        {kGetPreferredDomainControllers, "GetPreferredDomainControllers",
         [](const P& p) { p.GetPreferredDomainControllers(); }},
        {kGetDomainTrustState, "GetDomainTrustState", [](const P& p) { p.GetDomainTrustState(); }},
        {kGetTrustedDomains, "GetTrustedDomains", [](const P& p) { p.GetTrustedDomains(); }},
        {kGetMachineAccountDN, "GetMachineAccountDN", [](const P& p) { p.GetMachineAccountDN(); }},
        {kGetAnyDomainController, "GetAnyDomainController",
         [](const P& p) { p.GetAnyDomainController("", "corp.test"); }},
        {kConvertCanonicalUsername, "ConvertCanonicalUsername", [](const P& p) { p.ConvertCanonicalUsername("user"); }},
        {kJoinDomainWithMachineAccount, "JoinDomainWithMachineAccount",
         [](const P& p) { p.JoinDomainWithMachineAccount(kDomain, kAccount); }},
        {kGetHostPrincipalForDomain, "GetHostPrincipalForDomain",
         [](const P& p) { p.GetHostPrincipalForDomain("corp.test"); }},
        {kGetDomainTrustRelationship, "GetDomainTrustRelationship",
         [](const P& p) { p.GetDomainTrustRelationship("lab.test"); }},
        {kSetSmartCardEnabledServices, "SetSmartCardEnabledServices",
         [](const P& p) { p.SetSmartCardEnabledServices({"login"}); }},
        {kGetSmartCardEnabledServices, "GetSmartCardEnabledServices",
         [](const P& p) { p.GetSmartCardEnabledServices(); }}};
    return operations;
}

// The operations that return something of the plug-in's.
bool HasOutput(const Operation& operation) {
    switch (operation.slot) {
        case kGetActiveDomain:
        case kGetPreferredDomainControllers:
        case kGetTrustedDomains:
        case kGetMachineAccountDN:
        case kGetAnyDomainController:
        case kConvertCanonicalUsername:
        case kGetHostPrincipalForDomain:
        case kGetSmartCardEnabledServices:
            return true;
        default:
            return false;
    }
}

std::string Loaded(const std::string& name) {
    InstallProvider(name);
    return name;
}

template <typename Control>
class WithProvider : public ::testing::Test {
 protected:
    explicit WithProvider(const std::string& name) : plugin((RemoveProviders(), Loaded(name))), provider(name) {}

    Plugin<Control> plugin;
    const ActiveDirectoryProvider provider;
};

class ProviderAnswers : public WithProvider<ScriptedControl> {
 protected:
    ProviderAnswers() : WithProvider("scripted") { plugin->reset(); }
};

std::vector<std::pair<std::string, std::string>> Pairs(const std::deque<Domain>& domains) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const Domain& domain : domains) pairs.emplace_back(domain.DNSName(), domain.NetBIOSName());
    return pairs;
}

// ---------------------------------------------------------------- answers

TEST_F(ProviderAnswers, SingleTextsAreCopied) {
    plugin->setText(kGetMachineAccountDN, "CN=node01,DC=corp,DC=test");
    plugin->setText(kGetAnyDomainController, "dc1.corp.test");
    plugin->setText(kConvertCanonicalUsername, "CORP\\user");
    plugin->setText(kGetHostPrincipalForDomain, "host/node01@CORP.TEST");
    EXPECT_EQ(provider.GetMachineAccountDN(), "CN=node01,DC=corp,DC=test");
    EXPECT_EQ(provider.GetAnyDomainController("", "corp.test"), "dc1.corp.test");
    EXPECT_EQ(provider.ConvertCanonicalUsername("user"), "CORP\\user");
    EXPECT_EQ(provider.GetHostPrincipalForDomain("corp.test"), "host/node01@CORP.TEST");
}

TEST_F(ProviderAnswers, ListsKeepTheirOrderAndTheirEmptyTexts) {
    const char* const controllers[] = {"b", "", "a", "b", nullptr};
    const char* const services[] = {"login", "sshd", nullptr};
    plugin->setTexts(kGetPreferredDomainControllers, controllers);
    plugin->setTexts(kGetSmartCardEnabledServices, services);
    EXPECT_THAT(provider.GetPreferredDomainControllers(), ElementsAre("b", "", "a", "b"));
    EXPECT_THAT(provider.GetSmartCardEnabledServices(), ElementsAre("login", "sshd"));
}

TEST_F(ProviderAnswers, ArraysWhoseFirstEntryIsNullAreEmpty) {
    EXPECT_THAT(provider.GetPreferredDomainControllers(), IsEmpty());
    EXPECT_THAT(provider.GetSmartCardEnabledServices(), IsEmpty());
    EXPECT_THAT(provider.GetTrustedDomains(), IsEmpty());
}

TEST_F(ProviderAnswers, DomainsKeepTheirOrderAndANullNameIsEmpty) {
    const char* const domains[] = {"lab.test", "LAB", "a.test", nullptr, "", "B", nullptr};
    plugin->setTexts(kGetTrustedDomains, domains);
    EXPECT_THAT(Pairs(provider.GetTrustedDomains()),
                ElementsAre(std::pair("lab.test", "LAB"), std::pair("a.test", ""), std::pair("", "B")));
}

TEST_F(ProviderAnswers, EachNameOfTheActiveDomainMayBeNull) {
    const char* const both[] = {"corp.test", "CORP"};
    const char* const dns[] = {"corp.test", nullptr};
    const char* const netbios[] = {nullptr, "CORP"};
    const char* const none[] = {nullptr, nullptr};
    const struct {
        const char* const* texts;
        std::pair<std::string, std::string> names;
    } kRows[] = {{both, {"corp.test", "CORP"}}, {dns, {"corp.test", ""}}, {netbios, {"", "CORP"}}, {none, {"", ""}}};
    for (const auto& row : kRows) {
        plugin->setTexts(kGetActiveDomain, row.texts);
        EXPECT_THAT(Pairs({provider.GetActiveDomain()}), ElementsAre(row.names));
    }
}

TEST_F(ProviderAnswers, TrustValuesPassUnchanged) {
    for (std::int32_t value : {0, 1, 2, 7, 120, 1326, -1, INT32_MAX, INT32_MIN}) {
        plugin->setValue(kGetDomainTrustState, value);
        plugin->setValue(kGetDomainTrustRelationship, value);
        EXPECT_EQ(static_cast<std::int32_t>(provider.GetDomainTrustState()), value);
        EXPECT_EQ(static_cast<std::int32_t>(provider.GetDomainTrustRelationship("lab.test")), value);
    }
}

TEST_F(ProviderAnswers, TheSixthSlotIsNeverCalled) {
    for (const Operation& operation : Operations()) operation.call(provider);
    EXPECT_EQ(plugin->calls(kUnused), 0);
}

// ---------------------------------------------------------------- failures

TEST_F(ProviderAnswers, EveryStatusBecomesItsException) {
    for (const Operation& operation : Operations()) {
        if (operation.slot == kGetDomainTrustState || operation.slot == kGetDomainTrustRelationship) continue;
        plugin->setStatus(operation.slot, 5);
        EXPECT_THROW(operation.call(provider), AccessDeniedException) << operation.name;
        plugin->setStatus(operation.slot, 2);
        EXPECT_THROW(operation.call(provider), FileNotFoundException) << operation.name;
        plugin->setStatus(operation.slot, 120);
        EXPECT_THROW(operation.call(provider), CallNotImplementedException) << operation.name;
        plugin->setStatus(operation.slot, 0x80000001);
        EXPECT_THROW(operation.call(provider), UnknownException) << operation.name;
        plugin->setStatus(operation.slot, 0);
        EXPECT_NO_THROW(operation.call(provider)) << operation.name;
    }
}

TEST_F(ProviderAnswers, AMissingOperationIsNotImplemented) {
    for (const Operation& operation : Operations()) {
        plugin->setPresent(operation.slot, false);
        EXPECT_THROW(operation.call(provider), CallNotImplementedException) << operation.name;
        plugin->setPresent(operation.slot, true);
        EXPECT_NO_THROW(operation.call(provider)) << operation.name;
    }
}

TEST(ProviderTable, ATableOfNullsAnswersEveryCallAlike) {
    RemoveProviders();
    InstallProvider("null_slots");
    const ActiveDirectoryProvider provider("null_slots");
    for (const Operation& operation : Operations()) {
        try {
            operation.call(provider);
            ADD_FAILURE() << operation.name;
        } catch (const CallNotImplementedException& error) {
            EXPECT_STREQ(error.what(), "Exception 0x00000078: This function is not supported on this system.");
        }
    }
}

TEST(ProviderTable, SlotsTwelveAndThirteenNeedTableVersionTwo) {
    RemoveProviders();
    for (int version : {INT32_MIN, -1, 0, 1, 2, 3, INT32_MAX}) {
        const std::string name = "table_version_" + std::to_string(version);
        InstallProvider(name);
        const ActiveDirectoryProvider provider(name);
        EXPECT_EQ(provider.GetAPIVersion(), version);
        if (version < 2) {
            EXPECT_THROW(provider.JoinDomainWithMachineAccount(kDomain, kAccount), CallNotImplementedException);
            EXPECT_THROW(provider.GetHostPrincipalForDomain("d"), CallNotImplementedException);
        } else {
            EXPECT_NO_THROW(provider.JoinDomainWithMachineAccount(kDomain, kAccount));
            EXPECT_EQ(provider.GetHostPrincipalForDomain("d"), "d");
        }
    }
}

// ---------------------------------------------------------------- ownership

class ProviderOutputs : public WithProvider<CountingControl> {
 protected:
    ProviderOutputs() : WithProvider("counting") {}
    ~ProviderOutputs() override { plugin->takeBack(); }
};

TEST_F(ProviderOutputs, EachIsReleasedOnceThroughItsOwnFunction) {
    for (const Operation& operation : Operations()) {
        if (!HasOutput(operation)) continue;
        operation.call(provider);
        const int outputs = operation.slot == kGetActiveDomain ? 2 : 1;
        EXPECT_EQ(plugin->given(), outputs) << operation.name;
        EXPECT_EQ(plugin->released(), outputs) << operation.name;
        EXPECT_EQ(plugin->wrong(), 0) << operation.name;
        plugin->takeBack();
    }
}

// A released output is overwritten at once, so a late copy would show it.
TEST_F(ProviderOutputs, AreCopiedBeforeTheyAreReleased) {
    EXPECT_THAT(Pairs({provider.GetActiveDomain()}), ElementsAre(std::pair("corp.test", "CORP")));
    EXPECT_THAT(provider.GetPreferredDomainControllers(), ElementsAre("dc1.corp.test", "", "dc2.corp.test"));
    EXPECT_THAT(Pairs(provider.GetTrustedDomains()),
                ElementsAre(std::pair("lab.test", "LAB"), std::pair("", ""), std::pair("sub.lab.test", "SUB")));
    EXPECT_EQ(provider.GetMachineAccountDN(), "answer");
    EXPECT_EQ(provider.GetAnyDomainController("", ""), "answer");
    EXPECT_EQ(provider.ConvertCanonicalUsername(""), "answer");
    EXPECT_EQ(provider.GetHostPrincipalForDomain(""), "answer");
    EXPECT_THAT(provider.GetSmartCardEnabledServices(), ElementsAre("dc1.corp.test", "", "dc2.corp.test"));
}

TEST_F(ProviderOutputs, OfAFailedCallAreNotReleased) {
    for (const Operation& operation : Operations()) {
        if (!HasOutput(operation)) continue;
        for (std::uint32_t status : {2u, 5u, 120u, 1326u, 0xFFFF0000u, 0xFFFFFFFFu}) {
            plugin->setStatus(status);
            EXPECT_THROW(operation.call(provider), Exception) << operation.name << ' ' << status;
            EXPECT_EQ(plugin->released() + plugin->wrong(), 0) << operation.name << ' ' << status;
            plugin->takeBack();
        }
    }
}

TEST(ProviderNulls, AreEmptyAnswersAndNotReleased) {
    RemoveProviders();
    InstallProvider("null_answers");
    const Plugin<NullAnswersControl> plugin("null_answers");
    const ActiveDirectoryProvider provider("null_answers");
    EXPECT_THAT(Pairs({provider.GetActiveDomain()}), ElementsAre(std::pair("", "")));
    EXPECT_THAT(provider.GetPreferredDomainControllers(), IsEmpty());
    EXPECT_THAT(provider.GetTrustedDomains(), IsEmpty());
    EXPECT_EQ(provider.GetMachineAccountDN(), "");
    EXPECT_EQ(provider.GetAnyDomainController("", ""), "");
    EXPECT_EQ(provider.ConvertCanonicalUsername("user"), "");
    EXPECT_EQ(provider.GetHostPrincipalForDomain(""), "");
    EXPECT_THAT(provider.GetSmartCardEnabledServices(), IsEmpty());
    EXPECT_EQ(plugin->releases(), 0);
}

TEST(ProviderNulls, OutputsThatWereNotTouchedAreEmptyAnswers) {
    RemoveProviders();
    InstallProvider("silent");
    const ActiveDirectoryProvider provider("silent");
    EXPECT_THAT(Pairs({provider.GetActiveDomain()}), ElementsAre(std::pair("", "")));
    EXPECT_THAT(provider.GetPreferredDomainControllers(), IsEmpty());
    EXPECT_THAT(provider.GetTrustedDomains(), IsEmpty());
    EXPECT_EQ(provider.GetMachineAccountDN(), "");
    EXPECT_EQ(provider.ConvertCanonicalUsername("user"), "");
    EXPECT_EQ(provider.GetHostPrincipalForDomain(""), "");
    EXPECT_THAT(provider.GetSmartCardEnabledServices(), IsEmpty());
}

TEST(ProviderNulls, AReleaseFunctionThatIsNullIsNotCalled) {
    RemoveProviders();
    InstallProvider("no_release");
    const ActiveDirectoryProvider provider("no_release");
    EXPECT_THAT(Pairs({provider.GetActiveDomain()}), ElementsAre(std::pair("corp.test", "CORP")));
    EXPECT_THAT(provider.GetPreferredDomainControllers(), ElementsAre("dc1", "dc2"));
    EXPECT_THAT(Pairs(provider.GetTrustedDomains()), ElementsAre(std::pair("corp.test", "CORP")));
    EXPECT_EQ(provider.GetMachineAccountDN(), "corp.test");
    EXPECT_THAT(provider.GetSmartCardEnabledServices(), ElementsAre("dc1", "dc2"));
}

}  // namespace
}  // namespace nimbrel::authentication::test
