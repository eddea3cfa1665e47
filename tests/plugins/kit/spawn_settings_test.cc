#include "pluginkit/spawn_settings.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "pluginkit/descriptor.h"

namespace nimbrel::kit {
namespace {

struct Pipe {
    Pipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reading = Descriptor(ends[0]);
        writing = Descriptor(ends[1]);
    }

    Descriptor reading;
    Descriptor writing;
};

int EndOf(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

// What a shell with these settings writes, to both of its outputs.
std::string OutputOf(const std::string& script) {
    Pipe pipe;
    const pid_t child = SpawnSettings(pipe.writing.Number()).Start({"/bin/sh", "-c", script}, {"ONLY=this"});
    pipe.writing.Close();
    std::string output;
    char byte = 0;
    while (read(pipe.reading.Number(), &byte, 1) == 1) output += byte;
    EXPECT_EQ(EndOf(child), 0);
    return output;
}

TEST(Spawned, ProgramsWriteWhereTheyAreTold) { EXPECT_EQ(OutputOf("echo out; echo err >&2"), "out\nerr\n"); }

TEST(Spawned, ProgramsGetTheEnvironmentThatIsGivenAlone) {
    EXPECT_EQ(OutputOf("echo $ONLY; /usr/bin/env | /bin/grep -c -v '^PWD\\|^_\\|^SHLVL'"), "this\n1\n");
}

TEST(Spawned, ProgramsReadNothing) { EXPECT_EQ(OutputOf("/bin/cat"), ""); }

TEST(Spawned, ProgramsHaveNoOtherDescriptors) {
    const Descriptor inheritable(fcntl(STDIN_FILENO, F_DUPFD, 200));
    ASSERT_TRUE(inheritable);
    const std::string name = "/proc/$$/fd/" + std::to_string(inheritable.Number());
    EXPECT_EQ(OutputOf("test -e " + name + " || test -h " + name + " || echo closed"), "closed\n");
}

// A shell cannot end the ignoring of a signal that was ignored when it started.
TEST(Spawned, ProgramsObeySignalsThatAreHeldBackOrIgnoredHere) {
    sigset_t held;
    sigset_t before;
    sigemptyset(&held);
    sigaddset(&held, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &held, &before);
    const auto ignored = std::signal(SIGHUP, SIG_IGN);
    for (const int number : {SIGTERM, SIGHUP}) {
        const std::string script = "kill -" + std::to_string(number) + " $$; sleep 60";
        const int status = EndOf(SpawnSettings().Start({"/bin/sh", "-c", script}, {"PATH=/usr/bin:/bin"}));
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
    }
    std::signal(SIGHUP, ignored);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(Spawned, ProgramsHaveASessionOfTheirOwn) {
    EXPECT_EQ(EndOf(SpawnSettings().Start({"/bin/sh", "-c", "test $(/usr/bin/cut -d' ' -f6 /proc/$$/stat) = $$"}, {})),
              0);
}

TEST(Spawned, ProgramThatIsMissingIsTold) {
    errno = 0;
    EXPECT_EQ(SpawnSettings().Start({"/nowhere/at/all"}, {}), -1);
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace nimbrel::kit
