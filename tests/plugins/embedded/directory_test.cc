// Domains, users, units, controllers and trusts, as their administrator changes them. Every test reads back through a
// second connection, so each also proves persistence.

#include "embeddeddirectory/directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

template <class Item>
std::vector<std::string> NamesOf(const std::vector<Item>& items) {
    std::vector<std::string> names;
    for (const auto& item : items) {
        names.push_back(item.name);
    }
    return names;
}

std::vector<std::string> PathsOf(const std::vector<OrganizationalUnitInfo>& units) {
    std::vector<std::string> paths;
    for (const auto& unit : units) {
        paths.push_back(unit.path);
    }
    return paths;
}

class DirectoryTest : public Sandbox {
 protected:
    Directory directory = Open();
};

// --- Domains ---

TEST_F(DirectoryTest, NewDomainHasNamesASidAndAController) {
    const DomainInfo added = directory.AddDomain("Lab.Test.");
    EXPECT_EQ(added.dnsName, "lab.test");
    EXPECT_EQ(added.netbiosName, "LAB");
    EXPECT_THAT(added.sid, MatchesRegex("S-1-5-21-[0-9]+-[0-9]+-[0-9]+"));
    const auto found = Open().FindDomain("LAB");
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->sid, added.sid);
    const auto controllers = Open().ListControllers("lab.test");
    EXPECT_THAT(NamesOf(controllers), ElementsAre("dc1.lab.test"));
    EXPECT_TRUE(controllers[0].reachable);
}

TEST_F(DirectoryTest, DomainNamesAreUniqueAndWellFormed) {
    EXPECT_EQ(StatusOf([&] { directory.AddDomain("CORP.test"); }), 1356U);
    EXPECT_EQ(StatusOf([&] { directory.AddDomain("other.test", "corp"); }), 1356U);
    EXPECT_EQ(StatusOf([&] { directory.AddDomain("corp"); }), 1356U) << "a NetBIOS name is taken too";
    EXPECT_EQ(StatusOf([&] { directory.AddDomain("no good"); }), 1212U);
    EXPECT_EQ(StatusOf([&] { directory.AddDomain("lab.test", "TOO-LONG-NETBIOS"); }), 1212U);
    EXPECT_EQ(Open().ListDomains().size(), 1U);
}

TEST_F(DirectoryTest, DomainsAreListedInTheOrderOfAdding) {
    directory.AddDomain("zeta.test");
    directory.AddDomain("alpha.test");
    std::vector<std::string> names;
    for (const auto& domain : Open().ListDomains()) {
        names.push_back(domain.dnsName);
    }
    EXPECT_THAT(names, ElementsAre("corp.test", "zeta.test", "alpha.test"));
}

TEST_F(DirectoryTest, RemovedDomainTakesEverythingWithIt) {
    directory.AddDomain("lab.test");
    directory.AddTrust({"lab.test", kDomain, "CORP", TrustDirection::Outbound, {}});
    directory.PreStageComputer(kDomain, "node01", "Hosts/Sub");
    directory.RemoveDomain("corp");
    const DirectorySnapshot left = Open().Export();
    EXPECT_EQ(left.domains.size(), 1U);
    EXPECT_THAT(left.users, IsEmpty());
    EXPECT_THAT(left.organizationalUnits, IsEmpty());
    EXPECT_THAT(left.computers, IsEmpty());
    EXPECT_THAT(left.trusts, IsEmpty());
    EXPECT_THAT(NamesOf(left.controllers), ElementsAre("dc1.lab.test"));
}

