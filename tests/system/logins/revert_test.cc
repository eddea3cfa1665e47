// A change that nobody confirms goes away by itself.

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "logins_host.h"
#include "support/system_log.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr char kJournal[] = "/var/lib/nimbrel/logins";

class LoginsRevertTest : public LoginsHost {
 protected:
    // The deadline of change 1 lies in an earlier boot: nobody watches it any more.
    static void Reboot() {
        const std::string path = std::string(kJournal) + "/1/record";
        std::string text = ReadFile(path);
        const std::size_t begin = text.find("\nboot ") + 6;
        text.replace(begin, text.find('\n', begin) - begin, "an-earlier-boot");
        WriteFile(path, text);
    }
};

TEST_F(LoginsRevertTest, NobodyConfirms) {
    Enable({"--confirm-within", "1"});
    AwaitState(1, "restored");
    ExpectUntouched();
    EXPECT_THAT(Done({"logins", "history"}), HasSubstr("state=restored"));
    EXPECT_THAT(Done({"logins", "history"}), HasSubstr("reason=\"nobody confirmed it in time\""));
    EXPECT_THAT(Refused({"logins", "confirm"}, 3), HasSubstr("no change waits"));
}

TEST_F(LoginsRevertTest, NobodyConfirmsThatTheyAreOff) {
    Enable();
    const LoginFiles enabled = ReadLoginFiles();
    Disable({"--confirm-within", "1"});
    AwaitState(2, "restored");
    EXPECT_THAT(Differences(enabled, ReadLoginFiles()), ::testing::IsEmpty());
}

// The tool is killed between two files; nobody calls it again.
TEST_F(LoginsRevertTest, ToolIsKilledHalfWay) {
    // Renames: a file's two states into the journal (one of 13 files is new), the entry, then the host's files.
    bool half = false;
    for (int number = 13 + 12 + 1 + 2; number < 40 && !half; ++number) {
        PutBack(Before());
        fs::remove_all(kJournal);
        const ProgramResult result =
            RunProgram("/usr/bin/strace", {.arguments = {"-qq", "-o", "/dev/null", "-e", "trace=rename", "-e",
                                                         "inject=rename:signal=KILL:when=" + std::to_string(number),
                                                         kTool, "logins", "enable", "--confirm-within", "5"}});
        const std::size_t changed = Differences(Before(), ReadLoginFiles()).size();
        // Prepared files lie about as well.
        half = result.signal == 9 &&
               logins::ReadState("/etc/pam.d/common-auth").content != Before().at("/etc/pam.d/common-auth").content;
        EXPECT_TRUE(!half || changed > 0);
    }
    ASSERT_TRUE(half);
    EXPECT_EQ("applying", StateOf(1));
    AwaitState(1, "restored");
    ExpectUntouched();
}

TEST_F(LoginsRevertTest, ConfirmedChangeStays) {
    Enable({"--confirm-within", "3600"});
    EXPECT_THAT(Done({"logins", "confirm"}), HasLine("confirmed: 1"));
    const LoginFiles enabled = ReadLoginFiles();
    // What the timer does when the time is over.
    EXPECT_EQ(0, RunProgram(kHelperPath, {.arguments = {"watch-over", "1"}}).exitStatus);
    EXPECT_EQ("confirmed", StateOf(1));
    EXPECT_THAT(Differences(enabled, ReadLoginFiles()), ::testing::IsEmpty());
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
}

TEST_F(LoginsRevertTest, RebootWhileWaiting) {
    Enable({"--confirm-within", "3600"});
    Reboot();
    EXPECT_THAT(Done({"logins", "show", "login"}), HasSubstr("note: change 1 has been taken back"));
    ExpectUntouched();
}

// A rescue system's chroot has no /proc, and so no number of the boot. The rest of it stays: sanitizers look at it.
TEST_F(LoginsRevertTest, RescueSystemTakesItBack) {
    Enable({"--confirm-within", "3600"});
    const ProgramResult result =
        RunProgram("/usr/bin/unshare",
                   {.arguments = {"--mount", "/bin/sh", "-c", "/bin/mount -t tmpfs none /proc/sys && exec \"$@\"", "sh",
                                  kTool, "logins", "history"}});
    EXPECT_EQ(0, result.exitStatus) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("state=restored"));
    ExpectUntouched();
}

// What the watcher cannot read may come back: a disk that was away, a file that somebody edits.
TEST_F(LoginsRevertTest, JournalThatCannotBeReadForAWhileIsTakenBackAfterwards) {
    authentication::test::SystemLog log;
    Enable({"--confirm-within", "5"});
    const std::string path = std::string(kJournal) + "/1/record";
    const std::string record = ReadFile(path);
    WriteFile(path, "damaged\n");
    EXPECT_TRUE(log.Await("logins: change 1 cannot be taken back yet: "));
    WriteFile(path, record);
    AwaitState(1, "restored");
    ExpectUntouched();
}

