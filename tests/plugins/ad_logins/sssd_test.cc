// SSSD's process: a shell script of that name, which says what it is told to do.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "log_ins_root.h"
#include "program.h"

namespace nimbrel::ad::test {
namespace {

using namespace logins;

using ::testing::HasSubstr;

// With -D it is a daemon that writes its pid file and is ready when the first process ends. "stubborn" ignores the
// request to end.
constexpr char kSssd[] = R"sh(#!/bin/sh
root=${0%/usr/sbin/sssd}
if [ "$1" = -D ]; then
    echo "start $(ls "$root/etc/sssd/conf.d" | tr '\n' ' ')" >>"$root/journal"
    [ ! -e "$root/refuses" ] || exit 1
    mkfifo "$root/ready"
    "$0" --serve &
    echo $! >"$root/run/sssd.pid"
    read -r _ <"$root/ready"
    rm "$root/ready"
    exit 0
fi
mkfifo "$root/forever"
exec 3<>"$root/forever"
rm "$root/forever"
if [ -e "$root/stubborn" ]; then
    trap '' TERM
else
    trap 'echo stop >>"$root/journal"; rm -f "$root/run/sssd.pid"; exit 0' TERM
fi
echo >"$root/ready"
read -r _ <&3
)sh";

constexpr char kSystemctl[] = R"sh(#!/bin/sh
root=${0%/usr/bin/systemctl}
echo "$*" >>"$root/journal"
case $* in
    *is-active*) [ -e "$root/active" ] ;;
    *) [ ! -e "$root/refuses" ] ;;
esac
)sh";

class SssdTest : public LogInsRoot {
 protected:
    SssdTest() {
        std::filesystem::create_directories(Path("/run"));
        Put("/usr/sbin/sssd", kSssd, 0755);
    }
    ~SssdTest() override {
        std::remove(Path("/stubborn").c_str());
        if (const pid_t pid = Pid(); pid > 0) EndProcess(pid, "sssd", std::chrono::seconds(5));
    }

    // 0 if it does not run.
    pid_t Pid() const {
        const std::string text = Text("/run/sssd.pid");
        const pid_t pid = text.empty() ? 0 : static_cast<pid_t>(std::stol(text));
        return pid > 0 && CommandOf(pid) == "sssd" ? pid : 0;
    }
    std::string TakeJournal() const {
        const std::string text = Text("/journal");
        std::remove(Path("/journal").c_str());
        return text;
    }
};

TEST_F(SssdTest, IsStartedByAJoinAndStoppedByALeave) {
    logIns.Enable(Corp());
    EXPECT_EQ(TakeJournal(), "start 50-nimauth-domain.conf \n");
    EXPECT_GT(Pid(), 0);
    logIns.Disable();
    EXPECT_EQ(TakeJournal(), "stop\n");
    EXPECT_EQ(Pid(), 0);
}

TEST_F(SssdTest, IsRestartedByAChangeAndOnlyByAChange) {
    logIns.Enable(Corp());
    TakeJournal();
    logIns.SetPreferredControllers({"dc2.corp.test"});
    EXPECT_EQ(TakeJournal(), "stop\nstart 50-nimauth-domain.conf 55-nimauth-controllers.conf \n");
    logIns.SetPreferredControllers({"dc2.corp.test"});
    logIns.Enable(Corp());
    EXPECT_EQ(TakeJournal(), "");
}

TEST_F(SssdTest, ThatHasDiedIsStartedByTheSameJoinAgain) {
    logIns.Enable(Corp());
    EndProcess(Pid(), "sssd", std::chrono::seconds(5));
    TakeJournal();
    logIns.Enable(Corp());
    EXPECT_EQ(TakeJournal(), "start 50-nimauth-domain.conf \n");
}

TEST_F(SssdTest, WithADomainOfTheAdministratorsRunsOnAfterALeave) {
    Put("/etc/sssd/sssd.conf", "[domain/other.test]\nid_provider = ldap\n", 0600);
    logIns.Enable(Corp());
    TakeJournal();
    logIns.Disable();
    EXPECT_EQ(TakeJournal(), "stop\nstart \n");
    EXPECT_GT(Pid(), 0);
}

TEST_F(SssdTest, ThatRanBeforeTheJoinRunsOnAfterALeave) {
    std::filesystem::create_directories(Path("/etc/sssd/conf.d"));
    ASSERT_EQ(RunProgram({Path("/usr/sbin/sssd"), "-D"}, std::chrono::seconds(5)), ProgramEnd::Success);
    logIns.Enable(Corp());
    TakeJournal();
    logIns.Disable();
    EXPECT_EQ(TakeJournal(), "stop\nstart \n");
}

TEST_F(SssdTest, ThatDoesNotStartFailsNoJoin) {
    Put("/refuses", "");
    logIns.Enable(Corp());
    EXPECT_TRUE(Has(kDomainFile));
    logIns.Disable();
    EXPECT_FALSE(Has(kDomainFile));
}

