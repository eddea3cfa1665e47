// Asking a proxy for its domain, without joining.

#include "proxy/join.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class ProxyDomainQuery : public ProxyJoinTest {
 protected:
    ~ProxyDomainQuery() override {
        EXPECT_THAT(Journal::Lines("read"), IsEmpty());
        EXPECT_THAT(Journal::Lines("write"), IsEmpty());
        EXPECT_THAT(Journal::Lines("gethostname"), IsEmpty());
        EXPECT_THAT(Journal::Lines("error"), IsEmpty());
    }

    std::string Ask(const std::string& address = kAddress) { return store.GetDomainForAPXService(address); }
    std::string AskOutcome() {
        return Outcome([&] { Ask(); });
    }
};

TEST_F(ProxyDomainQuery, ReadsTheNameAndAsksOnceWithoutVerification) {
    EXPECT_EQ(Ask(), "corp.test");
    EXPECT_THAT(Journal::Lines(),
                ElementsAre("open /etc/nimbrel/nimauth/apxprovider.conf",
                            "dlopen /usr/libexec/nimauth/lib64/libscripted_proxy.so failed", "proxy loaded",
                            "dlopen /usr/libexec/nimauth/libscripted_proxy.so", "domain(192.0.2.7, 0, , null)",
                            "release CORP", "release corp.test", "release S-1-5-21-1-2-3", "proxy closed"));
}

TEST_F(ProxyDomainQuery, IgnoresTheVerifyOptionAndTheImportedTrust) {
    Trust("0A:1B", "PEM");
    SetVerifyOption(2);
    EXPECT_EQ(Ask(), "corp.test");
    EXPECT_THAT(Journal::Lines("domain"), ElementsAre("domain(192.0.2.7, 0, , null)"));
}

TEST_F(ProxyDomainQuery, AnEmptyNameIsAnAnswer) {
    Script::SetText("dns", "");
    EXPECT_EQ(Ask(), "");
}

TEST_F(ProxyDomainQuery, AnythingElseThanADottedQuadIsRefusedBeforeAnythingIsRead) {
    for (const char* address : {"", "proxy.corp.test", "::1", "192.0.2.07", " 192.0.2.7", "192.0.2.7:443"}) {
        EXPECT_EQ(
            TextOf<InvalidIPAddressException>([&] { Ask(address); }),
            "The IP Address is invalid: IPv4 address '" + std::string(address) + "' cannot be parsed as an IP address");
    }
    EXPECT_THAT(Journal::Lines(), IsEmpty());
}

TEST_F(ProxyDomainQuery, FollowsTheJoinsRulesForTheProvidersName) {
    Remove(kProxyFile);
    EXPECT_EQ(AskOutcome(),
              "InvalidAPXProxyProviderException: The specified APXProxy provider '(none installed)' is invalid");
    WriteSystemFile(kProxyFile, "provider = \"\"\n");
    EXPECT_EQ(AskOutcome(), "InvalidAPXProxyProviderException: The specified APXProxy provider '(unset)' is invalid");
    WriteSystemFile(kProxyFile, "");
    EXPECT_EQ(AskOutcome(), "InvalidKeyException: The specified key 'provider' was not found in this configuration");
    WriteSystemFile(kProxyFile, "provider\n");
    EXPECT_EQ(AskOutcome(), "ConfigurationError: Error parsing configuration on line 1: no delimiter found");
    NameProxy("absent");
    EXPECT_THAT(AskOutcome(), StartsWith("IOError: Unable to open APX provider: "));
    EXPECT_THAT(Journal::Lines("proxy"), IsEmpty());
}

TEST_F(ProxyDomainQuery, ClosesAPlugInThatFails) {
    Script::Answer("domain", {10060});
    EXPECT_THAT(AskOutcome(), StartsWith("WSATimedOutException: "));
    EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded", "proxy closed"));
}

TEST_F(ProxyDomainQuery, ClosesAPlugInThatGivesNoName) {
    Script::SetText("dns", std::nullopt);
    EXPECT_THAT(AskOutcome(), StartsWith("logic_error: "));
    EXPECT_THAT(Journal::Lines("release"), ElementsAre("release CORP", "release S-1-5-21-1-2-3"));
    EXPECT_EQ(Journal::Lines().back(), "proxy closed");
}

TEST_F(ProxyDomainQuery, AsksTheDirectoryProviderNothing) {
    Ask();
    EXPECT_THAT(Journal::Lines("join"), IsEmpty());
    EXPECT_THAT(Journal::Lines("part"), IsEmpty());
}

}  // namespace
}  // namespace nimbrel::authentication::test
