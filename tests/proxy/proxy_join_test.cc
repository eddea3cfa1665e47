// A join through the proxy that succeeds: what happens, in which order, and what is handed to whom.

#include <netdb.h>

#include "proxy/join.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

class ProxyJoin : public ProxyJoinTest {
 protected:
    // The journal without releases, and without how often the platform reads the advanced option's objects.
    static std::vector<std::string> Steps() {
        std::vector<std::string> steps;
        for (const std::string& line : Journal::Lines()) {
            if (line == "read index" || line.rfind("release", 0) == 0) continue;
            if (line.rfind("read User", 0) == 0 && !steps.empty() && steps.back() == line) continue;
            steps.push_back(line);
        }
        return steps;
    }
};

// ---------------------------------------------------------------- the order

TEST_F(ProxyJoin, GoesStepByStep) {
    Trust("0A:1B", "PEM");
    Join("", false);
    EXPECT_THAT(Steps(), ElementsAre("read UserVars.ActiveDirectoryVerifyAPXCertificate",              //
                                     "gethostname",                                                    //
                                     "gethostbyname_r node01",                                         //
                                     "open /etc/nimbrel/nimauth/apxprovider.conf",                     //
                                     "read auth_proxy_certificate",                                    // thumbprint
                                     "read auth_proxy_certificate",                                    // PEM
                                     "dlopen /usr/libexec/nimauth/lib64/libscripted_proxy.so failed",  //
                                     "proxy loaded",                                                   //
                                     "dlopen /usr/libexec/nimauth/libscripted_proxy.so",               //
                                     "domain(192.0.2.7, 1, 0A:1B, PEM)",                               //
                                     "gethostname",                                                    //
                                     "gethostbyname_r node01",                                         //
                                     "hosts 192.0.2.10 node01.corp.test node01",                       //
                                     "account(192.0.2.7, node01.corp.test, null, 1, 0A:1B, PEM)",      //
                                     "domain(192.0.2.7, 1, 0A:1B, PEM)",                               // NetBIOS
                                     "domain(192.0.2.7, 1, 0A:1B, PEM)",                               // DNS
                                     "domain(192.0.2.7, 1, 0A:1B, PEM)",                               // SID
                                     "info: Adding host to domain: Attempt (1/4)",                     //
                                     kJoinCall,                                                        //
                                     "write active_directory",                                         //
                                     "proxy closed"));
}

TEST_F(ProxyJoin, WithoutVerificationReadsNoTrust) {
    SetVerifyOption(0);
    Join();
    EXPECT_THAT(Steps(), ElementsAre("read UserVars.ActiveDirectoryVerifyAPXCertificate",              //
                                     "gethostname",                                                    //
                                     "gethostbyname_r node01",                                         //
                                     "open /etc/nimbrel/nimauth/apxprovider.conf",                     //
                                     "dlopen /usr/libexec/nimauth/lib64/libscripted_proxy.so failed",  //
                                     "proxy loaded",                                                   //
                                     "dlopen /usr/libexec/nimauth/libscripted_proxy.so",               //
                                     "account(192.0.2.7, node01.corp.test, null, 0, , null)",          //
                                     "domain(192.0.2.7, 0, , null)",                                   //
                                     "domain(192.0.2.7, 0, , null)",                                   //
                                     "domain(192.0.2.7, 0, , null)",                                   //
                                     "info: Adding host to domain: Attempt (1/4)",                     //
                                     kJoinCall,                                                        //
                                     "write active_directory",                                         //
                                     "proxy closed"));
}

TEST_F(ProxyJoin, StoresNothingBeforeTheHostHasJoined) {
    Trust("0A:1B", "PEM");
    const auto before = OrbConfigStore::Memory::Snapshot();
    std::vector<std::string> differing;
    Journal::WhenAdded([&](const std::string& line) {
        if (OrbConfigStore::Memory::Snapshot() != before) differing.push_back(line);
    });
    Join("OU=Hosts", false);
    EXPECT_THAT(differing, ElementsAre("proxy closed"));
}

TEST_F(ProxyJoin, StoresTheSettingsAndNothingElse) {
    Trust("0A:1B", "PEM");
    auto expected = OrbConfigStore::Memory::Snapshot();
    Join("OU=Hosts");
    expected[ActiveDirectoryConfigStore::AD_CSO_ID] = {
        {"auth_proxy_address", kAddress}, {"domain_name", "corp.test"}, {"organizational_unit", "OU=Hosts"}};
    EXPECT_EQ(OrbConfigStore::Memory::Snapshot(), expected);
}

