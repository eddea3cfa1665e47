// One host against the two files: joining, leaving, the questions, and what happens when the files fall out of step.

#include "embeddeddirectory/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class HostTest : public Sandbox {
 protected:
    std::uint32_t Join(const UserCredentials& credentials = kAdmin, const std::string& unit = "Hosts") const {
        return StatusOf([&] { host.Join(kDomain, "node01.corp.test", unit, credentials); });
    }
    std::uint32_t Part(const std::optional<UserCredentials>& credentials) const {
        return StatusOf([&] { host.Part(credentials); });
    }
    Membership OpenMembership() const { return Membership::Open(membershipPath); }
    bool IsJoined() const { return OpenMembership().Current().has_value(); }

    // Makes every write of the membership table fail from inside SQLite.
    void BreakMembershipWrites(const char* event) const {
        OpenMembership().SetSmartCardServices({});
        sqlite3* connection = nullptr;
        ASSERT_EQ(sqlite3_open(membershipPath.c_str(), &connection), SQLITE_OK);
        const std::string trigger = std::string("CREATE TRIGGER broken BEFORE ") + event +
                                    " ON membership BEGIN SELECT RAISE(ABORT, 'disk I/O error'); END";
        ASSERT_EQ(sqlite3_exec(connection, trigger.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(connection);
    }
    void MendMembershipWrites() const {
        sqlite3* connection = nullptr;
        ASSERT_EQ(sqlite3_open(membershipPath.c_str(), &connection), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(connection, "DROP TRIGGER broken", nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(connection);
    }

    const Host host{directoryPath, membershipPath};
};

// --- Joining and leaving ---

TEST_F(HostTest, JoinedHostKnowsItsDomainAndItsDomainKnowsIt) {
    ASSERT_EQ(Join(), 0U);
    EXPECT_EQ(host.ActiveDomain().dnsName, "corp.test");
    EXPECT_EQ(host.ActiveDomain().netbiosName, "CORP");
    EXPECT_EQ(host.MachineAccountDN(), "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
    EXPECT_EQ(Join(), 2691U);
}

TEST_F(HostTest, HostThatIsNotJoinedSaysSo) {
    EXPECT_EQ(host.ActiveDomain().dnsName, "");
    EXPECT_EQ(host.MachineAccountDN(), "");
    EXPECT_EQ(host.TrustState(), kTrustStateNotMember);
    EXPECT_EQ(host.TrustRelationship("corp.test"), kRelationshipNotMember);
    EXPECT_EQ(StatusOf([&] { host.TrustedDomains(); }), 2U);
    EXPECT_EQ(StatusOf([&] { host.CanonicalUserName("user1"); }), 2692U);
    EXPECT_EQ(StatusOf([&] { host.HostPrincipal(kDomain); }), 1355U);
    EXPECT_EQ(StatusOf([&] { host.AnyController("", ""); }), 1355U);
    EXPECT_EQ(Part(kAdmin), 2692U);
    EXPECT_EQ(Part({}), 2692U);
}

TEST_F(HostTest, JoinChecksItsOwnSideFirst) {
    const Host elsewhere(folder / "missing.db", membershipPath);
    EXPECT_EQ(StatusOf([&] { elsewhere.Join(kDomain, "node01", "", kAdmin); }), 1355U);
    EXPECT_EQ(StatusOf([&] { elsewhere.Join(kDomain, "abcdefghijklmnop", "", kAdmin); }), 1210U);
    EXPECT_FALSE(std::filesystem::exists(membershipPath)) << "a join that cannot start leaves no file";
    ASSERT_EQ(Join(), 0U);
    EXPECT_EQ(StatusOf([&] { elsewhere.Join(kDomain, "abcdefghijklmnop", "", kAdmin); }), 2691U);
}

TEST_F(HostTest, RefusedJoinLeavesNeitherSideChanged) {
    EXPECT_EQ(Join(kNobody), 5U);
    EXPECT_EQ(Join({"admin1", "wrong"}), 1326U);
    EXPECT_EQ(Join(kAdmin, "Nowhere"), 2U);
    EXPECT_FALSE(IsJoined());
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

TEST_F(HostTest, LeaveWithCredentialsDeletesTheAccount) {
    ASSERT_EQ(Join(), 0U);
    EXPECT_EQ(Part(UserCredentials{"admin1", "wrong"}), 1326U);
    EXPECT_EQ(Part(kNobody), 5U);
    EXPECT_TRUE(IsJoined());
    EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
    EXPECT_EQ(Part(kDelegate), 0U);
    EXPECT_FALSE(IsJoined());
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

TEST_F(HostTest, LeaveWithCredentialsNeedsTheDomain) {
    ASSERT_EQ(Join(), 0U);
    Open().SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(Part(kAdmin), 1355U);
    EXPECT_TRUE(IsJoined());
}

TEST_F(HostTest, LeaveWithoutCredentialsOnlyForgets) {
    ASSERT_EQ(Join(), 0U);
    std::filesystem::remove(directoryPath + "-wal");
    std::filesystem::rename(directoryPath, folder / "away.db");
    EXPECT_EQ(Part({}), 0U);
    EXPECT_FALSE(IsJoined());
    EXPECT_EQ(Directory::Open(folder / "away.db").ListComputers().size(), 1U);
}

TEST_F(HostTest, LeaveOfAHostWhoseAccountIsGoneStillLeaves) {
    ASSERT_EQ(Join(), 0U);
    Open().RemoveComputer(kDomain, "node01");
    EXPECT_EQ(Part(kAdmin), 0U);
    EXPECT_FALSE(IsJoined());
}

TEST_F(HostTest, RejoinAfterAForgottenMembershipResetsTheAccount) {
    ASSERT_EQ(Join(), 0U);
    ASSERT_EQ(Part({}), 0U);
    ASSERT_EQ(Join(), 0U);
    EXPECT_EQ(Open().GetComputer(kDomain, "node01").keyVersion, 2U);
    EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
}

// --- Account and membership agree when one side fails ---

TEST_F(HostTest, NewAccountIsTakenBackIfTheMembershipCannotBeWritten) {
    BreakMembershipWrites("INSERT");
    EXPECT_EQ(Join(), 1359U);
    EXPECT_FALSE(IsJoined());
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

TEST_F(HostTest, OldAccountIsRestoredIfTheMembershipCannotBeWritten) {
    const JoinedComputer before = Open().JoinComputer(kDomain, "node01", "Hosts", kAdmin);
    BreakMembershipWrites("INSERT");
    EXPECT_EQ(Join(), 1359U);
    EXPECT_EQ(Open().CheckComputer(kDomain, "NODE01", before.secret.View()), kTrustStateHealthy);
}

TEST_F(HostTest, OneTimeSecretStaysGoodIfTheMembershipCannotBeWritten) {
    const PreStagedComputer staged = Open().PreStageComputer(kDomain, "node01");
    const auto join = [&] {
        return StatusOf([&] {
            host.JoinWithMachineAccount({"node01", kDomain, "", "", "NODE01$", staged.oneTimeSecret});
        });
    };
    BreakMembershipWrites("INSERT");
    EXPECT_EQ(join(), 1359U);
    MendMembershipWrites();
    EXPECT_EQ(join(), 0U);
}

TEST_F(HostTest, DeletedAccountComesBackIfTheMembershipCannotBeForgotten) {
    ASSERT_EQ(Join(), 0U);
    BreakMembershipWrites("DELETE");
    EXPECT_EQ(Part(kAdmin), 1359U);
    EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
}

TEST_F(HostTest, NothingIsTouchedIfTheMembershipFileIsNoFile) {
    ASSERT_EQ(mkdir(membershipPath.c_str(), 0700), 0);
    EXPECT_EQ(Join(), 5U);
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
    EXPECT_EQ(host.TrustState(), kTrustStateUnreadable);
    EXPECT_EQ(host.TrustRelationship(kDomain), kRelationshipUnreadable);
}

// --- Joining with a machine account ---

TEST_F(HostTest, MachineAccountJoin) {
    const PreStagedComputer staged = Open().PreStageComputer(kDomain, "node01", "Hosts");
    const auto sid = Open().FindDomain(kDomain)->sid;
    const auto join = [&](const MachineAccountJoin& account) {
        return StatusOf([&] { host.JoinWithMachineAccount(account); });
    };
    const std::string& secret = staged.oneTimeSecret;
    EXPECT_EQ(join({"abcdefghijklmnop", kDomain, "CORP", sid, "NODE01$", secret}), 1210U);
    EXPECT_EQ(join({"node01", kDomain, "CORP", "S-1-5-21-1-2-3", "NODE01$", secret}), 1810U);
    EXPECT_EQ(join({"node01", kDomain, "LAB", sid, "NODE01$", secret}), 1810U);
    EXPECT_EQ(join({"node01", "lab.test", "", "", "NODE01$", secret}), 1355U);
    EXPECT_EQ(join({"node01", "no good", "", "", "NODE01$", secret}), 1212U);
    EXPECT_EQ(join({"node01", kDomain, "CORP", sid, "NODE01$", "wrong"}), 1326U);
    EXPECT_EQ(join({"node01", kDomain, "corp", sid, "NODE01$", secret}), 0U);
    EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
    EXPECT_EQ(join({"node01", kDomain, "CORP", sid, "NODE01$", secret}), 2691U);
    ASSERT_EQ(Part({}), 0U);
    EXPECT_EQ(join({"node01", kDomain, "CORP", sid, "NODE01$", secret}), 1326U) << "used already";
}

// --- Trust state and the host's own log-on ---

TEST_F(HostTest, TrustStateFollowsWhatHappensInTheDomain) {
    ASSERT_EQ(Join(), 0U);
    Directory directory = Open();
    const auto trustedDomains = [&] { return StatusOf([&] { host.TrustedDomains(); }); };
    EXPECT_EQ(trustedDomains(), 0U);
    directory.SetComputerEnabled(kDomain, "node01", false);
    EXPECT_EQ(host.TrustState(), kTrustStateAccountDisabled);
    EXPECT_EQ(trustedDomains(), 1331U);
    directory.SetComputerEnabled(kDomain, "node01", true);
    directory.ResetComputer(kDomain, "node01");
    EXPECT_EQ(host.TrustState(), kTrustStateSecretMismatch);
    EXPECT_EQ(trustedDomains(), 1326U);
    directory.RemoveComputer(kDomain, "node01");
    EXPECT_EQ(host.TrustState(), kTrustStateAccountMissing);
    EXPECT_EQ(trustedDomains(), 1787U);
    directory.SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(host.TrustState(), kTrustStateNoController);
    EXPECT_EQ(trustedDomains(), 1355U);
}

TEST_F(HostTest, TrustStateWithoutADirectoryOrWithADamagedOne) {
    ASSERT_EQ(Join(), 0U);
    std::filesystem::remove(directoryPath);
    EXPECT_EQ(host.TrustState(), kTrustStateNoController);
    EXPECT_EQ(host.TrustRelationship("lab.test"), kRelationshipNoController);
    EXPECT_EQ(host.TrustRelationship("CORP"), kRelationshipOwnDomain);
    WriteFile(directoryPath, "damaged");
    EXPECT_EQ(host.TrustState(), kTrustStateUnreadable);
    EXPECT_EQ(host.TrustRelationship("lab.test"), kRelationshipUnreadable);
    EXPECT_EQ(host.ActiveDomain().dnsName, "corp.test") << "the host's own side needs no directory";
}

// --- Trusts ---

class TrustingHost : public HostTest {
 protected:
    TrustingHost() {
        Directory directory = Open();
        directory.AddDomain("lab.test");
        directory.AddUser("lab.test", "Bob", kPassword);
        directory.AddTrust({kDomain, "zeta.test", "", TrustDirection::Outbound, {}});
        directory.AddTrust({kDomain, "lab.test", "", TrustDirection::Bidirectional, {}});
        directory.AddTrust({kDomain, "in.test", "", TrustDirection::Inbound, {}});
        directory.AddTrust({kDomain, "odd.test", "", TrustDirection::Outbound, 99});
        EXPECT_EQ(Join(), 0U);
    }
};

TEST_F(TrustingHost, TrustedDomainsAreThoseWhoseUsersCanLogInInStableOrder) {
    std::vector<std::string> names;
    for (const auto& domain : host.TrustedDomains()) {
        names.push_back(domain.dnsName + "|" + domain.netbiosName);
    }
    EXPECT_THAT(names, ElementsAre("zeta.test|ZETA", "lab.test|LAB", "odd.test|ODD"));
}

TEST_F(TrustingHost, RelationshipsByEitherNameInAnyCase) {
    const std::pair<std::string, std::int32_t> rows[] = {{"corp.test", kRelationshipOwnDomain},
                                                         {"CORP", kRelationshipOwnDomain},
                                                         {"Corp.Test.", kRelationshipOwnDomain},
                                                         {"zeta.test", kRelationshipOutbound},
                                                         {"LAB", kRelationshipBidirectional},
                                                         {"in.test", kRelationshipInbound},
                                                         {"odd.test", 99},
                                                         {"no.test", kRelationshipUnknownDomain},
                                                         {"", kRelationshipUnknownDomain},
                                                         {"\xff\xfe", kRelationshipUnknownDomain},
                                                         {std::string(100000, 'x'), kRelationshipUnknownDomain}};
    for (const auto& [domain, relationship] : rows) {
        EXPECT_EQ(host.TrustRelationship(domain), relationship) << domain.substr(0, 40);
    }
    Open().SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(host.TrustRelationship("lab.test"), kRelationshipNoController);
}

TEST_F(TrustingHost, CanonicalUserNames) {
    for (const char* name : {"user1", "USER1@corp.test", "CORP\\User1", "user1@CORP"}) {
        EXPECT_EQ(host.CanonicalUserName(name), "user1@corp.test") << name;
    }
    EXPECT_EQ(host.CanonicalUserName("lab\\bob"), "Bob@lab.test");
    EXPECT_EQ(host.CanonicalUserName("BOB@lab.test"), "Bob@lab.test");
}

TEST_F(TrustingHost, CanonicalUserNameErrors) {
    const auto status = [&](const std::string& name) { return StatusOf([&] { host.CanonicalUserName(name); }); };
    EXPECT_EQ(status("nobody"), 1317U);
    EXPECT_EQ(status("bob"), 1317U);
    EXPECT_EQ(status("bob@no.test"), 1317U);
    EXPECT_EQ(status("bob@in.test"), 1317U) << "users of an inbound partner do not log in here";
    EXPECT_EQ(status("bob@zeta.test"), 1355U) << "trusted, but this directory does not hold it";
    EXPECT_EQ(status(""), 1315U);
    EXPECT_EQ(status("\xff"), 1315U);
    EXPECT_EQ(status(std::string(100000, 'x')), 1315U);
    Open().SetControllerReachable("lab.test", "dc1.lab.test", false);
    EXPECT_EQ(status("bob@lab.test"), 1355U);
    Open().ResetComputer(kDomain, "node01");
    EXPECT_EQ(status("user1"), 1326U);
}

TEST_F(TrustingHost, HostPrincipalIsOneForAllDomains) {
    for (const char* domain : {"corp.test", "CORP", "lab.test", "IN", "zeta.test."}) {
        EXPECT_EQ(host.HostPrincipal(domain), "host/node01.corp.test@CORP.TEST") << domain;
    }
    EXPECT_EQ(StatusOf([&] { host.HostPrincipal("no.test"); }), 1355U);
    EXPECT_EQ(StatusOf([&] { host.HostPrincipal(""); }), 1355U);
}

// --- Controllers ---

class Controllers : public HostTest {
 protected:
    Controllers() {
        directory.AddController({kDomain, "dc2.corp.test", 10, true});
        directory.AddController({kDomain, "dc3.corp.test", 5, true});
    }
    Directory directory = Open();
};

TEST_F(Controllers, LowestPriorityNumberComesFirst) {
    EXPECT_EQ(host.AnyController("", kDomain), "dc1.corp.test");
    directory.SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(host.AnyController("", "CORP"), "dc3.corp.test");
}

TEST_F(Controllers, PreferredOnesComeFirstWhileTheyAreReachable) {
    host.SetPreferredControllers({"gone.corp.test", "DC2.corp.test", "dc3.corp.test"});
    EXPECT_EQ(host.AnyController("", kDomain), "dc2.corp.test");
    EXPECT_EQ(host.AnyController("dc1.corp.test", kDomain), "dc1.corp.test");
    directory.SetControllerReachable(kDomain, "dc2.corp.test", false);
    EXPECT_EQ(host.AnyController("", kDomain), "dc3.corp.test");
    EXPECT_EQ(host.AnyController("dc2.corp.test", kDomain), "dc3.corp.test");
    directory.SetControllerReachable(kDomain, "dc3.corp.test", false);
    EXPECT_EQ(host.AnyController("", kDomain), "dc1.corp.test");
}

TEST_F(Controllers, EmptyDomainIsTheJoinedOne) {
    ASSERT_EQ(Join(), 0U);
    EXPECT_EQ(host.AnyController("", ""), "dc1.corp.test");
}

TEST_F(Controllers, NoneIsAnError) {
    for (const char* name : {"dc1.corp.test", "dc2.corp.test", "dc3.corp.test"}) {
        directory.SetControllerReachable(kDomain, name, false);
    }
    EXPECT_EQ(StatusOf([&] { host.AnyController("dc1.corp.test", kDomain); }), 1355U);
    EXPECT_EQ(StatusOf([&] { host.AnyController("", "no.test"); }), 1355U);
    EXPECT_EQ(StatusOf([&] { host.AnyController("", "no good"); }), 1212U);
}

}  // namespace
}  // namespace nimbrel::embedded::test
