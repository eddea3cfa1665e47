// What a signal handler may do in the middle of an operation: fork, and exit.

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "exit_gate.h"
#include "fork_gate.h"
#include "sandbox.h"
#include "secret_hash.h"
#include "support/leave_child.h"

namespace nimbrel::embedded::test {
namespace {

constexpr unsigned kPatienceSeconds = 60;
constexpr std::chrono::seconds kExitGatesPatience{10};  // then it gives up

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

// As `exit(7)`, of which OpenSSL's part is the one that waits; the test program's own would take its folders away. 8 if it
// has waited.
[[noreturn]] void Exit() {
    const auto start = std::chrono::steady_clock::now();
    OPENSSL_cleanup();
    LeaveChild(std::chrono::steady_clock::now() - start < kExitGatesPatience ? 7 : 8);
}

// One that has done nothing yet has nothing to do at the end.
void UseOpenSsl() { HashSecret("secret", HashCost::RandomSecret); }

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
    const auto exitInside = [] {
        UseOpenSsl();
        const ExitGate gate;
        if (!gate.IsOpen()) LeaveChild(1);
        Exit();
    };
    const int result = InAChild(exitInside);
    ASSERT_TRUE(WIFEXITED(result)) << "signal " << WTERMSIG(result);
    EXPECT_EQ(WEXITSTATUS(result), 7);
}

// Of the parent's threads that are inside it has one.
TEST(Gates, ExitOfAChildForkedInsideDoesNotWaitEither) {
    const int result = InAChild([] {
        UseOpenSsl();
        const ExitGate gate;
        std::promise<void> isInside, mayLeave;
        std::thread other([&] {
            const ExitGate itsGate;
            isInside.set_value();
            mayLeave.get_future().wait();
        });
        isInside.get_future().wait();
        const int inner = InAChild([] { Exit(); });
        mayLeave.set_value();
        other.join();
        if (!WIFEXITED(inner) || WEXITSTATUS(inner) != 7) LeaveChild(1);
    });
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace nimbrel::embedded::test
