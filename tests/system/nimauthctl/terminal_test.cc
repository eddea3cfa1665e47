// What a person at a terminal of 80 columns sees, and what a pipe gets instead.

#include <csignal>
#include <regex>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// With the usual time-out, the terminal's line ends as one character, no colours, and times as 0.
std::string Seen(const ProgramResult& result) {
    std::string text = std::regex_replace(result.terminal, std::regex("\r\n"), "\n");
    text = std::regex_replace(text, std::regex("\x1b\\[[0-9;]*m"), "");
    return std::regex_replace(text, std::regex("\\[ *[0-9]+ s\\]"), "[  0 s]");
}

class TerminalTest : public ToolHost {
 protected:
    static ProgramResult OnTerminal(const Words& words, std::vector<TerminalStep> steps = {}) {
        return Ctl(words, {.terminal = std::move(steps), .outputOnTerminal = true, .environment = {"TERM=xterm"}});
    }
    static TerminalStep PasswordStep() { return {"Password for administrator: ", std::string(kPassword) + '\n'}; }
};

TEST_F(TerminalTest, ListsAreTablesOnATerminalAndLinesInAPipe) {
    const ProgramResult terminal = OnTerminal({"store", "list"});
    EXPECT_THAT(terminal, ExitsWith(0));
    EXPECT_EQ(
        "stores:\n"
        "  STORE             ACTIVE\n"
        "  Active Directory  no\n"
        "  None              yes\n",
        Seen(terminal));
    EXPECT_EQ("store: Active Directory active=no\nstore: None active=yes\n", Done({"store", "list"}));
}

TEST_F(TerminalTest, StatusFitsATerminalOf80Columns) {
    HaveJoined();
    Done({"directory", "trust", "add", "corp.test", "trust.test"});
    Done({"directory", "rehearse", "get-domain-trust-state", "--delay", "10m"});
    const ProgramResult terminal = OnTerminal({"status", "--timeout", "3"});
    EXPECT_THAT(terminal, ExitsWith(6));
    const std::string seen = Seen(terminal);
    EXPECT_THAT(seen, StartsWith("active store:                Active Directory\n"
                                 "provider:                    embedded\n"
                                 "joined:                      yes\n"
                                 "domain:                      corp.test\n"
                                 "domain NetBIOS name:         CORP\n"
                                 "machine account:             CN=NODE01,CN=Computers,DC=corp,DC=test\n"
                                 "preferred controllers:       none\n"
                                 "\n"
                                 "trusted domains:\n"
                                 "  TRUSTED DOMAIN  NETBIOS  RELATIONSHIP  MEANS\n"
                                 "  trust.test      TRUST    5             users of either can log in at the other\n"
                                 "\n"
                                 "trust state:                 2 (no answer in time) [stale]\n"
                                 "own relationship:            1 (own domain)\n"));
    EXPECT_THAT(seen, HasSubstr("  ANSWER                      AGE-SECONDS  STALE  BECAUSE\n"));
    EXPECT_THAT(seen, HasSubstr("  trust state                 none         yes    no answer within --timeout 3\n"));
    EXPECT_THAT(terminal.terminal, HasSubstr("\x1b[33m[stale]\x1b[0m"));
    std::istringstream lines(seen);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
}

TEST_F(TerminalTest, ColorsAreSaidOrLeftOut) {
    const Words words = {"leave"};
    const auto colored = [&](const Words& more, const std::vector<std::string>& environment) {
        Words all = words;
        all.insert(all.end(), more.begin(), more.end());
        return Ctl(all, {.outputOnTerminal = true, .environment = environment}).terminal.find('\x1b') !=
               std::string::npos;
    };
    EXPECT_TRUE(colored({"--progress=none"}, {"TERM=xterm"}));
    EXPECT_FALSE(colored({"--progress=none"}, {"TERM=xterm", "NO_COLOR=1"}));
    EXPECT_FALSE(colored({"--progress=none"}, {"TERM=dumb"}));
    EXPECT_FALSE(colored({"--progress=none", "--color=never"}, {"TERM=xterm"}));
    EXPECT_TRUE(colored({"--progress=none", "--color=always"}, {"TERM=dumb", "NO_COLOR=1"}));
    EXPECT_THAT(Ctl({"leave", "--color=always"}).errors, StartsWith("\x1b[31merror\x1b[0m: "));
    EXPECT_THAT(Ctl({"leave"}).errors, StartsWith("error: "));
    EXPECT_THAT(Ctl({"leave", "--color=sometimes"}), ExitsWith(2));
    EXPECT_THAT(Ctl({"leave", "--progress=xml"}), ExitsWith(2));
}

TEST_F(TerminalTest, JoinTellsItsStepsWithElapsedTime) {
    HaveDomain();
    const ProgramResult result = OnTerminal({"join", "corp.test", "-U", "administrator"}, {PasswordStep()});
    EXPECT_THAT(result, ExitsWith(0));
    EXPECT_THAT(Seen(result), AllOf(HasSubstr("[  0 s] making the host's name fit corp.test\n"),
                                    HasSubstr("[  0 s] joining corp.test, attempt 1 of 4\n"),
                                    HasSubstr("machine account:      CN=NODE01,CN=Computers,DC=corp,DC=test\n")));
}