TEST_F(ProxyJoin, EachResultIsReleasedOnce) {
    SetVerifyOption(0);
    Join("", false);
    EXPECT_EQ(Journal::Lines("release CORP").size(), 4u);
    EXPECT_EQ(Journal::Lines("release corp.test").size(), 4u);
    EXPECT_EQ(Journal::Lines("release S-1-5-21-1-2-3").size(), 4u);
    EXPECT_THAT(Journal::Lines("release FIELD"), ElementsAre("release FIELD2", "release FIELD3"));
}

// ---------------------------------------------------------------- trust

TEST_F(ProxyJoin, AHostVerifiesUntilItIsTold) {
    Trust("0A:1B", "PEM");
    Join();
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01.corp.test, null, 1, 0A:1B, PEM)"));
}

TEST_F(ProxyJoin, WithoutVerificationAnImportedCertificateIsNotHandedOver) {
    Trust("0A:1B", "PEM");
    SetVerifyOption(0);
    Join();
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01.corp.test, null, 0, , null)"));
    EXPECT_THAT(Journal::Lines("read auth"), IsEmpty());
}

// The plug-in must refuse to verify against nothing: what the store holds is handed over as it is.
TEST_F(ProxyJoin, AStoredObjectWithoutThumbprintGivesAnEmptyOne) {
    const auto object =
        std::make_shared<OrbConfigStore::ConfigStoreObject>(ActiveDirectoryConfigStore::AUTH_PROXY_CERT_CSO_ID);
    object->SetValue("certificate", "PEM");
    std::uint32_t word = 0;
    OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace)->SetObject(object, word);
    Join();
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01.corp.test, null, 1, , PEM)"));
}

TEST_F(ProxyJoin, AStoredObjectWithoutCertificateGivesANullOne) {
    Trust("0A:1B", "");
    Join();
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01.corp.test, null, 1, 0A:1B, null)"));
}

// ---------------------------------------------------------------- organizational unit

class ProxyJoinUnverified : public ProxyJoin {
 protected:
    ProxyJoinUnverified() { SetVerifyOption(0); }
};

TEST_F(ProxyJoinUnverified, AnOrganizationalUnitIsAskedForAndStored) {
    for (const std::string unit : {"OU=Hosts", "OU=Hosts/Sub", "/", " ", "OU=Büro,DC=corp"}) {
        Journal::Clear();
        Join(unit);
        EXPECT_THAT(Journal::Lines("account"),
                    ElementsAre("account(192.0.2.7, node01.corp.test, " + unit + ", 0, , null)"));
        EXPECT_THAT(Settings(), Contains(Pair("organizational_unit", unit)));
    }
}

TEST_F(ProxyJoinUnverified, AnEmptyOrganizationalUnitIsNullAndNotStored) {
    Join("OU=Earlier");
    Journal::Clear();
    Join("");
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01.corp.test, null, 0, , null)"));
    EXPECT_THAT(Settings(), ElementsAre(Pair("auth_proxy_address", kAddress), Pair("domain_name", "corp.test")));
}

// ---------------------------------------------------------------- what the provider is told

TEST_F(ProxyJoinUnverified, TheProvidersRecordsCarryEachAnswerInItsPlace) {
    Script::SetText("netbios", "N");
    Script::SetText("dns", "d.test");
    Script::SetText("sid", "S-1");
    Script::SetText("field2", "second");
    Script::SetText("field3", "third");
    Join();
    EXPECT_THAT(Journal::Lines("join"), ElementsAre("join({, N, d.test, S-1}, {node01, d.test, , second, third})"));
    EXPECT_THAT(Settings(), Contains(Pair("domain_name", "d.test")));
}

TEST_F(ProxyJoinUnverified, EmptyAnswersAreCarriedToo) {
    for (const char* name : {"netbios", "dns", "sid", "field2", "field3"}) Script::SetText(name, "");
    Join();
    EXPECT_THAT(Journal::Lines("join"), ElementsAre("join({, , , }, {node01, , , , })"));
    EXPECT_THAT(Settings(), Contains(Pair("domain_name", "")));
}

