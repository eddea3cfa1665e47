// The commands that ask the directory one thing each, or change one.

#include <filesystem>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class DirectoryQuestionsTest : public ToolHost {
 protected:
    static void Hang(const std::string& operation) { Done({"directory", "rehearse", operation, "--delay", "10m"}); }
    static std::string Stale(Words words) {
        words.insert(words.end(), {"--timeout", "1"});
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(6)) << ::testing::PrintToString(words);
        return result.output;
    }
};

TEST_F(DirectoryQuestionsTest, TrustsTellStatesAndRelationshipsInWordsAndTheirAge) {
    HaveJoined();
    Done({"directory", "trust", "add", "corp.test", "trust.test"});
    EXPECT_THAT(Done({"trusts"}), AllOf(HasLine("domain: corp.test"), HasLine("trust state: 1 (healthy)"),
                                        HasLine("own relationship: 1 (own domain)"),
                                        HasLine("trusted domain: trust.test netbios=TRUST relationship=5 "
                                                "means=\"users of either can log in at the other\""),
                                        HasSubstr("\nanswer: trust state age-seconds=")));
    Hang("get-domain-trust-state");
    EXPECT_THAT(
        Stale({"trusts"}),
        AllOf(HasLine("answer: trust state age-seconds=none stale=yes because=\"no answer within --timeout 1\""),
              HasSubstr("\nanswer: membership age-seconds=")));
}

TEST_F(DirectoryQuestionsTest, TrustsOfAHostThatIsNotJoined) {
    EXPECT_THAT(Done({"trusts"}), AllOf(HasLine("domain: none"), HasSubstr("trust state: 7 ")));
}

TEST_F(DirectoryQuestionsTest, PreferredControllersAreReplacedAndReadBack) {
    HaveJoined();
    EXPECT_EQ("preferred controllers: none\n", Done({"dc", "list"}));
    Done({"dc", "prefer", "dc2.corp.test", "DC1.corp.test"});
    EXPECT_EQ("preferred controller: dc2.corp.test\npreferred controller: dc1.corp.test\n", Done({"dc", "list"}));
    EXPECT_EQ("preferred controllers: none\n", Done({"dc", "prefer", "--none"}));
    EXPECT_THAT(Ctl({"dc", "prefer"}), ExitsWith(2));
    EXPECT_THAT(Ctl({"dc", "prefer", "--none", "dc1.corp.test"}), ExitsWith(2));
    EXPECT_THAT(Ctl({"dc", "prefer", "no name"}), ExitsWith(2));
}

TEST_F(DirectoryQuestionsTest, AnyControllerIsFoundOrTheFailureTold) {
    HaveJoined();
    EXPECT_THAT(Done({"dc", "any"}), HasLine("controller: dc1.corp.test"));
    EXPECT_THAT(Done({"dc", "any", "corp.test"}), HasLine("controller: dc1.corp.test"));
    EXPECT_THAT(Ctl({"dc", "any", "nosuch.test"}), ExitsWith(9));
    Hang("get-any-domain-controller");
    EXPECT_EQ("domain: none\ncontroller: unknown [stale]\n", Stale({"dc", "any"}));
}

TEST_F(DirectoryQuestionsTest, CanonicalNamesAreToldEachForItself) {
    HaveJoined();
    const ProgramResult result = Ctl({"user", "canonical", "ALICE", "CORP\\alice", "nosuch"});
    EXPECT_THAT(result, ExitsWith(7));
    EXPECT_EQ(
        "user: ALICE canonical=alice@corp.test\nuser: CORP\\alice canonical=alice@corp.test\n"
        "user: nosuch canonical=none\n",
        result.output);
    EXPECT_THAT(result.errors, StartsWith("error: Exception 0x00000525: "));
    Done({"leave"});
    EXPECT_THAT(Ctl({"user", "canonical", "alice"}), ExitsWith(4));
}

TEST_F(DirectoryQuestionsTest, HostPrincipalOfADomain) {
    HaveJoined();
    EXPECT_EQ("domain: corp.test\nhost principal: host/node01.corp.test@CORP.TEST\n",
              Done({"host", "principal", "corp.test"}));
    Hang("get-host-principal-for-domain");
    EXPECT_THAT(Stale({"host", "principal", "corp.test"}), HasLine("host principal: unknown [stale]"));
}

TEST_F(DirectoryQuestionsTest, SmartCardServicesAreSetChangedAndDecidedUpon) {
    HaveJoined();
    EXPECT_EQ("smart-card service: a\nsmart-card service: b\n", Done({"smartcard", "set", "a", "b"}));
    EXPECT_EQ("smart-card service: b\nsmart-card service: c\n", Done({"smartcard", "-a", "+c", "+b"}));
    EXPECT_EQ("smart-card service: b\nsmart-card service: c\n", Done({"smartcard", "list"}));
    EXPECT_THAT(Done({"smartcard", "decide", "b", "c"}), HasLine("smart-card authentication: yes"));
    EXPECT_THAT(Done({"smartcard", "decide", "b", "a"}), HasLine("smart-card authentication: no"));
    EXPECT_THAT(Done({"smartcard", "decide", "b", "--policy", "no"}), HasLine("smart-card authentication: no"));
    EXPECT_EQ("smart-card services: none\n", Done({"smartcard", "set", "--none"}));
}

TEST_F(DirectoryQuestionsTest, SmartCardServicesOfAHostThatIsNotJoinedDecideToo) {
    Done({"smartcard", "+sshd"});
    EXPECT_THAT(Done({"smartcard", "decide", "sshd"}), HasLine("smart-card authentication: yes"));
}

TEST_F(DirectoryQuestionsTest, NothingIsChangedIfThePresentServicesAreNotKnown) {
    HaveDomain();
    Done({"smartcard", "set", "a"});
    Hang("get-smart-card-enabled-services");
    EXPECT_THAT(Stale({"smartcard", "+b"}), HasSubstr("nothing was changed"));
    EXPECT_THAT(Stale({"smartcard", "decide", "a"}), HasLine("smart-card authentication: unknown [stale]"));
    Done({"directory", "rehearse", "--clear"});
    EXPECT_EQ("smart-card service: a\n", Done({"smartcard", "list"}));
}

TEST_F(DirectoryQuestionsTest, ChangesAreRootsOnly) {
    for (const Words& words :
         {Words{"dc", "prefer", "--none"}, Words{"smartcard", "set", "--none"}, Words{"smartcard", "+a"}}) {
        EXPECT_THAT(CtlAsNobody(words), ExitsWith(5));
    }
}

TEST_F(DirectoryQuestionsTest, ExplanationNeedsNothingFromTheHost) {
    std::filesystem::remove_all("/etc/nimbrel/nimauth");
    EXPECT_THAT(CtlAsNobody({"explain", "1326"}), ExitsWith(0));
    std::filesystem::create_directories("/etc/nimbrel/nimauth");
    EXPECT_THAT(Ctl({"explain", "zzzz"}), ExitsWith(1));
}

}  // namespace
}  // namespace nimbrel::testing
