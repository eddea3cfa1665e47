// Proxy plug-ins that break their word, each a shared object of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "authentication/exceptions.h"
#include "authentication/proxy.h"
#include "proxy/journal.h"
#include "proxy/root.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// A domain query and an account creation with the proxy `plugin`.
class MisbehavingProxy : public ::testing::Test {
 protected:
    MisbehavingProxy() {
        RemovePlugins();
        Script::Reset();
        Journal::Clear();
    }

    static APXProxy Load(const std::string& plugin) {
        Install(plugin, plugin);
        return {plugin, "192.0.2.7", true, "0A:1B", "PEM"};
    }
    void AskForDomain(const std::string& plugin) {
        APXProxy proxy = Load(plugin);
        proxy.GetDomainInfo(netbios, dns, sid);
    }
    void CreateAccount(const std::string& plugin) {
        APXProxy proxy = Load(plugin);
        principal = proxy.CreateMachineAccount("node01.corp.test", "");
    }

    std::string netbios = "before";
    std::string dns = "before";
    std::string sid = "before";
    ComputerPrincipalInfo principal;
};

TEST_F(MisbehavingProxy, ResultsOfAFailureAreNeitherReadNorReleased) {
    Script::Answer("domain", {1355});
    EXPECT_EQ(Outcome([&] { AskForDomain("results_on_failure"); }),
              "UnknownException: Exception 0x0000054b: Unknown exception");
    EXPECT_EQ(netbios + dns + sid, "beforebeforebefore");
    Script::Answer("account", {8});
    EXPECT_EQ(Outcome([&] { CreateAccount("results_on_failure"); }),
              "NotEnoughMemoryException: Exception 0x00000008: Not enough memory");
    EXPECT_THAT(Journal::Lines(), ElementsAre("proxy closed", "proxy closed"));
}

TEST_F(MisbehavingProxy, ACPlusPlusExceptionPassesAndNothingIsReleased) {
    EXPECT_EQ(Outcome([&] { AskForDomain("throwing"); }), "runtime_error: the plug-in lost its temper");
    EXPECT_EQ(netbios + dns + sid, "beforebeforebefore");
    EXPECT_THROW(CreateAccount("throwing"), int);
    EXPECT_THAT(Journal::Lines(), ElementsAre("proxy closed", "proxy closed"));
}

TEST_F(MisbehavingProxy, AnExceptionOfItsReleaseFunctionPassesToo) {
    EXPECT_EQ(Outcome([&] { AskForDomain("throwing_release"); }), "runtime_error: the plug-in lost its temper");
    EXPECT_EQ(netbios + dns + sid, "SAMESAMESAME") << "the results are copied before they are released";
    EXPECT_EQ(Outcome([&] { CreateAccount("throwing_release"); }), "runtime_error: the plug-in lost its temper");
}

TEST_F(MisbehavingProxy, SuccessWithoutResultsIsALogicErrorAndNothingIsReleased) {
    EXPECT_THROW(AskForDomain("silent"), std::logic_error);
    EXPECT_THROW(CreateAccount("silent"), std::logic_error);
    EXPECT_EQ(netbios + dns + sid, "beforebeforebefore");
    EXPECT_THAT(Journal::Lines(), ElementsAre("proxy closed", "proxy closed"));
}

TEST_F(MisbehavingProxy, OneTextForAllIsReleasedForEach) {
    AskForDomain("one_text_for_all");
    EXPECT_EQ(netbios + dns + sid, "SAMESAMESAME");
    EXPECT_THAT(Journal::Lines("release"), SizeIs(3));
    CreateAccount("one_text_for_all");
    EXPECT_EQ(principal.principalField2 + principal.principalField3, "SAMESAME");
    EXPECT_THAT(Journal::Lines("release"), SizeIs(5));
}

TEST_F(MisbehavingProxy, LongTextsAreCopiedWhole) {
    AskForDomain("long_texts");
    EXPECT_EQ(netbios, std::string(1 << 20, 'A'));
    EXPECT_EQ(dns, std::string(1 << 20, 'B'));
    EXPECT_EQ(sid, std::string(1 << 20, 'C'));
    CreateAccount("long_texts");
    EXPECT_EQ(principal.principalField2, std::string(1 << 20, 'A'));
    EXPECT_EQ(principal.principalField3, std::string(1 << 20, 'B'));
}

TEST_F(MisbehavingProxy, BytesThatAreNoTextAreCopiedAsTheyAre) {
    std::string bytes;
    for (int byte = 255; byte > 0; --byte) bytes.push_back(static_cast<char>(byte));
    AskForDomain("not_utf8");
    EXPECT_EQ(netbios, bytes);
    EXPECT_EQ(dns, bytes);
    EXPECT_EQ(sid, bytes);
    CreateAccount("not_utf8");
    EXPECT_EQ(principal.principalField2, bytes);
    EXPECT_EQ(principal.principalField3, bytes);
}

}  // namespace
}  // namespace nimbrel::authentication::test