TEST_F(SssdTest, APidFileOfSomebodyElseIsLeftAlone) {
    Put("/run/sssd.pid", std::to_string(getpid()) + "\n");
    logIns.Enable(Corp());
    EXPECT_THAT(TakeJournal(), HasSubstr("start"));
    for (const char* const text : {"", "x", "-1", "0", "1", "99999999999999999999"}) {
        if (const pid_t pid = Pid(); pid > 0) EndProcess(pid, "sssd", std::chrono::seconds(5));
        Put("/run/sssd.pid", text);
        logIns.Enable(Corp());
        EXPECT_GT(Pid(), 0) << text;
    }
}

TEST_F(SssdTest, SystemdIsAskedWhereItRuns) {
    Put("/usr/bin/systemctl", kSystemctl, 0755);
    std::filesystem::create_directories(Path("/run/systemd/system"));
    logIns.Enable(Corp());
    EXPECT_EQ(TakeJournal(),
              "--quiet is-active sssd.service\n--quiet reset-failed sssd.service\n--quiet --no-ask-password restart "
              "sssd.service\n");
    logIns.Disable();
    EXPECT_EQ(TakeJournal(), "--quiet --no-ask-password stop sssd.service\n");
}

TEST_F(SssdTest, SystemdThatRefusesFailsNothing) {
    Put("/usr/bin/systemctl", kSystemctl, 0755);
    Put("/refuses", "");
    std::filesystem::create_directories(Path("/run/systemd/system"));
    logIns.Enable(Corp());
    EXPECT_TRUE(Has(kDomainFile));
    logIns.Disable();
    EXPECT_FALSE(Has(kRecordFile));
}

TEST_F(SssdTest, AbsentIsNotAFailure) {
    std::remove(Path("/usr/sbin/sssd").c_str());
    logIns.Enable(Corp());
    logIns.SetSmartCardServices({"sshd"});
    EXPECT_TRUE(Has(kDomainFile));
    logIns.Disable();
    EXPECT_FALSE(Has("/journal"));
}

TEST_F(SssdTest, AStubbornProcessIsEndedByForce) {
    Put("/stubborn", "");
    std::filesystem::create_directories(Path("/etc/sssd/conf.d"));
    ASSERT_EQ(RunProgram({Path("/usr/sbin/sssd"), "-D"}, std::chrono::seconds(5)), ProgramEnd::Success);
    const pid_t pid = Pid();
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(EndProcess(pid, "sssd", std::chrono::milliseconds(20)));
    EXPECT_EQ(Pid(), 0);
}

TEST(ProgramTest, EndsAreTold) {
    using std::chrono::seconds;
    EXPECT_EQ(RunProgram({"/bin/true"}, seconds(5)), ProgramEnd::Success);
    EXPECT_EQ(RunProgram({"/bin/false"}, seconds(5)), ProgramEnd::Failure);
    EXPECT_EQ(RunProgram({"/nowhere/nothing"}, seconds(5)), ProgramEnd::Failure);
    EXPECT_EQ(RunProgram({"/bin/sleep", "1000"}, std::chrono::milliseconds(20)), ProgramEnd::TimeOut);
}

TEST(ProgramTest, AHostThatIgnoresItsChildrenStillGetsItsEnd) {
    struct sigaction ignore = {};
    struct sigaction before = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &before), 0);
    EXPECT_EQ(RunProgram({"/bin/true"}, std::chrono::seconds(5)), ProgramEnd::Success);
    EXPECT_EQ(sigaction(SIGCHLD, &before, nullptr), 0);
}

TEST(ProgramTest, BlockedSignalsAreNotHandedOn) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &all, &before), 0);
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", "kill -TERM $$; exit 0"}, std::chrono::seconds(5)), ProgramEnd::Failure);
    EXPECT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

TEST(ProgramTest, NeitherDescriptorsNorEnvironmentAreHandedOn) {
    ASSERT_EQ(setenv("NIMAUTH_SECRET", "x", 1), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string test = "test ! -e /proc/self/fd/" + std::to_string(ends[0]) + " && test -z \"$NIMAUTH_SECRET\"";
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", test}, std::chrono::seconds(5)), ProgramEnd::Success);
    close(ends[0]);
    close(ends[1]);
}

using TogetherTest = LogInsRoot;

TEST_F(TogetherTest, ChangesOfSeveralThreadsTakeTurns) {
    logIns.Enable(Corp());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            const std::string own = "dc" + std::to_string(i) + ".corp.test";
            for (int round = 0; round < 10; ++round) {
                logIns.SetPreferredControllers({own});
                EXPECT_EQ(logIns.PreferredControllers().size(), 1U);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_THAT(Text(kControllersFile), HasSubstr("ad_server = " + logIns.PreferredControllers().at(0) + ", _srv_\n"));
}

}  // namespace
}  // namespace nimbrel::ad::test