TEST_F(TerminalTest, PauseTellsWhyAndHowLongAndInterruptTellsTheHostsState) {
    HaveDomain();
    Done({"directory", "rehearse", "join-domain", "--status", "1326"});
    const ProgramResult result = RunProgram(
        kTool, {.arguments = {"join", "corp.test", "-U", "administrator"},
                .terminal = {PasswordStep(), {"refused, next in 30 s: a new account spreads slowly", "\x03"}},
                .outputOnTerminal = true});
    EXPECT_EQ(SIGINT, result.signal);
    EXPECT_THAT(Seen(result), HasSubstr("error: interrupted; the host is not joined\n"
                                        "cause: attempt 1 of 4 was refused, and the next had not begun\n"
                                        "remedy: "));
    EXPECT_THAT(Seen(result), HasSubstr("[  0 s] attempt 1 of 4 refused, waited "));
}

TEST_F(TerminalTest, InterruptOfAnAttemptSaysThatItsOutcomeIsOpen) {
    HaveDomain();
    Done({"directory", "rehearse", "join-domain", "--delay", "10m"});
    const ProgramResult result = RunProgram(kTool, {.arguments = {"join", "corp.test", "-U", "administrator"},
                                                    .terminal = {PasswordStep(), {"attempt 1 of 4", "\x03"}},
                                                    .outputOnTerminal = true});
    EXPECT_EQ(SIGINT, result.signal);
    EXPECT_THAT(Seen(result),
                AllOf(HasSubstr("interrupted; the host is not joined\ncause: attempt 1 of 4 was under way, "
                                "so the directory may have done its part"),
                      Not(HasSubstr(kPassword))));
}

TEST_F(TerminalTest, InterruptWithJsonIsStillOneObject) {
    HaveDomain();
    Done({"directory", "rehearse", "join-domain", "--delay", "10m"});
    const ProgramResult result = RunProgram(
        kTool,
        {.arguments = {"join", "corp.test", "-U", "administrator", "--json", "--password-stdin", "--progress=json"},
         .input = std::string(kPassword) + '\n',
         .onErrors = {"\"attempt\": 1", [](pid_t tool) { kill(tool, SIGTERM); }}});
    EXPECT_EQ(SIGTERM, result.signal);
    EXPECT_THAT(result.output, AllOf(StartsWith("{\n  \"schema\": 1,\n  \"error\": {\n"),
                                     HasSubstr("\"exception\": \"InterruptedFailure\"")));
    EXPECT_THAT(result.errors, HasSubstr("\"event\": \"interrupted\""));
}

TEST_F(TerminalTest, ProgressAsJsonLinesStandsOnStandardError) {
    HaveDomain();
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator", "--progress=json"});
    EXPECT_THAT(result, ExitsWith(0));
    EXPECT_THAT(result.errors,
                AllOf(StartsWith("{\"schema\": 1, \"event\": \"step\", \"step\": \"host-name\", "),
                      HasSubstr("\"step\": \"attempt\", \"text\": \"joining corp.test\", \"attempt\": 1, "
                                "\"attempts\": 4, "),
                      HasSubstr("{\"schema\": 1, \"event\": \"end\", ")));
    EXPECT_THAT(result.output, HasLine("joined: yes"));
    EXPECT_EQ("", Done({"leave", "--quiet"}));
}

TEST_F(TerminalTest, WatchShowsTheLastKnownValueAndItsAge) {
    HaveJoined();
    Done({"directory", "trust", "add", "corp.test", "trust.test"});
    const ProgramResult result =
        RunProgram(kTool, {.arguments = {"status", "--watch", "--interval", "1", "--count", "2", "--timeout", "3"},
                           .onOutput = {"answer: smart-card services", [](pid_t tool) {  // not before it looks again
                                            kill(tool, SIGSTOP);
                                            Done({"directory", "rehearse", "get-trusted-domains", "--delay", "10m"});
                                            kill(tool, SIGCONT);
                                        }}});
    EXPECT_THAT(result, ExitsWith(6));
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("\ntrusted domain: trust.test netbios=TRUST relationship=5 means=\"users of either can "
                                "log in at the other\" [stale]\n"),
                      ::testing::ContainsRegex("answer: trusted domains age-seconds=[1-9][0-9]* stale=yes "
                                               "because=.no answer within --timeout 3.")));
}

TEST_F(TerminalTest, WatchOptionsNeedWatch) {
    EXPECT_THAT(Ctl({"status", "--count", "1"}), ExitsWith(2));
    EXPECT_THAT(Ctl({"status", "--watch", "--interval", "0"}), ExitsWith(2));
    EXPECT_THAT(Done({"status", "--watch", "--count", "1"}), HasLine("joined: no"));
}

TEST_F(TerminalTest, FailureTellsWhereTheLogIs) {
    EXPECT_THAT(Ctl({"leave"}).errors, HasSubstr("\nlog: journalctl -t nimauthctl"));
    EXPECT_THAT(Ctl({"bogus"}).errors, Not(HasSubstr("log: ")));
}

}  // namespace
}  // namespace nimbrel::testing
