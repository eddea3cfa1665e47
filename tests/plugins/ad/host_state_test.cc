#include "host_state.h"

#include <gmock/gmock.h>

#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;

class HostStateFile : public Sandbox {};

const Membership kMembership = {"corp.test", "CORP", "S-1-5-21-1-2-3", "NODE01",
                                "CN=NODE01,OU=A\\, \"B\",DC=corp,DC=test"};

TEST_F(HostStateFile, IsReadAsWritten) {
    HostState state;
    state.membership = kMembership;
    state.preferredControllers = {"dc2.corp.test", "dc1.corp.test"};
    state.Save(Path("ad/membership"));
    EXPECT_EQ(ModeOf(Path("ad/membership")), 0600U);
    EXPECT_EQ(FileCount(Path("ad")), 1U);
    const HostState again = HostState::Load(Path("ad/membership"));
    ASSERT_TRUE(again.membership);
    EXPECT_EQ(again.membership->distinguishedName, kMembership.distinguishedName);
    EXPECT_EQ(again.membership->sid, kMembership.sid);
    EXPECT_THAT(again.preferredControllers, ElementsAre("dc2.corp.test", "dc1.corp.test"));
    EXPECT_EQ(again.Format(), state.Format());
}

// What one version has written another one reads.
TEST_F(HostStateFile, LinesHaveTheirNames) {
    const std::string text =
        "format = \"1\"\n"
        "domain = \"corp.test\"\n"
        "netbios_name = \"CORP\"\n"
        "sid = \"S-1-5-21-1-2-3\"\n"
        "computer = \"NODE01\"\n"
        "distinguished_name = \"CN=NODE01,DC=corp,DC=test\"\n"
        "account_sid = \"S-1-5-21-1-2-3-1105\"\n"
        "preferred_controller = \"dc1.corp.test\"\n";
    const HostState state = HostState::Parse(text);
    ASSERT_TRUE(state.membership);
    EXPECT_EQ(state.membership->domain, "corp.test");
    EXPECT_EQ(state.membership->netbiosName, "CORP");
    EXPECT_EQ(state.membership->sid, "S-1-5-21-1-2-3");
    EXPECT_EQ(state.membership->computer, "NODE01");
    EXPECT_EQ(state.membership->distinguishedName, "CN=NODE01,DC=corp,DC=test");
    EXPECT_EQ(state.membership->accountSid, "S-1-5-21-1-2-3-1105");
    EXPECT_THAT(state.preferredControllers, ElementsAre("dc1.corp.test"));
    EXPECT_EQ(state.Format(), text);
}

TEST_F(HostStateFile, FileWithoutTheAccountsSidIsGood) {
    HostState state;
    state.membership = kMembership;
    EXPECT_EQ(HostState::Parse(state.Format()).membership->accountSid, "");
    state.membership->accountSid = "S-1-5-21-1-2-3-1105";
    const std::string text = state.Format();
    EXPECT_EQ(HostState::Parse(text).membership->accountSid, "S-1-5-21-1-2-3-1105");
    const std::string alone = "format = \"1\"\naccount_sid = \"S-1-5-21-1-2-3-1105\"\n";
    EXPECT_EQ(StatusOf([&] { HostState::Parse(alone); }), kStatusInternalError) << "no membership";
}

TEST_F(HostStateFile, NothingToKeepLeavesNoFile) {
    EXPECT_FALSE(HostState::Load(Path("membership")).membership);
    HostState state;
    state.membership = kMembership;
    state.Save(Path("membership"));
    HostState().Save(Path("membership"));
    EXPECT_EQ(FileCount(Folder()), 0U);
}

TEST_F(HostStateFile, DamageIsNotReadAsNotJoined) {
    HostState state;
    state.membership = kMembership;
    const std::string good = state.Format();
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_EQ(StatusOf([&] {
                      if (HostState::Parse(good.substr(0, size)).membership) {
                          ADD_FAILURE() << size;
                      }
                  }),
                  size == std::string("format = \"1\"\n").size() ? 0U : kStatusInternalError)
            << size;
    }
    for (const std::string& text : {good + "x\n", good + "other = \"1\"\n", good + good, "\n" + good,
                                    std::string("format = \"2\"\n"), std::string(1, '\0')}) {
        EXPECT_EQ(StatusOf([&] { HostState::Parse(text); }), kStatusInternalError) << text;
    }
    const std::string preferred = "format = \"1\"\npreferred_controller = \"dc1\"\n";
    EXPECT_THAT(HostState::Parse(preferred).preferredControllers, ElementsAre("dc1"));
    for (const std::size_t cut : {1U, 2U, 3U, 5U, 6U}) {
        EXPECT_EQ(StatusOf([&] { HostState::Parse(preferred.substr(0, preferred.size() - cut)); }),
                  kStatusInternalError)
            << cut;
        EXPECT_EQ(StatusOf([&] { HostState::Parse(preferred.substr(0, preferred.size() - cut) + "\n"); }),
                  cut == 1 ? 0U : kStatusInternalError)
            << cut;
    }
}

// Such a file could be read, but not written again by a leave.
TEST_F(HostStateFile, WhatCouldNotBeWrittenIsDamage) {
    for (const char* value : {"", "a\tb", "a\x7f", "a\r"}) {
        const std::string text = std::string("format = \"1\"\npreferred_controller = \"") + value + "\"\n";
        EXPECT_EQ(StatusOf([&] { HostState::Parse(text); }), kStatusInternalError) << value;
    }
}

TEST_F(HostStateFile, NamesThatWouldBreakALineAreRefused) {
    HostState state;
    state.membership = kMembership;
    state.membership->distinguishedName = "CN=a\nb";
    EXPECT_EQ(StatusOf([&] { state.Save(Path("membership")); }), kStatusInternalError);
    EXPECT_EQ(FileCount(Folder()), 0U);
}

TEST_F(HostStateFile, FileOfOthersIsRefused) {
    WriteFile(Path("membership"), "format = \"1\"\n");
    std::filesystem::permissions(Path("membership"), std::filesystem::perms(0622));
    EXPECT_EQ(StatusOf([&] { HostState::Load(Path("membership")); }), kStatusAccessDenied);
}

}  // namespace
}  // namespace nimbrel::ad::test