TEST_F(DirectoryTest, UnknownDomainIsSaidByEveryCall) {
    const std::string no = "no.test";
    EXPECT_EQ(StatusOf([&] { directory.RemoveDomain(no); }), 1355U);
    EXPECT_EQ(StatusOf([&] { directory.AddUser(no, "a", "b"); }), 1355U);
    EXPECT_EQ(StatusOf([&] { directory.ListUsers(no); }), 1355U);
    EXPECT_EQ(StatusOf([&] { directory.AddOrganizationalUnit(no, "a"); }), 1355U);
    EXPECT_EQ(StatusOf([&] { directory.PreStageComputer(no, "a"); }), 1355U);
    EXPECT_EQ(StatusOf([&] { directory.AddTrust({no, "a.test", "A", TrustDirection::Inbound, {}}); }), 1355U);
    EXPECT_EQ(StatusOf([&] { directory.AddController({no, "dc9.no.test", 0, true}); }), 1355U);
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(no, kAdmin); }), 1355U);
    EXPECT_FALSE(directory.FindDomain(no).has_value());
    EXPECT_EQ(StatusOf([&] { directory.FindDomain("no good"); }), 1212U);
}

// --- Users ---

TEST_F(DirectoryTest, UsersKeepTheirSpellingAndAreFoundInAnyCase) {
    directory.AddUser(kDomain, "Alice", "pw", {.locked = true, .mayJoin = true}, {"Lab", "OU=Sub,OU=Hosts"});
    const auto user = Open().FindUser("CORP", "aLICE");
    ASSERT_TRUE(user.has_value());
    EXPECT_EQ(user->name, "Alice");
    EXPECT_EQ(user->domain, "corp.test");
    EXPECT_TRUE(user->flags.locked);
    EXPECT_TRUE(user->flags.mayJoin);
    EXPECT_FALSE(user->flags.disabled);
    EXPECT_THAT(user->delegatedUnits, ElementsAre("Hosts/Sub", "Lab"));
}

TEST_F(DirectoryTest, UsersAreFoundByNumberInTheirDomainOnly) {
    directory.AddDomain("two.test");
    for (const UserInfo& user : Open().ListUsers(kDomain)) {
        const auto found = Open().FindUserByNumber("CORP", user.number);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->name, user.name);
        EXPECT_EQ(found->flags.mayJoin, user.flags.mayJoin);
        EXPECT_EQ(found->delegatedUnits, user.delegatedUnits);
        EXPECT_FALSE(Open().FindUserByNumber("two.test", user.number));
    }
    EXPECT_FALSE(Open().FindUserByNumber(kDomain, 99));
    EXPECT_EQ(StatusOf([&] { Open().FindUserByNumber("none.test", 1); }), 1355U);
}

TEST_F(DirectoryTest, UserErrors) {
    EXPECT_EQ(StatusOf([&] { directory.AddUser(kDomain, "ADMIN1", "pw"); }), 1316U);
    EXPECT_EQ(StatusOf([&] { directory.AddUser(kDomain, "a@b", "pw"); }), 1315U);
    EXPECT_EQ(StatusOf([&] { directory.AddUser(kDomain, "a", ""); }), 87U);
    EXPECT_EQ(StatusOf([&] { directory.AddUser(kDomain, "a", std::string(257, 'x')); }), 87U);
    EXPECT_EQ(StatusOf([&] { directory.AddUser(kDomain, "a", "pw", {}, {"Nowhere"}); }), 2U);
    EXPECT_EQ(StatusOf([&] { directory.AddUser(kDomain, "a", "pw", {}, {""}); }), 267U);
    EXPECT_EQ(StatusOf([&] { directory.SetUserPassword(kDomain, "nobody", "pw"); }), 1317U);
    EXPECT_EQ(StatusOf([&] { directory.SetUserFlags(kDomain, "nobody", {}); }), 1317U);
    EXPECT_EQ(StatusOf([&] { directory.SetUserDelegation(kDomain, "nobody", {}); }), 1317U);
    EXPECT_EQ(StatusOf([&] { directory.RemoveUser(kDomain, "nobody"); }), 1317U);
    EXPECT_THAT(NamesOf(Open().ListUsers()), ElementsAre("admin1", "delegate1", "user1"));
}

