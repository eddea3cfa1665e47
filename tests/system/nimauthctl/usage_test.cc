// Command lines that cannot be carried out, or only look like it.

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class UsageTest : public ToolHost {};

TEST_F(UsageTest, WrongCommandLinesAreRefusedOnStandardError) {
    const Words kLines[] = {{},
                            {"bogus"},
                            {"store"},
                            {"store", "bogus"},
                            {"store", "set"},
                            {"store", "set", "None", "None"},
                            {"status", "--bogus"},
                            {"status", "--timeout", "x"},
                            {"status", "--timeout", "86401"},
                            {"status", "--timeout"},
                            {"status", "extra"},
                            {"join", "corp.test"},
                            {"join", "-U", "alice"},
                            {"join", "", "-U", "alice"},
                            {"join", "/Hosts", "-U", "alice"},
                            {"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "yes"},
                            {"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "9223372036854775808"},
                            {"directory", "rehearse", "bogus", "--delay", "1s"},
                            {"directory", "rehearse", "join-domain"},
                            {"directory", "rehearse", "join-domain", "--value", "1"},
                            {"directory", "rehearse", "get-domain-trust-state", "--status", "5"},
                            {"directory", "rehearse", "join-domain", "--status", "0"},
                            {"directory", "rehearse", "join-domain", "--delay", "25h"},
                            {"directory", "rehearse", "join-domain", "--delay", "1s", "--count", "0"},
                            {"directory", "rehearse", "--delay", "1s"},
                            {"directory", "rehearse", "--clear", "--delay", "1s"},
                            {"directory", "user", "set", "corp.test", "alice", "--locked", "maybe"},
                            {"directory", "user", "set", "corp.test", "alice", "--delegate", "a", "--no-delegation"},
                            {"directory", "trust", "add", "corp.test", "b.test", "--direction", "sideways"},
                            {"directory", "controller", "set", "corp.test", "dc1.corp.test"}};
    HaveDomain();
    for (const Words& words : kLines) {
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(2)) << ::testing::PrintToString(words);
        EXPECT_EQ("", result.output);
        EXPECT_THAT(result.errors, StartsWith("error: "));
    }
}

TEST_F(UsageTest, LongestTimeoutIsTaken) { Done({"status", "--timeout", "86400"}); }

TEST_F(UsageTest, VeryLongArgumentsAreRefusedByWhoeverTheyConcern) {
    HaveDomain();
    const std::string longText(100'000, 'x');
    EXPECT_THAT(Ctl({"store", "set", longText}), ExitsWith(2));
    EXPECT_THAT(Ctl({"option", "get", longText}), ExitsWith(1));
    for (const Words& words :
         {Words{"directory", "domain", "add", longText}, Words{"directory", "ou", "add", "corp.test", longText},
          Words{"directory", "trust", "add", "corp.test", longText},
          Words{"directory", "domain", "remove", longText}}) {
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(1)) << words[1];
        EXPECT_THAT(result.errors, HasSubstr("\nremedy: "));
    }
    EXPECT_THAT(CtlWithPassword({"join", longText, "-U", "administrator", "--skip-hostname-check"}),
                ::testing::AnyOf(ExitsWith(1), ExitsWith(9)));
    EXPECT_THAT(CtlWithPassword({"leave", "-U", longText}), ExitsWith(4));
}

TEST_F(UsageTest, TextThatIsNotUtf8IsTakenOrRefusedWithoutHarm) {
    HaveDomain();
    for (const Words& words :
         {Words{"store", "set", "\xff\xfe"}, Words{"directory", "ou", "add", "corp.test", "\xff\xfe"},
          Words{"directory", "domain", "add", "\xff.test"}, Words{"option", "get", "\xff"}}) {
        for (const bool json : {false, true}) {
            Words line = words;
            if (json) line.emplace_back("--json");
            EXPECT_NE(-1, Ctl(line).exitStatus);
        }
    }
}

TEST_F(UsageTest, UnknownOptionNameIsAFailure) {
    const ProgramResult result = Ctl({"option", "get", "UserVars.NoSuchOption"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_EQ("error: there is no advanced option 'UserVars.NoSuchOption'\nremedy: see 'nimauthctl option list'\n",
              result.errors);
    for (const char* const name : {"", ".", "UserVars", "UserVars.", ".x", "a.b.c"}) {
        EXPECT_NE(0, Ctl({"option", "get", name}).exitStatus) << name;
    }
}

}  // namespace
}  // namespace nimbrel::testing
