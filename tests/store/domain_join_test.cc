// Joining a domain with a user's credentials: what is asked of the provider, how often, and what becomes of its answers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "store/membership.h"

namespace nimbrel::authentication::test {
namespace {

using OrbConfigStore::Memory::Operation;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

constexpr const char* kNoUser = "The credentials that were provided were invalid: no username was specified";
constexpr const char* kNoPassword =
    "The credentials that were provided were invalid: empty or no password was specified; the account must have a "
    "non-empty password to join the host to domain";

class DomainJoin : public MembershipTest {
 protected:
    // The text of what a join without the host-name check throws.
    template <typename Error>
    std::string FailedJoin(const Credentials& credentials) {
        return TextOf<Error>([&] { store.JoinDomain("corp.test", credentials, true); });
    }
    template <typename Error>
    std::string FailedJoin() {
        return FailedJoin<Error>(administrator);
    }

    // How many seconds were slept.
    static int Pauses() {
        int seconds = 0;
        for (const std::string& entry : Journal::Entries()) {
            if (entry.find("sleep ") == 0) seconds += std::stoi(entry.substr(6));
        }
        return seconds;
    }
};

TEST_F(DomainJoin, AsksTheProviderOnceAndStoresTheDomain) {
    store.JoinDomain("corp.test", administrator, true);
    EXPECT_THAT(Journal::Entries(), ElementsAre(JoinCall("corp.test", "null")));
    EXPECT_THAT(Settings(), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "corp.test")));
    EXPECT_EQ(OrbConfigStore::Memory::Snapshot().size(), 1u);
}

TEST_F(DomainJoin, StoresNothingBeforeTheProviderHasJoined) {
    int stored = -1;
    Journal::WhenAdded([&](const std::string&) { stored = OrbConfigStore::Memory::CallCount(Operation::kGetStore); });
    store.JoinDomain("corp.test", administrator, true);
    EXPECT_EQ(stored, 0);
}

TEST_F(DomainJoin, WithoutTheHostNameCheckTouchesNoNetworkFile) {
    store.JoinDomain("lab.test", administrator, true);
    EXPECT_TRUE(NetworkIsUntouched());
}

TEST_F(DomainJoin, ChecksTheHostNameBeforeTheProviderIsAsked) {
    std::size_t entries = 0;
    Journal::WhenAdded([&](const std::string&) { entries = SysNet::Memory::HostsEntries().size(); });
    store.JoinDomain("corp.test", administrator, false);
    EXPECT_EQ(entries, 1u);
    EXPECT_THAT(SysNet::Memory::HostsEntries(),
                ElementsAre(Pair("192.0.2.10", ElementsAre("node01.corp.test", "node01"))));
}

TEST_F(DomainJoin, ChecksTheHostNameAgainstTheDomainWithoutTheOrganizationalUnit) {
    store.JoinDomain("corp.test/OU=Hosts", administrator, false);
    EXPECT_THAT(Journal::Entries(), ElementsAre(JoinCall("corp.test", "OU=Hosts")));
}

TEST_F(DomainJoin, AsksTheProviderNothingWhenTheHostNameDoesNotFit) {
    SysNet::Memory::FailNext(SysNet::Memory::Operation::kAddOrReplaceEntry, "hosts file is locked");
    EXPECT_EQ(TextOf<HostMgmt::Lib::HostMgmtException>([&] { store.JoinDomain("corp.test", administrator, false); }),
              "hosts file is locked");
    EXPECT_THAT(Journal::Entries(), IsEmpty());
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_F(DomainJoin, NeedsAUserName) {
    EXPECT_EQ(FailedJoin<InvalidCredentialsException>({nullptr, kPassword}), kNoUser);
    EXPECT_EQ(FailedJoin<InvalidCredentialsException>({nullptr, nullptr}), kNoUser);
}

TEST_F(DomainJoin, NeedsAPasswordThatIsNotEmpty) {
    EXPECT_EQ(FailedJoin<InvalidCredentialsException>({"administrator", nullptr}), kNoPassword);
    EXPECT_EQ(FailedJoin<InvalidCredentialsException>({"administrator", ""}), kNoPassword);
    EXPECT_EQ(FailedJoin<InvalidCredentialsException>({"", ""}), kNoPassword);
}

TEST_F(DomainJoin, ChangesNothingWhenTheCredentialsAreUnfit) {
    EXPECT_THROW(store.JoinDomain("corp.test", {nullptr, kPassword}, false), InvalidCredentialsException);
    EXPECT_THROW(store.JoinDomain("corp.test", {"administrator", ""}, false), InvalidCredentialsException);
    EXPECT_THAT(Journal::Entries(), IsEmpty());
    EXPECT_TRUE(NetworkIsUntouched());
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kGetStore), 0);
}