TEST_F(DirectoryTest, UserChangesStay) {
    directory.SetUserFlags(kDomain, "user1", {.disabled = true});
    directory.SetUserDelegation(kDomain, "user1", {"Lab"});
    directory.RemoveUser(kDomain, "delegate1");
    const auto user = Open().FindUser(kDomain, "user1");
    EXPECT_TRUE(user->flags.disabled);
    EXPECT_THAT(user->delegatedUnits, ElementsAre("Lab"));
    EXPECT_THAT(NamesOf(Open().ListUsers(kDomain)), ElementsAre("admin1", "user1"));
}

TEST_F(DirectoryTest, NewPasswordReplacesTheOldOne) {
    directory.SetUserPassword(kDomain, "user1", "new one");
    EXPECT_EQ(StatusOf([&] { Open().Authenticate(kDomain, {"user1", "new one"}); }), 0U);
    EXPECT_EQ(StatusOf([&] { Open().Authenticate(kDomain, kNobody); }), 1326U);
}

TEST_F(DirectoryTest, PasswordsAreNowhereInTheFile) {
    directory.AddUser(kDomain, "alice", "Correct-Horse-7");
    std::string bytes = ReadFile(directoryPath) + ReadFile(directoryPath + "-wal");
    EXPECT_NE(bytes.find("alice"), std::string::npos);
    EXPECT_EQ(bytes.find("Correct-Horse-7"), std::string::npos);
    EXPECT_EQ(bytes.find(kPassword), std::string::npos);
}

// --- Log-on ---

TEST_F(DirectoryTest, UserNamesMayCarryTheDomain) {
    for (const char* name : {"user1", "USER1", "user1@corp.test", "user1@CORP", "CORP\\user1", "corp.test\\User1"}) {
        EXPECT_EQ(directory.Authenticate(kDomain, {name, kPassword}).name, "user1") << name;
    }
}

TEST_F(DirectoryTest, LogOnFailuresLookAlike) {
    const UserCredentials wrong[] = {{"user1", "wrong"},
                                     {"user1", ""},
                                     {"user1", "winter-2031!"},
                                     {"nobody", kPassword},
                                     {"", kPassword},
                                     {"user1@other.test", kPassword},
                                     {"user1@corp.test@corp.test", kPassword},
                                     {"\xff\xfe", kPassword}};
    for (const auto& credentials : wrong) {
        EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, credentials); }), 1326U) << credentials.userName;
    }
    const std::string longText(100000, 'x');
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, {longText, kPassword}); }), 1326U);
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, {"user1", longText}); }), 1326U);
}

TEST_F(DirectoryTest, FlagsStandInTheWayOfTheRightPassword) {
    const struct {
        UserFlags flags;
        std::uint32_t status;
        std::uint32_t statusWithWrongPassword;
    } rows[] = {
        {{.disabled = true}, 1331, 1326},
        {{.locked = true}, 1909, 1909},
        {{.expired = true}, 1793, 1326},
        {{.passwordExpired = true}, 1330, 1326},
        {{.mustChangePassword = true}, 1907, 1326},
        {{.mayJoin = true}, 0, 1326},
    };
    for (const auto& row : rows) {
        directory.SetUserFlags(kDomain, "user1", row.flags);
        EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, kNobody); }), row.status);
        EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, {"user1", "wrong"}); }), row.statusWithWrongPassword);
    }
}

TEST_F(DirectoryTest, UsersOfATrustedDomainLogOn) {
    directory.AddDomain("lab.test");
    directory.AddUser("lab.test", "bob", kPassword);
    const UserCredentials bob = {"bob@lab.test", kPassword};
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, bob); }), 1326U);
    directory.AddTrust({kDomain, "lab.test", "LAB", TrustDirection::Inbound, {}});
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, bob); }), 1326U);
    directory.RemoveTrust(kDomain, "LAB");
    directory.AddTrust({kDomain, "lab.test", "LAB", TrustDirection::Outbound, {}});
    EXPECT_EQ(directory.Authenticate(kDomain, bob).domain, "lab.test");
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, {"bob", kPassword}); }), 1326U);
}