TEST_F(ProxyJoinUnverified, TheAccountHasTheResolvedNameAndTheRecordTheShortOne) {
    HostCalls::hostName = "node02.lab.test.example";
    HostCalls::fullName = "NODE02.Corp.Test";
    Join();
    EXPECT_THAT(Journal::Lines("gethostbyname_r"), ElementsAre("gethostbyname_r node02.lab.test.example"));
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, NODE02.Corp.Test, null, 0, , null)"));
    EXPECT_THAT(Journal::Lines("join"),
                ElementsAre("join({, CORP, corp.test, S-1-5-21-1-2-3}, {node02, corp.test, , FIELD2, FIELD3})"));
}

TEST_F(ProxyJoinUnverified, AResolvedNameWithoutADomainIsTheAccountsNameAsItIs) {
    HostCalls::fullName = "node01";
    Join("", false);
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01, null, 0, , null)"));
    EXPECT_THAT(Journal::Lines("hosts"), ElementsAre("hosts 192.0.2.10 node01.corp.test node01"));
}

// ---------------------------------------------------------------- the host-name check

TEST_F(ProxyJoinUnverified, TheHostIsMadeToFitTheDomainThatTheProxyServes) {
    Script::SetText("dns", "lab.test");
    Join("", false);
    EXPECT_THAT(Journal::Lines("warning"),
                ElementsAre("warning: The fully qualified hostname node01.corp.test does not "
                            "match the expected value node01.lab.test\n"));
    EXPECT_EQ(Journal::Lines("domain").size(), 4u);
}

TEST_F(ProxyJoinUnverified, WithoutTheCheckTheNetworkIsLeftAlone) {
    Script::SetText("dns", "lab.test");
    HostCalls::fullName = "somebody.else.test";
    Join("", true);
    using SysNet::Memory::CallCount;
    using SysNet::Memory::Operation;
    EXPECT_EQ(CallCount(Operation::kMakeHostsFile) + CallCount(Operation::kMakeNetworkInfo), 0);
    EXPECT_THAT(Journal::Lines("warning"), IsEmpty());
    EXPECT_EQ(Journal::Lines("domain").size(), 3u);
}

// ---------------------------------------------------------------- a domain controller that has not heard of it yet

class ProxyJoinRetries : public ProxyJoinUnverified {
 protected:
    // The journal between the last domain query and the write.
    static std::vector<std::string> Attempts() {
        std::vector<std::string> lines;
        for (const char* prefix : {"info", "join", "sleep"}) {
            for (const std::string& line : Journal::Lines(prefix)) lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(ProxyJoinRetries, ItIsAskedAgainAfterHalfAMinute) {
    Script::Answer("join", {1326, 0xffff0000, 0});
    Join();
    EXPECT_THAT(Attempts(),
                ElementsAre("info: Adding host to domain: Attempt (1/4)", "info: Adding host to domain: Attempt (2/4)",
                            "info: Adding host to domain: Attempt (3/4)", kJoinCall, kJoinCall, kJoinCall, "sleep 30",
                            "sleep 30"));
    EXPECT_THAT(Settings(), Not(IsEmpty()));
}

TEST_F(ProxyJoinRetries, FourTimesAtMost) {
    Script::Answer("join", {1326, 1326, 1326, 1326, 0});
    EXPECT_EQ(
        JoinOutcome(),
        "LogonFailureException: Exception 0x0000052e: The attempted logon is invalid. This is due to either a bad "
        "user name or authentication information.");
    EXPECT_THAT(
        Journal::Lines("info"),
        ElementsAre("info: Adding host to domain: Attempt (1/4)", "info: Adding host to domain: Attempt (2/4)",
                    "info: Adding host to domain: Attempt (3/4)", "info: Adding host to domain: Attempt (4/4)"));
    EXPECT_THAT(Journal::Lines("sleep"), ElementsAre("sleep 30", "sleep 30", "sleep 30", "sleep 30"));
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_F(ProxyJoinRetries, TheProxyIsAskedOnceAndStaysOpenMeanwhile) {
    Script::Answer("join", {1326, 0});
    bool open = false;
    Journal::WhenAdded([&](const std::string& line) { open = line == "sleep 30" ? IsLoaded(kProxyPath) : open; });
    Join();
    EXPECT_TRUE(open);
    EXPECT_EQ(Journal::Lines("account").size(), 1u);
    EXPECT_EQ(Journal::Lines("domain").size(), 3u);
}

}  // namespace
}  // namespace nimbrel::authentication::test