TEST_F(DomainJoin, LeavesAnEmptyUserNameAndABlankPasswordToTheProvider) {
    store.JoinDomain("corp.test", {"", " "}, true);
    EXPECT_THAT(Journal::Entries(), ElementsAre("join(corp.test, null, ,  )"));
}

struct Split {
    const char* argument;
    const char* domain;
    const char* organizationalUnit;  // as the provider sees it
};

class DomainArgument : public MembershipTest, public ::testing::WithParamInterface<Split> {};

TEST_P(DomainArgument, IsSplitAtItsFirstSlash) {
    const Split& row = GetParam();
    SCOPED_TRACE(row.argument);
    store.JoinDomain(row.argument, administrator, true);
    EXPECT_THAT(Journal::Entries(), ElementsAre(JoinCall(row.domain, row.organizationalUnit)));
    EXPECT_EQ(Settings().at("domain_name"), row.domain);
    if (std::string(row.organizationalUnit) == "null") {
        EXPECT_EQ(Settings().count("organizational_unit"), 0u);
    } else {
        EXPECT_EQ(Settings().at("organizational_unit"), row.organizationalUnit);
    }
}

INSTANTIATE_TEST_SUITE_P(DomainJoin, DomainArgument,
                         ::testing::Values(Split{"corp.test", "corp.test", "null"},
                                           Split{"corp.test/OU=Hosts/Sub", "corp.test", "OU=Hosts/Sub"},
                                           Split{"corp.test/", "corp.test", "null"},
                                           Split{"corp.test//Sub", "corp.test", "/Sub"},
                                           Split{"corp.test/Sub/", "corp.test", "Sub/"},
                                           Split{"corp.test/ ", "corp.test", " "}, Split{"/Hosts", "", "Hosts"},
                                           Split{"", "", "null"}, Split{"/", "", "null"},
                                           Split{"CORP.Test/OU=Hosts\\/Blue", "CORP.Test", "OU=Hosts\\/Blue"}));

TEST_F(DomainJoin, TriesFourTimesWithAPauseAfterEachFailure) {
    provider.Answer(SCRIPTED_JOIN, {1326});
    EXPECT_EQ(FailedJoin<LogonFailureException>(),
              "Exception 0x0000052e: The attempted logon is invalid. This is due to either a bad user name or "
              "authentication information.");
    const std::string join = JoinCall("corp.test", "null");
    EXPECT_THAT(Journal::Entries(),
                ElementsAre(join, "sleep 30", join, "sleep 30", join, "sleep 30", join, "sleep 30"));
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_F(DomainJoin, TriesAgainAfterTheProvidersOwnFailureToo) {
    provider.Answer(SCRIPTED_JOIN, {0xFFFF0000});
    EXPECT_EQ(FailedJoin<UnknownException>(), "Exception 0xffff0000: Unknown exception");
    EXPECT_EQ(Pauses(), 120);
}

TEST_F(DomainJoin, ReportsTheLastOfFourFailures) {
    provider.Answer(SCRIPTED_JOIN, {1326, 1326, 1326, 0xFFFF0000});
    EXPECT_EQ(FailedJoin<UnknownException>(), "Exception 0xffff0000: Unknown exception");
}

TEST_F(DomainJoin, SucceedsAtAnyOfFourAttempts) {
    for (int failures = 1; failures <= 3; ++failures) {
        Journal::Clear();
        std::vector<std::uint32_t> statuses(static_cast<std::size_t>(failures), failures % 2 == 0 ? 1326 : 0xFFFF0000);
        statuses.push_back(0);
        provider.Answer(SCRIPTED_JOIN, statuses);
        store.JoinDomain("corp.test", administrator, true);
        EXPECT_EQ(Pauses(), 30 * failures);
        EXPECT_EQ(Settings().at("domain_name"), "corp.test");
    }
}

TEST_F(DomainJoin, StopsAtAnotherStatusWithoutAPause) {
    provider.Answer(SCRIPTED_JOIN, {1326, 2691, 0});
    EXPECT_EQ(FailedJoin<SetupAlreadyJoinedException>(),
              "Exception 0x00000a83: This machine is already joined to a domain.");
    const std::string join = JoinCall("corp.test", "null");
    EXPECT_THAT(Journal::Entries(), ElementsAre(join, "sleep 30", join));
}

TEST_F(DomainJoin, DoesNotTryAgainAfterNeighbouringStatuses) {
    for (const std::uint32_t status : {1325u, 1327u, 0xFFFF0001u, 0xFFFEFFFFu, 0xFFFFFFFFu, 1u}) {
        Journal::Clear();
        provider.Answer(SCRIPTED_JOIN, {status});
        EXPECT_THROW(store.JoinDomain("corp.test", administrator, true), Exception) << status;
        EXPECT_THAT(Journal::Entries(), ElementsAre(JoinCall("corp.test", "null"))) << status;
    }
}

TEST_F(DomainJoin, PausesInFullWhenSignalsInterrupt) {
    provider.Answer(SCRIPTED_JOIN, {1326, 0});
    Journal::Interrupt({20, 1, 1});
    store.JoinDomain("corp.test", administrator, true);
    const std::string join = JoinCall("corp.test", "null");
    EXPECT_THAT(Journal::Entries(), ElementsAre(join, "sleep 30", "sleep 20", "sleep 1", "sleep 1", join));
}

TEST_F(DomainJoin, TurnsAStatusIntoItsException) {
    provider.Answer(SCRIPTED_JOIN, {5, 1355, 1398, 4660});
    EXPECT_EQ(FailedJoin<AccessDeniedException>(), "Exception 0x00000005: Access is denied.");
    EXPECT_EQ(FailedJoin<NoSuchDomainException>(),
              "Exception 0x0000054b: The specified domain either does not exist or could not be contacted.");
    EXPECT_EQ(FailedJoin<TimeSkewException>(),
              "Exception 0x00000576: There is a time and/or date difference between the client and server.");
    EXPECT_EQ(FailedJoin<UnknownException>(), "Exception 0x00001234: Unknown exception");
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kGetStore), 0);
}

