// Computer accounts: pre-staging, joining, leaving, and what the domain says of a host's own log-on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "embeddeddirectory/directory.h"
#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

using ::testing::IsEmpty;

class Computers : public Sandbox {
 protected:
    JoinedComputer Join(const UserCredentials& credentials = kAdmin, const std::string& unit = "",
                        const std::string& hostName = "node01") {
        return directory.JoinComputer(kDomain, hostName, unit, credentials);
    }
    std::uint32_t JoinStatus(const UserCredentials& credentials, const std::string& unit = "",
                             const std::string& hostName = "node01") {
        return StatusOf([&] { Join(credentials, unit, hostName); });
    }
    std::int32_t Check(const JoinedComputer& joined) {
        return directory.CheckComputer(kDomain, joined.computer.name, joined.secret.View());
    }
    ComputerInfo Account() { return Open().GetComputer(kDomain, "node01"); }

    Directory directory = Open();
};

// --- Joining with a user's credentials ---

TEST_F(Computers, JoinCreatesTheAccount) {
    const JoinedComputer joined = Join(kAdmin, "OU=Sub,OU=Hosts,DC=corp,DC=test", "node01.corp.test");
    EXPECT_EQ(joined.domain.netbiosName, "CORP");
    EXPECT_EQ(joined.secret.View().size(), 64U);
    const ComputerInfo account = Account();
    EXPECT_EQ(account.name, "NODE01");
    EXPECT_EQ(account.path, "Hosts/Sub");
    EXPECT_EQ(account.distinguishedName, "CN=NODE01,OU=Sub,OU=Hosts,DC=corp,DC=test");
    EXPECT_EQ(account.hostPrincipal, "host/node01.corp.test@CORP.TEST");
    EXPECT_TRUE(account.enabled);
    EXPECT_FALSE(account.preStaged);
    EXPECT_EQ(account.keyVersion, 1U);
    EXPECT_EQ(Check(joined), kTrustStateHealthy);
}