TEST_F(DirectoryTest, NobodyLogsOnWithoutAController) {
    directory.SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, kAdmin); }), 1355U);
    directory.RemoveController(kDomain, "dc1.corp.test");
    EXPECT_EQ(StatusOf([&] { directory.Authenticate(kDomain, kAdmin); }), 1355U);
}

// --- Organizational units ---

TEST_F(DirectoryTest, MissingUnitsAboveAreAdded) {
    const auto unit = directory.AddOrganizationalUnit(kDomain, "OU=c,OU=b,OU=hosts,DC=corp,DC=test");
    EXPECT_EQ(unit.path, "Hosts/b/c");
    EXPECT_EQ(unit.distinguishedName, "OU=c,OU=b,OU=Hosts,DC=corp,DC=test");
    EXPECT_THAT(PathsOf(Open().ListOrganizationalUnits(kDomain)),
                ElementsAre("Hosts", "Hosts/Sub", "Lab", "Hosts/b", "Hosts/b/c"));
}

TEST_F(DirectoryTest, UnitErrors) {
    EXPECT_EQ(StatusOf([&] { directory.AddOrganizationalUnit(kDomain, "hosts/SUB"); }), 183U);
    EXPECT_EQ(StatusOf([&] { directory.AddOrganizationalUnit(kDomain, ""); }), 267U);
    EXPECT_EQ(StatusOf([&] { directory.AddOrganizationalUnit(kDomain, "a//b"); }), 267U);
    EXPECT_EQ(StatusOf([&] { directory.RemoveOrganizationalUnit(kDomain, "Nowhere"); }), 2U);
    EXPECT_EQ(StatusOf([&] { directory.RemoveOrganizationalUnit(kDomain, ""); }), 267U);
    EXPECT_EQ(StatusOf([&] { directory.RemoveOrganizationalUnit(kDomain, "Hosts"); }), 145U);
    directory.PreStageComputer(kDomain, "node01", "Lab");
    EXPECT_EQ(StatusOf([&] { directory.RemoveOrganizationalUnit(kDomain, "Lab"); }), 145U);
}

TEST_F(DirectoryTest, RemovedUnitTakesItsDelegationsWithIt) {
    directory.SetUserDelegation(kDomain, "user1", {"Lab", "Hosts"});
    directory.RemoveOrganizationalUnit(kDomain, "OU=Lab,DC=corp,DC=test");
    EXPECT_THAT(Open().FindUser(kDomain, "user1")->delegatedUnits, ElementsAre("Hosts"));
    EXPECT_THAT(PathsOf(Open().ListOrganizationalUnits()), ElementsAre("Hosts", "Hosts/Sub"));
}

// --- Trusts and controllers ---

TEST_F(DirectoryTest, TrustsHaveTheRelationshipOfTheirDirectionUnlessGiven) {
    directory.AddTrust({kDomain, "z.test", "", TrustDirection::Inbound, {}});
    directory.AddTrust({kDomain, "a.test", "", TrustDirection::Outbound, {}});
    directory.AddTrust({kDomain, "m.test", "MID", TrustDirection::Bidirectional, {}});
    directory.AddTrust({kDomain, "o.test", "", TrustDirection::Outbound, 42});
    const auto trusts = Open().ListTrusts("CORP");
    ASSERT_EQ(trusts.size(), 4U);
    EXPECT_EQ(trusts[0].partnerDnsName, "z.test");
    EXPECT_EQ(trusts[0].partnerNetbiosName, "Z");
    EXPECT_EQ(trusts[0].relationship, kRelationshipInbound);
    EXPECT_EQ(trusts[1].relationship, kRelationshipOutbound);
    EXPECT_EQ(trusts[2].relationship, kRelationshipBidirectional);
    EXPECT_EQ(trusts[2].partnerNetbiosName, "MID");
    EXPECT_EQ(trusts[3].relationship, 42);
}

