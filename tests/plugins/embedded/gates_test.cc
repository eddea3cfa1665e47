// What a signal handler may do in the middle of an operation: fork, and exit.

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "exit_gate.h"
#include "fork_gate.h"
#include "sandbox.h"
#include "support/leave_child.h"

namespace nimbrel::embedded::test {
namespace {

constexpr unsigned kPatienceSeconds = 30;

// How a child ends that does this: as waitpid says.
int InAChild(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(kPatienceSeconds);
        work();
        LeaveChild(0);
    }
    int result = 0;
    EXPECT_EQ(waitpid(child, &result, 0), child);
    return result;
}

// As `exit(7)`, of which OpenSSL's part is the one that waits; the test program's own would take its folders away.
[[noreturn]] void Exit() {
    OPENSSL_cleanup();
    LeaveChild(7);
}

TEST(Gates, ForkInsideDoesNotWaitForItsOwnThreadAndItsChildOpensNothing) {
    const int result = InAChild([] {
        const ForkGate gate;
        const int inner = InAChild([] { LeaveChild(static_cast<int>(StatusOf([] { ForkGate(); }) - 1359U)); });
        if (inner != 0) LeaveChild(1);
    });
    EXPECT_EQ(result, 0);
}

TEST(Gates, ForkOutsideLeavesItsChildAllRights) {
    { const ForkGate gate; }
    EXPECT_EQ(InAChild([] { LeaveChild(static_cast<int>(StatusOf([] { ForkGate(); }))); }), 0);
}

TEST(Gates, GateIsOpenAgainAfterAForkInside) {
    const int result = InAChild([] {
        {
            const ForkGate gate;
            if (InAChild([] {}) != 0) LeaveChild(1);
        }
        if (InAChild([] { LeaveChild(static_cast<int>(StatusOf([] { ForkGate(); }))); }) != 0) LeaveChild(2);
    });
    EXPECT_EQ(result, 0);
}

TEST(Gates, ExitInsideDoesNotWaitForItsOwnThread) {
    const int result = InAChild([] {
        const ExitGate gate;
        if (!gate.IsOpen()) LeaveChild(1);
        Exit();
    });
    ASSERT_TRUE(WIFEXITED(result)) << "signal " << WTERMSIG(result);
    EXPECT_EQ(WEXITSTATUS(result), 7);
}

TEST(Gates, ExitOfAChildForkedInsideDoesNotWaitEither) {
    const int result = InAChild([] {
        const ExitGate gate;
        const int inner = InAChild([] { Exit(); });
        if (!WIFEXITED(inner) || WEXITSTATUS(inner) != 7) LeaveChild(1);
    });
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace nimbrel::embedded::test