TEST_F(Computers, JoinRefusals) {
    const struct {
        const char* what;
        UserCredentials credentials;
        std::string unit;
        std::string hostName;
        std::uint32_t status;
    } rows[] = {
        {"wrong password", {"admin1", "wrong"}, "", "node01", 1326},
        {"unknown user", {"nobody", kPassword}, "", "node01", 1326},
        {"no rights at all", kNobody, "", "node01", 5},
        {"default container is not delegated", kDelegate, "", "node01", 5},
        {"another unit is not delegated", kDelegate, "Lab", "node01", 5},
        {"unit missing", kAdmin, "Nowhere", "node01", 2},
        {"unit of another domain", kAdmin, "OU=Hosts,DC=lab,DC=test", "node01", 2},
        {"unit malformed", kAdmin, "a//b", "node01", 267},
        {"host name too long", kAdmin, "", "abcdefghijklmnop", 1210},
        {"host name malformed", kAdmin, "", "node_01", 1210},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(JoinStatus(row.credentials, row.unit, row.hostName), row.status) << row.what;
    }
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

TEST_F(Computers, JoinRefusalsOfFlaggedUsers) {
    const struct {
        UserFlags flags;
        std::uint32_t status;
    } rows[] = {
        {{.disabled = true, .mayJoin = true}, 1331},
        {{.locked = true, .mayJoin = true}, 1909},
        {{.expired = true, .mayJoin = true}, 1793},
        {{.passwordExpired = true, .mayJoin = true}, 1330},
        {{.mustChangePassword = true, .mayJoin = true}, 1907},
    };
    for (const auto& row : rows) {
        directory.SetUserFlags(kDomain, "admin1", row.flags);
        EXPECT_EQ(JoinStatus(kAdmin), row.status);
    }
}

TEST_F(Computers, DelegationReachesBelowItsUnit) {
    EXPECT_EQ(JoinStatus(kDelegate, "Hosts", "node01"), 0U);
    EXPECT_EQ(JoinStatus(kDelegate, "Hosts/Sub", "node02"), 0U);
}

TEST_F(Computers, AdministratorOfATrustedDomainHasNoRightHere) {
    directory.AddDomain("lab.test");
    directory.AddUser("lab.test", "boss", kPassword, {.mayJoin = true});
    directory.AddTrust({kDomain, "lab.test", "LAB", TrustDirection::Bidirectional, {}});
    EXPECT_EQ(JoinStatus({"LAB\\boss", kPassword}), 5U);
}

TEST_F(Computers, JoinNeedsAReachableController) {
    directory.AddController({kDomain, "dc2.corp.test", 5, true});
    directory.SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(JoinStatus(kAdmin), 0U);
    directory.SetControllerReachable(kDomain, "dc2.corp.test", false);
    EXPECT_EQ(JoinStatus(kAdmin), 1355U);
}

TEST_F(Computers, ExistingAccountIsResetWhereItStands) {
    const JoinedComputer first = Join(kAdmin, "Hosts");
    directory.SetComputerEnabled(kDomain, "node01", false);
    const JoinedComputer second = Join(kDelegate, "Hosts/Sub");
    EXPECT_EQ(Account().path, "Hosts");
    EXPECT_EQ(Account().keyVersion, 2U);
    EXPECT_TRUE(Account().enabled);
    EXPECT_EQ(Check(second), kTrustStateHealthy);
    EXPECT_EQ(Check(first), kTrustStateSecretMismatch);
}

TEST_F(Computers, ExistingAccountThatTheUserMayNotWriteIsLeftAlone) {
    const JoinedComputer first = Join(kAdmin, "Lab");
    EXPECT_EQ(JoinStatus(kDelegate, "Hosts"), 5U);
    EXPECT_EQ(Check(first), kTrustStateHealthy);
}

// --- Pre-staging ---

TEST_F(Computers, OneTimeSecretWorksOnceAndIsThenChanged) {
    const PreStagedComputer staged = directory.PreStageComputer(kDomain, "node01", "Hosts");
    EXPECT_TRUE(Account().preStaged);
    EXPECT_EQ(directory.CheckComputer(kDomain, "NODE01", staged.oneTimeSecret), kTrustStateSecretMismatch);
    const JoinedComputer joined = directory.JoinPreStagedComputer(kDomain, "node01$", staged.oneTimeSecret);
    EXPECT_FALSE(Account().preStaged);
    EXPECT_EQ(Account().keyVersion, 2U);
    EXPECT_EQ(Account().path, "Hosts");
    EXPECT_NE(joined.secret.View(), staged.oneTimeSecret);
    EXPECT_EQ(Check(joined), kTrustStateHealthy);
    EXPECT_EQ(StatusOf([&] { directory.JoinPreStagedComputer(kDomain, "node01", staged.oneTimeSecret); }), 1326U);
}

TEST_F(Computers, WrongOneTimeSecretLeavesTheAccountWaiting) {
    const PreStagedComputer staged = directory.PreStageComputer(kDomain, "node01");
    const auto join = [&](const std::string& domain, const std::string& name, const std::string& secret) {
        return StatusOf([&] { directory.JoinPreStagedComputer(domain, name, secret); });
    };
    EXPECT_EQ(join(kDomain, "node01", "wrong"), 1326U);
    EXPECT_EQ(join(kDomain, "node01", ""), 1326U);
    EXPECT_EQ(join(kDomain, "node02", staged.oneTimeSecret), 1326U);
    EXPECT_EQ(join(kDomain, "\xff", staged.oneTimeSecret), 1326U);
    EXPECT_EQ(join("no.test", "node01", staged.oneTimeSecret), 1355U);
    directory.SetComputerEnabled(kDomain, "node01", false);
    EXPECT_EQ(join(kDomain, "node01", staged.oneTimeSecret), 1331U);
    directory.SetComputerEnabled(kDomain, "node01", true);
    EXPECT_EQ(join(kDomain, "node01", staged.oneTimeSecret), 0U);
}

TEST_F(Computers, JoinedAccountHasNoOneTimeSecret) {
    const JoinedComputer joined = Join();
    EXPECT_EQ(StatusOf([&] { directory.JoinPreStagedComputer(kDomain, "node01", joined.secret.View()); }), 1326U);
}

TEST_F(Computers, PreStagingRefusals) {
    directory.PreStageComputer(kDomain, "node01");
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(kDomain, "NODE01$"); }), 1316U);
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(kDomain, "node_02"); }), 1210U);
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(kDomain, "node02", "Nowhere"); }), 2U);
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(kDomain, "node02", "Lab", kDelegate); }), 5U);
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(kDomain, "node02", "", kNobody); }), 5U);
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(kDomain, "node02", "", {"admin1", "wrong"}); }), 1326U);
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(kDomain, "node02", "Hosts/Sub", kDelegate); }), 0U);
    EXPECT_EQ(Open().ListComputers(kDomain).size(), 2U);
}

