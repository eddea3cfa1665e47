// A join through the proxy that fails after the plug-in was loaded: the plug-in is closed, nothing stays stored, and
// the host has left again if it had joined.

#include <functional>
#include <ostream>

#include "proxy/join.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kRefused =
    "ConnectionRefusedException: Exception 0x000004c9: The remote computer refused the network connection.";

// One point at which a join fails.
struct Failure {
    const char* name;
    std::function<void()> arrange;
    const char* outcome;  // how it begins
    int domainQueries;
    int accountCalls;
    int joinCalls;
    int results;  // handed out by the proxy: three for a domain query, two for an account
};

std::ostream& operator<<(std::ostream& stream, const Failure& failure) { return stream << failure.name; }

// Makes the proxy's `call`th domain query report success without the text `name`, and the ones before it complete.
std::function<void()> MissingText(const char* name, int call) {
    return [=] {
        Journal::WhenAdded([=, left = call](const std::string& line) mutable {
            if (line.rfind("domain", 0) == 0 && --left == 0) Script::SetText(name, std::nullopt);
        });
    };
}

std::function<void()> Answer(const char* operation, std::vector<std::uint32_t> statuses) {
    return [=] { Script::Answer(operation, statuses); };
}

// With the host-name check on, the proxy is asked for its domain first: four queries in all.
const Failure kFailures[] = {
    {"FirstDomainQuery", Answer("domain", {1225}), kRefused, 1, 0, 0, 0},
    {"FirstDomainQueryWithoutName", MissingText("dns", 1), "logic_error: ", 1, 0, 0, 2},
    {"CertificateNotVerified", Answer("domain", {0x80090325}),
     "InvalidAPXCertificateException: The APX server's certificate cannot be verified.", 1, 0, 0, 0},
    {"HostNameDoesNotFit", [] { HostCalls::fullName = "other.corp.test"; },
     "InvalidHostNameException: The current hostname is invalid: shortname does not match FQDN", 1, 0, 0, 3},
    {"HostNameInBlacklist",
     [] {
         HostCalls::hostName = "linux";
         HostCalls::fullName = "linux.corp.test";
     },
     "InvalidHostNameException: The current hostname is invalid: hostname is in blacklist", 1, 0, 0, 3},
    {"HostsFile",
     [] { SysNet::Memory::FailNext(SysNet::Memory::Operation::kAddOrReplaceEntry, "hosts file is locked"); },
     "HostMgmtException: hosts file is locked", 1, 0, 0, 3},
    {"Account", Answer("account", {5}), "UnknownException: Exception 0x00000005: Unknown exception", 1, 1, 0, 3},
    {"AccountWithoutField2", [] { Script::SetText("field2", std::nullopt); }, "logic_error: ", 1, 1, 0, 4},
    {"AccountWithoutField3", [] { Script::SetText("field3", std::nullopt); }, "logic_error: ", 1, 1, 0, 4},
    {"NetBIOSName", Answer("domain", {0, 1225}), kRefused, 2, 1, 0, 5},
    {"NetBIOSNameMissing", MissingText("netbios", 2), "logic_error: ", 2, 1, 0, 7},
    {"DNSName", Answer("domain", {0, 0, 1225}), kRefused, 3, 1, 0, 8},
    {"DNSNameMissing", MissingText("dns", 3), "logic_error: ", 3, 1, 0, 10},
    {"SID", Answer("domain", {0, 0, 0, 1225}), kRefused, 4, 1, 0, 11},
    {"SIDMissing", MissingText("sid", 4), "logic_error: ", 4, 1, 0, 13},
    {"Join", Answer("join", {1355}), "NoSuchDomainException: Exception 0x0000054b: ", 4, 1, 1, 14},
    {"JoinRefusedFourTimes", Answer("join", {1326, 1326, 1326, 1326}),
     "LogonFailureException: Exception 0x0000052e: ", 4, 1, 4, 14},
    {"JoinWithUnknownStatus", Answer("join", {4660}), "UnknownException: Exception 0x00001234: Unknown exception", 4, 1,
     1, 14}};

class ProxyJoinFailure : public ProxyJoinTest, public ::testing::WithParamInterface<Failure> {
 protected:
    ProxyJoinFailure() {
        Trust("0A:1B", "PEM");
        GetParam().arrange();
    }

    static int Calls(const std::string& prefix) { return static_cast<int>(Journal::Lines(prefix).size()); }
};

TEST_P(ProxyJoinFailure, IsReportedToTheCaller) { EXPECT_THAT(JoinOutcome(false), StartsWith(GetParam().outcome)); }

TEST_P(ProxyJoinFailure, ClosesThePlugInLast) {
    JoinOutcome(false);
    EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded", "proxy closed"));
    EXPECT_EQ(Journal::Lines().back(), "proxy closed");
}

TEST_P(ProxyJoinFailure, ChangesNothingInTheConfigurationStore) {
    const auto before = OrbConfigStore::Memory::Snapshot();
    JoinOutcome(false);
    EXPECT_EQ(OrbConfigStore::Memory::Snapshot(), before);
    EXPECT_THAT(Journal::Lines("write"), IsEmpty());
    EXPECT_THAT(Journal::Lines("remove"), IsEmpty());
}