TEST_F(DomainJoin, NeedsAProviderThatCanJoin) {
    InstallProvider("empty", STORE_EMPTY_PROVIDER);
    WriteFile(kProviderFile, "provider = \"empty\"\n");
    ActiveDirectoryStore unable(60);
    EXPECT_EQ(TextOf<CallNotImplementedException>([&] { unable.JoinDomain("corp.test", administrator, true); }),
              "Exception 0x00000078: This function is not supported on this system.");
    EXPECT_THAT(Journal::Entries(), IsEmpty());
}

TEST_F(DomainJoin, LeavesCacheAndProxyCertificateAlone) {
    ActiveDirectoryConfigStore().StoreAuthProxyCertInfo("0A", "PEM");
    store.UpdateCache(std::nullopt);
    provider.BecomeMember("corp.test", "CORP");
    store.JoinDomain("corp.test", administrator, true);
    EXPECT_FALSE(ActiveDirectoryStore::Cache().IsDomainMember());
    EXPECT_EQ(Journal::Entries().back(), JoinCall("corp.test", "null"));
    EXPECT_EQ(ActiveDirectoryConfigStore().GetThumbprint(), "0A");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetCertificate(), "PEM");
}

TEST_F(DomainJoin, ReplacesTheSettingsOfAnEarlierJoin) {
    ActiveDirectoryConfigStore().StoreDomainInfo("old.test", "OU=Old", "proxy.old.test");
    store.JoinDomain("corp.test", administrator, true);
    EXPECT_THAT(Settings(), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "corp.test")));
}

TEST_F(DomainJoin, ShowsThePasswordToNobodyButTheProvider) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    std::string texts;
    for (const std::uint32_t status : {5u, 86u, 1326u, 1330u, 0xFFFF0000u, 4660u, 0u}) {
        provider.Answer(SCRIPTED_JOIN, {status});
        OrbConfigStore::Memory::FailNext(Operation::kSetObject, "disk full");
        try {
            store.JoinDomain("corp.test", administrator, false);
        } catch (const std::exception& error) {
            texts += error.what();
        }
    }
    texts += ::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr();
    for (const std::string& line : Journal::Logged()) texts += line;
    for (const auto& [name, value] : Settings()) texts += value;
    EXPECT_THAT(texts, HasSubstr("Failed to store domain details"));
    EXPECT_THAT(texts, Not(HasSubstr("w0rd")));
}

}  // namespace
}  // namespace nimbrel::authentication::test