TEST_F(LoginsRevertTest, FileThatSomebodyChangedMeanwhileIsLeftAlone) {
    Enable({"--confirm-within", "3600"});
    const std::string edited = ReadFile("/etc/nsswitch.conf") + "# edited\n";
    WriteFile("/etc/nsswitch.conf", edited);
    Reboot();
    EXPECT_THAT(Done({"logins", "history"}), HasSubstr("left alone: /etc/nsswitch.conf"));
    EXPECT_EQ(edited, ReadFile("/etc/nsswitch.conf"));
    EXPECT_THAT(Differences(Before(), ReadLoginFiles()), ::testing::ElementsAre("/etc/nsswitch.conf"));
}

TEST_F(LoginsRevertTest, OneChangeWaitsAtATime) {
    Enable({"--confirm-within", "3600"});
    EXPECT_THAT(Refused({"logins", "disable"}, 3), HasSubstr("change 1 still waits for its confirmation"));
    EXPECT_THAT(Done({"logins", "show", "login"}), HasSubstr("change: 1 action=enable state=applied"));
    EXPECT_THAT(Done({"logins", "undo"}), HasLine("undone: 1"));
    ExpectUntouched();
    EXPECT_EQ("undone", StateOf(1));
}

TEST_F(LoginsRevertTest, UndoGoesBackStepByStep) {
    Enable({"--services", "login", "--confirm-within", "0"});
    const LoginFiles first = ReadLoginFiles();
    Enable();
    Done({"logins", "undo"});
    EXPECT_THAT(Differences(first, ReadLoginFiles()), ::testing::IsEmpty());
    Done({"logins", "undo"});
    ExpectUntouched();
    EXPECT_THAT(Refused({"logins", "undo"}, 3), HasSubstr("there is no change to undo"));
}

TEST_F(LoginsRevertTest, UndoOfChangedFilesIsRefused) {
    Enable();
    WriteFile("/etc/nsswitch.conf", ReadFile("/etc/nsswitch.conf") + "# edited\n");
    const LoginFiles edited = ReadLoginFiles();
    EXPECT_THAT(Refused({"logins", "undo"}, 3), HasSubstr("has been changed by somebody else"));
    EXPECT_THAT(Differences(edited, ReadLoginFiles()), ::testing::IsEmpty());
}

TEST_F(LoginsRevertTest, WithoutItsWatcherNothingIsChanged) {
    const std::string moved = std::string(kHelperPath) + ".moved";
    WriteFile("/tmp/helper", "#!/bin/sh\ncase $1 in watch) echo broken; exit 1 ;; esac\nexec " + moved + " \"$@\"\n");
    ASSERT_EQ(0, chmod("/tmp/helper", 0755));
    fs::rename(kHelperPath, moved);
    fs::copy("/tmp/helper", kHelperPath);
    const std::string errors = Refused({"logins", "enable"});
    fs::remove(kHelperPath);
    fs::rename(moved, kHelperPath);
    EXPECT_THAT(errors, HasSubstr("the watcher that would take the change back cannot be started: broken"));
    ExpectUntouched();
}

// Where systemd runs, a transient timer watches. This stand-in remembers what it was asked for.
TEST_F(LoginsRevertTest, SystemdsTimerWatchesWhereItRuns) {
    const char* const kRun = "/usr/bin/systemd-run";
    const char* const kStandIn = "/tmp/systemd-run";
    WriteFile(kStandIn, "#!/bin/sh\necho \"$@\" >/tmp/systemd-run-words\n");
    ASSERT_EQ(0, chmod(kStandIn, 0755));
    if (!fs::exists(kRun)) WriteFile(kRun, "");
    ASSERT_EQ(0, mount(kStandIn, kRun, nullptr, MS_BIND, nullptr));
    fs::create_directories("/run/systemd/system");
    Enable({"--confirm-within", "90"});
    EXPECT_EQ(
        "--quiet --collect --unit=nimauth-logins-1 --on-active=90000ms --timer-property=AccuracySec=100ms "
        "/usr/libexec/nimauth/logins-helper watch-over 1\n",
        ReadFile("/tmp/systemd-run-words"));
    EXPECT_EQ("applied", StateOf(1));
    // One that does not answer: the tool watches by itself.
    Done({"logins", "undo"});
    WriteFile(kStandIn, "#!/bin/sh\nexit 1\n");
    Enable({"--confirm-within", "1"});
    AwaitState(3, "restored");
    ExpectUntouched();
    fs::remove_all("/run/systemd");
    EXPECT_EQ(0, umount2(kRun, MNT_DETACH));
}

}  // namespace
}  // namespace nimbrel::testing