TEST_F(Computers, PreStagedAccountCanBeTakenOverByAnAdministrator) {
    const PreStagedComputer staged = directory.PreStageComputer(kDomain, "node01");
    Join();
    EXPECT_EQ(StatusOf([&] { directory.JoinPreStagedComputer(kDomain, "node01", staged.oneTimeSecret); }), 1326U);
}

// --- What the domain's side can do to a joined host ---

TEST_F(Computers, DomainSeesTheHostsOwnLogOn) {
    const JoinedComputer joined = Join();
    directory.SetComputerEnabled(kDomain, "node01", false);
    EXPECT_EQ(Check(joined), kTrustStateAccountDisabled);
    directory.SetComputerEnabled(kDomain, "NODE01$", true);
    EXPECT_EQ(Check(joined), kTrustStateHealthy);
    directory.SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(Check(joined), kTrustStateNoController);
    directory.SetControllerReachable(kDomain, "dc1.corp.test", true);
    directory.ResetComputer(kDomain, "node01");
    EXPECT_EQ(Check(joined), kTrustStateSecretMismatch);
    directory.RemoveComputer(kDomain, "node01");
    EXPECT_EQ(Check(joined), kTrustStateAccountMissing);
    directory.RemoveDomain(kDomain);
    EXPECT_EQ(Check(joined), kTrustStateNoController);
}

TEST_F(Computers, AdministratorsErrors) {
    EXPECT_EQ(StatusOf([&] { directory.ResetComputer(kDomain, "node01"); }), 1317U);
    EXPECT_EQ(StatusOf([&] { directory.SetComputerEnabled(kDomain, "node01", true); }), 1317U);
    EXPECT_EQ(StatusOf([&] { directory.RemoveComputer(kDomain, "node01"); }), 1317U);
    EXPECT_EQ(StatusOf([&] { directory.GetComputer(kDomain, "node01"); }), 1317U);
}

TEST_F(Computers, MachineSecretIsNowhereInTheDirectory) {
    const JoinedComputer joined = Join();
    const std::string bytes = ReadFile(directoryPath) + ReadFile(directoryPath + "-wal");
    EXPECT_NE(bytes.find("NODE01"), std::string::npos);
    EXPECT_EQ(bytes.find(std::string(joined.secret.View())), std::string::npos);
}

// --- Leaving ---

