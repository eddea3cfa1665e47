// A process may exit while a provider call hangs or is about to answer: its exit status is kept, and nothing is said.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "plugins/provider_root.h"
#include "support/files.h"
#include "support/system_log.h"

namespace nimbrel::authentication::test {
namespace {

constexpr char kRecordPath[] = "/etc/nimbrel/nimauth/authentication.conf";

struct Ending {
    int status;
    std::string output;
};

// Runs the host process; a status of 1000 and more is a signal. ThreadSanitizer's pause at exit, which gives threads time
// to end, is left out: the end comes at once for a host.
Ending RunHost(const std::string& mode, const std::string& provider) {
    const std::string command =
        std::string("TSAN_OPTIONS=\"$TSAN_OPTIONS:atexit_sleep_ms=0\" exec " NIMAUTH_TEST_EXITING_HOST " ") + mode +
        " " + provider + " 2>&1";
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("popen");
    Ending ending;
    for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) ending.output.push_back(static_cast<char>(c));
    const int status = pclose(pipe);
    ending.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return ending;
}

class ProcessExit : public ::testing::TestWithParam<const char*> {
 protected:
    ProcessExit() {
        RemoveProviders();
        InstallProvider(GetParam());
        ConfigureProvider(std::string("provider = \"") + GetParam() + "\"\n");
    }

    static void ExpectQuietExit(const std::string& mode) {
        const Ending ending = RunHost(mode, GetParam());
        EXPECT_EQ(ending.status, 7) << mode;
        EXPECT_EQ(ending.output, "") << mode;
    }

    SystemLog log;  // the host's time-outs are logged here and not on its standard error
};

INSTANTIATE_TEST_SUITE_P(Providers, ProcessExit,
                         ::testing::Values("scripted", "throws_exception", "throws_int", "throws_bad_alloc",
                                           "exits_thread", "cancels_thread"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(ProcessExit, WhileACallHangs) { ExpectQuietExit("hang"); }

TEST_P(ProcessExit, WhileACallIsAboutToAnswer) {
    for (int run = 0; run < 20; ++run) ExpectQuietExit("race");
}

TEST_P(ProcessExit, WhenTheAnswerComesAfterEveryDestructor) { ExpectQuietExit("late"); }

using ScriptedProcessExit = ProcessExit;
INSTANTIATE_TEST_SUITE_P(Scripted, ScriptedProcessExit, ::testing::Values("scripted"));

TEST_P(ScriptedProcessExit, WhenAFailureComesAfterEveryDestructor) { ExpectQuietExit("status"); }

TEST_P(ScriptedProcessExit, WhenAQueryIsBegunAfterEveryDestructor) { ExpectQuietExit("ask"); }

// Membership and stored settings agree all the same.
TEST_P(ScriptedProcessExit, WhenAJoinAndALeaveEndAfterEveryDestructor) {
    ExpectQuietExit("join");
    EXPECT_EQ(RunHost("domain", GetParam()).output, "corp.test\n");
    ExpectQuietExit("leave");
    EXPECT_EQ(RunHost("domain", GetParam()).output, "none\n");
}

TEST_P(ScriptedProcessExit, WhenTheAdvancedOptionsAreReadAfterEveryDestructor) { ExpectQuietExit("option"); }

TEST_P(ScriptedProcessExit, WhenAStoreIsActivatedAfterEveryDestructor) {
    WriteFile(kRecordPath, "remote-authentication-store = \"Active Directory\"\n");
    ExpectQuietExit("activate");
    EXPECT_EQ(ReadFile(kRecordPath), "remote-authentication-store = \"None\"\n");
}

}  // namespace
}  // namespace nimbrel::authentication::test
