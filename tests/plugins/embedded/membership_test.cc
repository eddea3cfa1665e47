#include "embeddeddirectory/membership.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MembershipTest : public ::testing::Test {
 protected:
    static MembershipInfo Example() {
        return {{"corp.test", "CORP", "S-1-5-21-1-2-3"}, "NODE01", "CN=NODE01,OU=Hosts,DC=corp,DC=test", "Hosts",
                "host/node01.corp.test@CORP.TEST",       7};
    }
    void Join() {
        MembershipChange change = membership.BeginChange();
        change.Record(Example(), "machine-secret-1");
        change.Commit();
    }
    Membership Reopen() const { return Membership::Open(path); }

    const TemporaryFolder folder;
    const std::string path = folder / "membership.db";
    Membership membership = Membership::Open(path);
};

TEST_F(MembershipTest, MissingFileIsNoMemberAndIsNotCreatedByQuestions) {
    EXPECT_FALSE(membership.Current().has_value());
    EXPECT_THAT(membership.PreferredControllers(), IsEmpty());
    EXPECT_THAT(membership.SmartCardServices(), IsEmpty());
    EXPECT_EQ(StatusOf([&] { membership.MachineSecret(); }), 2692U);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(MembershipTest, RecordedMembershipIsReadBackWhole) {
    Join();
    const auto current = Reopen().Current();
    ASSERT_TRUE(current.has_value());
    EXPECT_EQ(current->domain.dnsName, "corp.test");
    EXPECT_EQ(current->domain.netbiosName, "CORP");
    EXPECT_EQ(current->domain.sid, "S-1-5-21-1-2-3");
    EXPECT_EQ(current->accountName, "NODE01");
    EXPECT_EQ(current->distinguishedName, "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    EXPECT_EQ(current->organizationalUnit, "Hosts");
    EXPECT_EQ(current->hostPrincipal, "host/node01.corp.test@CORP.TEST");
    EXPECT_EQ(current->keyVersion, 7U);
    EXPECT_EQ(Reopen().MachineSecret().View(), "machine-secret-1");
}

TEST_F(MembershipTest, ChangeThatIsNotCommittedLeavesTheFileAsItWas) {
    {
        MembershipChange change = membership.BeginChange();
        change.Record(Example(), "machine-secret-1");
        EXPECT_TRUE(change.Current().has_value());
    }
    EXPECT_FALSE(Reopen().Current().has_value());
    Join();
    membership.BeginChange().Forget();
    EXPECT_TRUE(Reopen().Current().has_value());
}

TEST_F(MembershipTest, OnlyOneMembershipAtATime) {
    Join();
    EXPECT_EQ(StatusOf([&] { Join(); }), 2691U);
}

TEST_F(MembershipTest, LeaveForgetsTheSecretAndThePreferredControllersButNotTheServices) {
    Join();
    membership.SetPreferredControllers({"dc1.corp.test"});
    membership.SetSmartCardServices({"login"});
    MembershipChange change = membership.BeginChange();
    change.Forget();
    EXPECT_EQ(StatusOf([&] { change.Forget(); }), 2692U);
    change.Commit();
    const MembershipSnapshot left = Reopen().Export();
    EXPECT_FALSE(left.membership.has_value());
    EXPECT_THAT(left.preferredControllers, IsEmpty());
    EXPECT_THAT(left.smartCardServices, ElementsAre("login"));
}

TEST_F(MembershipTest, ForgottenSecretIsOverwrittenInTheFile) {
    Join();
    const auto holdsSecret = [&] { return ReadFile(path).find("machine-secret-1") != std::string::npos; };
    EXPECT_TRUE(holdsSecret());
    MembershipChange change = membership.BeginChange();
    change.Forget();
    change.Commit();
    change = Reopen().BeginChange();
    { const MembershipChange closed = std::move(change); }
    EXPECT_FALSE(holdsSecret());
}

TEST_F(MembershipTest, ListsAreReplacedWholeAndKeepTheirOrder) {
    membership.SetPreferredControllers({"DC2.corp.test", "dc1.corp.test."});
    EXPECT_THAT(Reopen().PreferredControllers(), ElementsAre("dc2.corp.test", "dc1.corp.test"));
    membership.SetPreferredControllers({"dc9"});
    EXPECT_THAT(Reopen().PreferredControllers(), ElementsAre("dc9"));
    membership.SetPreferredControllers({});
    EXPECT_THAT(Reopen().PreferredControllers(), IsEmpty());
    membership.SetSmartCardServices({"login", "sshd", "login"});
    EXPECT_THAT(Reopen().SmartCardServices(), ElementsAre("login", "sshd", "login"));
}

TEST_F(MembershipTest, MalformedEntriesChangeNothing) {
    membership.SetPreferredControllers({"dc1"});
    membership.SetSmartCardServices({"login"});
    EXPECT_EQ(StatusOf([&] { membership.SetPreferredControllers({"dc2", "no good"}); }), 1210U);
    EXPECT_EQ(StatusOf([&] { membership.SetPreferredControllers(std::vector<std::string>(257, "dc")); }), 87U);
    for (const std::string& bad : {std::string(), std::string("a\nb"), std::string("\xff"), std::string(256, 'x')}) {
        EXPECT_EQ(StatusOf([&] { membership.SetSmartCardServices({"sshd", bad}); }), 87U) << bad;
    }
    EXPECT_THAT(Reopen().PreferredControllers(), ElementsAre("dc1"));
    EXPECT_THAT(Reopen().SmartCardServices(), ElementsAre("login"));
}

}  // namespace
}  // namespace nimbrel::embedded::test
