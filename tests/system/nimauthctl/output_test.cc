// Standard output that cannot be written, and how much is said.

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class OutputTest : public ToolHost {};

TEST_F(OutputTest, FullDeviceIsAFailure) {
    for (const Words& words : {Words{"status"}, Words{"--help"}, Words{"--version"}, Words{"status", "--json"}}) {
        const ProgramResult result = Ctl(words, {.outputPath = "/dev/full"});
        EXPECT_THAT(result, ExitsWith(1));
        EXPECT_EQ("error: unable to write to standard output: No space left on device\n", result.errors);
    }
}

TEST_F(OutputTest, ClosedOutputIsAFailureAndHarmsNoFile) {
    HaveDomain();
    const ProgramResult result = Ctl({"directory", "show"}, {.closed = {1}});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.errors, HasSubstr("unable to write to standard output"));
    EXPECT_THAT(Ctl({"directory", "domain", "add", "b.test"}, {.closed = {0, 1, 2}}), ExitsWith(1));
    EXPECT_THAT(Done({"directory", "domain", "list"}),
                AllOf(HasSubstr("domain: corp.test"), HasSubstr("domain: b.test")));
}

TEST_F(OutputTest, BrokenPipeIsAFailureAndNoSignal) {
    const ProgramResult result = Ctl({"--help"}, {.readNoOutput = true});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_EQ("error: unable to write to standard output: Broken pipe\n", result.errors);
}

TEST_F(OutputTest, ClosedErrorsDoNotChangeTheExitStatus) {
    EXPECT_THAT(Ctl({"store", "set", "LDAP"}, {.closed = {2}}), ExitsWith(2));
}

TEST_F(OutputTest, QuietChangeSaysNothingButItsFailure) {
    EXPECT_EQ("", Done({"directory", "domain", "add", "corp.test", "--quiet"}));
    EXPECT_EQ("", Done({"store", "set", "Active Directory", "-q"}));
    EXPECT_EQ("active store: Active Directory\n", Done({"store", "show", "-q"}));
    const ProgramResult result = Ctl({"directory", "domain", "add", "corp.test", "-q"});
    EXPECT_THAT(result, ExitsWith(3));
    EXPECT_THAT(result.errors, StartsWith("error: "));
}

TEST_F(OutputTest, VerboseTellsWhatIsAskedOnStandardError) {
    const ProgramResult result = Ctl({"status", "-v"});
    EXPECT_THAT(result, ExitsWith(0));
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("verbose: asking for the trust state\n"), HasSubstr(": answered after ")));
    EXPECT_THAT(result.output, HasLine("joined: no"));
}

TEST_F(OutputTest, FailureIsPrintedOnce) {
    WriteFile("/etc/nimbrel/nimauth/provider.conf", "broken\n");
    const ProgramResult result = Ctl({"status"});
    EXPECT_THAT(result, ExitsWith(1));
    const std::size_t first = result.errors.find("no delimiter found");
    ASSERT_NE(std::string::npos, first);
    EXPECT_EQ(std::string::npos, result.errors.find("no delimiter found", first + 1));
    EXPECT_THAT(result.output, AllOf(HasLine("provider: unavailable"), HasLine("directory: unavailable"),
                                     HasLine("stored domain: none")));
}

}  // namespace
}  // namespace nimbrel::testing