TEST_F(DirectoryTest, TrustErrors) {
    const auto add = [&](const std::string& dns, const std::string& netbios, int direction,
                         std::optional<std::int32_t> relationship) {
        return StatusOf([&] {
            directory.AddTrust({kDomain, dns, netbios, static_cast<TrustDirection>(direction), relationship});
        });
    };
    EXPECT_EQ(add("a.test", "", 2, {}), 0U);
    EXPECT_EQ(add("A.test", "B", 2, {}), 183U);
    EXPECT_EQ(add("b.test", "a", 2, {}), 183U);
    EXPECT_EQ(add("b test", "", 2, {}), 1212U);
    EXPECT_EQ(add("corp.test", "X", 2, {}), 1212U);
    EXPECT_EQ(add("b.test", "", 9, {}), 87U);
    for (const std::int32_t reserved : {0, 2, 6, 7}) {
        EXPECT_EQ(add("b.test", "", 2, reserved), 87U) << reserved;
    }
    EXPECT_EQ(StatusOf([&] { directory.RemoveTrust(kDomain, "b.test"); }), 1168U);
    EXPECT_EQ(StatusOf([&] { directory.RemoveTrust(kDomain, "a"); }), 0U);
    EXPECT_THAT(Open().ListTrusts(), IsEmpty());
}

TEST_F(DirectoryTest, ControllersAreListedByPriorityAndName) {
    directory.AddController({kDomain, "DC3.corp.test", 0, false});
    directory.AddController({kDomain, "dc2.corp.test", 0, true});
    directory.AddController({kDomain, "dc0.corp.test", 10, true});
    const auto controllers = Open().ListControllers();
    EXPECT_THAT(NamesOf(controllers), ElementsAre("dc1.corp.test", "dc2.corp.test", "dc3.corp.test", "dc0.corp.test"));
    EXPECT_FALSE(controllers[2].reachable);
    EXPECT_EQ(controllers[3].priority, 10);
}

TEST_F(DirectoryTest, ControllerErrors) {
    EXPECT_EQ(StatusOf([&] { directory.AddController({kDomain, "DC1.corp.test", 0, true}); }), 183U);
    EXPECT_EQ(StatusOf([&] { directory.AddController({kDomain, "dc 2", 0, true}); }), 1210U);
    EXPECT_EQ(StatusOf([&] { directory.AddController({kDomain, "dc2", -1, true}); }), 87U);
    EXPECT_EQ(StatusOf([&] { directory.AddController({kDomain, "dc2", 65536, true}); }), 87U);
    EXPECT_EQ(StatusOf([&] { directory.RemoveController(kDomain, "dc2"); }), 1168U);
    EXPECT_EQ(StatusOf([&] { directory.SetControllerReachable(kDomain, "dc2", true); }), 1168U);
}

TEST_F(DirectoryTest, RefusalsChangeNothing) {
    const DirectorySnapshot before = directory.Export();
    StatusOf([&] { directory.AddUser(kDomain, "alice", "pw", {}, {"Lab", "Nowhere"}); });
    StatusOf([&] { directory.SetUserDelegation(kDomain, "user1", {"Lab", "Nowhere"}); });
    EXPECT_EQ(Open().Export().users.size(), before.users.size());
    EXPECT_THAT(Open().FindUser(kDomain, "user1")->delegatedUnits, IsEmpty());
}

TEST_F(DirectoryTest, MessagesNameTheThingAndNeverTheSecret) {
    try {
        directory.Authenticate(kDomain, {"user1", "Tell-Nobody-3"});
        FAIL();
    } catch (const DirectoryError& error) {
        EXPECT_EQ(std::string(error.what()).find("Tell-Nobody-3"), std::string::npos);
        EXPECT_STREQ(error.what(), "The user is unknown or the password is wrong");
    }
}

}  // namespace
}  // namespace nimbrel::embedded::test