TEST_F(Computers, DeletionNeedsTheRight) {
    const JoinedComputer joined = Join(kAdmin, "Lab");
    const auto remove = [&](const UserCredentials& credentials) {
        return StatusOf([&] { directory.DeleteComputer(kDomain, "NODE01", credentials, joined.secret.View()); });
    };
    EXPECT_EQ(remove(kNobody), 5U);
    EXPECT_EQ(remove(kDelegate), 5U);
    EXPECT_EQ(remove({"admin1", "wrong"}), 1326U);
    EXPECT_EQ(Account().path, "Lab");
    EXPECT_EQ(remove(kAdmin), 0U);
    EXPECT_EQ(remove(kAdmin), 0U) << "an account that is gone already is no error";
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

// As in a real domain: whoever has joined under the name since would be locked out.
TEST_F(Computers, AccountThatIsAnotherHostsByNowIsNotDeleted) {
    const JoinedComputer first = Join();
    const JoinedComputer second = Join();
    const auto remove = [&](const JoinedComputer& host, const UserCredentials& credentials = kAdmin) {
        return directory.DeleteComputer(kDomain, "NODE01", credentials, host.secret.View()) != nullptr;
    };
    EXPECT_FALSE(remove(first));
    EXPECT_FALSE(remove(first, kNobody)) << "no right is needed for nothing";
    EXPECT_EQ(StatusOf([&] { remove(first, {"admin1", "wrong"}); }), 1326U);
    EXPECT_EQ(Check(second), kTrustStateHealthy);
    directory.SetComputerEnabled(kDomain, "node01", false);
    EXPECT_TRUE(remove(second)) << "its own, disabled or not";
    const JoinedComputer third = Join();
    directory.ResetComputer(kDomain, "node01");
    EXPECT_FALSE(remove(third)) << "it was reset for whoever joins next";
}

// --- Taking back ---

TEST_F(Computers, UndoneJoinLeavesNoNewAccount) {
    directory.UndoJoin(Join());
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

TEST_F(Computers, UndoneJoinBringsTheOldSecretAndStateBack) {
    const JoinedComputer first = Join(kAdmin, "Hosts");
    directory.SetComputerEnabled(kDomain, "node01", false);
    directory.UndoJoin(Join());
    EXPECT_EQ(Check(first), kTrustStateAccountDisabled);
    directory.SetComputerEnabled(kDomain, "node01", true);
    EXPECT_EQ(Check(first), kTrustStateHealthy);
    EXPECT_EQ(Account().keyVersion, 1U);
}

TEST_F(Computers, UndoneJoinMakesTheOneTimeSecretGoodAgain) {
    const PreStagedComputer staged = directory.PreStageComputer(kDomain, "node01");
    directory.UndoJoin(directory.JoinPreStagedComputer(kDomain, "node01", staged.oneTimeSecret));
    EXPECT_EQ(StatusOf([&] { directory.JoinPreStagedComputer(kDomain, "node01", staged.oneTimeSecret); }), 0U);
}

TEST_F(Computers, UndoLeavesALaterChangeAlone) {
    const JoinedComputer first = Join();
    const JoinedComputer second = Join();
    directory.UndoJoin(first);
    EXPECT_EQ(Check(second), kTrustStateHealthy);
    directory.RemoveDomain(kDomain);
    EXPECT_EQ(StatusOf([&] { directory.UndoJoin(second); }), 0U);
}

TEST_F(Computers, UndoneDeletionBringsTheAccountBack) {
    const JoinedComputer joined = Join(kAdmin, "Hosts");
    const auto deleted = directory.DeleteComputer(kDomain, "NODE01", kAdmin, joined.secret.View());
    ASSERT_NE(deleted, nullptr);
    directory.UndoDelete(*deleted);
    EXPECT_EQ(Check(joined), kTrustStateHealthy);
    EXPECT_EQ(Account().path, "Hosts");
    directory.UndoDelete(*deleted);
    EXPECT_EQ(Open().ListComputers().size(), 1U);
}

TEST_F(Computers, UndoneDeletionFallsBackToTheDefaultContainer) {
    const JoinedComputer joined = Join(kAdmin, "Lab");
    const auto deleted = directory.DeleteComputer(kDomain, "NODE01", kAdmin, joined.secret.View());
    directory.RemoveOrganizationalUnit(kDomain, "Lab");
    directory.UndoDelete(*deleted);
    EXPECT_EQ(Account().path, "");
}

}  // namespace
}  // namespace nimbrel::embedded::test