// An account that the proxy has created stays: nobody is asked to take it away.
TEST_P(ProxyJoinFailure, EndsTheJoinThereWithoutLeaving) {
    JoinOutcome(false);
    EXPECT_EQ(Calls("domain"), GetParam().domainQueries);
    EXPECT_EQ(Calls("account"), GetParam().accountCalls);
    EXPECT_EQ(Calls("join"), GetParam().joinCalls);
    EXPECT_EQ(Calls("info: Adding host to domain"), GetParam().joinCalls);
    EXPECT_EQ(Calls("part"), 0);
}

TEST_P(ProxyJoinFailure, ReleasesEachResultThatItWasGiven) {
    JoinOutcome(false);
    EXPECT_EQ(Calls("release"), GetParam().results);
}

INSTANTIATE_TEST_SUITE_P(At, ProxyJoinFailure, ::testing::ValuesIn(kFailures),
                         [](const auto& row) { return row.param.name; });

// ---------------------------------------------------------------- a provider from before such joins

class ProxyJoinOldProvider : public ProxyJoinTest {
 protected:
    ProxyJoinOldProvider() : ProxyJoinTest("old_provider") { SetVerifyOption(0); }
};

TEST_F(ProxyJoinOldProvider, IsReportedAndTheAccountStays) {
    EXPECT_EQ(JoinOutcome(),
              "CallNotImplementedException: Exception 0x00000078: This function is not supported on this system.");
    EXPECT_EQ(Journal::Lines("account").size(), 1u);
    EXPECT_THAT(Journal::Lines("info"), IsEmpty());
    EXPECT_THAT(Settings(), IsEmpty());
    EXPECT_EQ(Journal::Lines().back(), "proxy closed");
}

// ---------------------------------------------------------------- settings that cannot be stored

class ProxyJoinSettings : public ProxyJoinTest {
 protected:
    ProxyJoinSettings() { SetVerifyOption(0); }

    // The store fails after the host has joined.
    static void FailOnce(OrbConfigStore::Memory::Operation operation, const std::string& message) {
        Journal::WhenAdded([=](const std::string& line) {
            if (line.rfind("join", 0) == 0) OrbConfigStore::Memory::FailNext(operation, message);
        });
    }

    // The journal from the provider's join on, without the write that was tried.
    static std::vector<std::string> AfterTheJoin() {
        std::vector<std::string> lines = Journal::Lines();
        while (!lines.empty() && lines.front() != kJoinCall) lines.erase(lines.begin());
        if (!lines.empty()) lines.erase(lines.begin());
        if (!lines.empty() && lines.front() == "write active_directory") lines.erase(lines.begin());
        return lines;
    }
};

TEST_F(ProxyJoinSettings, AFailedWriteIsLoggedAndTheHostLeavesAgain) {
    FailOnce(OrbConfigStore::Memory::Operation::kSetObject, "disk full");
    EXPECT_EQ(JoinOutcome(), "ConfigStoreException: disk full");
    EXPECT_THAT(AfterTheJoin(),
                ElementsAre("error: Failed to store domain details to Config Store: disk full.Leaving Domain...",
                            "part(null)", "proxy closed"));
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_F(ProxyJoinSettings, AStoreThatCannotBeOpenedIsLoggedAndTheHostLeavesAgain) {
    FailOnce(OrbConfigStore::Memory::Operation::kGetStore, "store is down: %s%n");
    EXPECT_EQ(JoinOutcome(), "ConfigStoreException: store is down: %s%n");
    EXPECT_THAT(
        AfterTheJoin(),
        ElementsAre("error: Failed to store domain details to Config Store: store is down: %s%n.Leaving Domain...",
                    "part(null)", "proxy closed"));
}

TEST_F(ProxyJoinSettings, AFailedWriteLeavesEarlierSettingsAsTheyAre) {
    ActiveDirectoryConfigStore().StoreDomainInfo("old.test", "OU=Old", "");
    const ObjectValues before = Settings();
    FailOnce(OrbConfigStore::Memory::Operation::kSetObject, "disk full");
    EXPECT_EQ(JoinOutcome(), "ConfigStoreException: disk full");
    EXPECT_EQ(Settings(), before);
    EXPECT_THAT(Journal::Lines("remove"), IsEmpty());
}

TEST_F(ProxyJoinSettings, AFailedLeaveIsWhatTheCallerSees) {
    FailOnce(OrbConfigStore::Memory::Operation::kSetObject, "disk full");
    Script::Answer("part", {5});
    EXPECT_EQ(JoinOutcome(), "AccessDeniedException: Exception 0x00000005: Access is denied.");
    EXPECT_THAT(AfterTheJoin(),
                ElementsAre("error: Failed to store domain details to Config Store: disk full.Leaving Domain...",
                            "part(null)", "proxy closed"));
}

}  // namespace
}  // namespace nimbrel::authentication::test
