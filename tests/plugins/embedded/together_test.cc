// Many threads and processes on the same files, and processes that die in the middle.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "embeddeddirectory/host.h"
#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

class Together : public Sandbox {
 protected:
    static void RunThreads(int count, const std::function<void(int)>& work) {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back(work, i);
        }
        for (auto& thread : threads) {
            thread.join();
        }
    }

    static pid_t StartProcess(const std::function<void()>& work) {
        const pid_t child = fork();
        if (child == 0) {
            work();
            _exit(0);
        }
        return child;
    }

    static int Wait(pid_t child) {
        int result = 0;
        EXPECT_EQ(waitpid(child, &result, 0), child);
        return result;
    }

    // What must hold whatever was interrupted: both files can be read, and a host that believes it has joined has an
    // account in the domain.
    void ExpectConsistent() const {
        const auto current = Membership::Open(membershipPath).Current();
        const DirectorySnapshot all = Open().Export();
        EXPECT_EQ(all.users.size(), 3U);
        EXPECT_LE(all.computers.size(), 1U);
        if (current) {
            EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
        }
    }

    const Host host{directoryPath, membershipPath};
};

TEST_F(Together, OneObjectServesManyThreads) {
    Directory shared = Open();
    std::atomic<int> failures = 0;
    RunThreads(16, [&](int i) {
        failures += StatusOf([&] {
                        const std::string name = "node" + std::to_string(i);
                        shared.PreStageComputer(kDomain, name, "Hosts");
                        shared.SetComputerEnabled(kDomain, name, false);
                        shared.ListComputers(kDomain);
                    }) != 0;
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Open().ListComputers().size(), 16U);
}

TEST_F(Together, OnlyOneOfManyJoinsOfOneHostWins) {
    std::atomic<int> joined = 0;
    std::atomic<int> already = 0;
    RunThreads(8, [&](int) {
        const auto status = StatusOf([&] { host.Join(kDomain, "node01", "Hosts", kAdmin); });
        joined += status == 0;
        already += status == 2691;
    });
    EXPECT_EQ(joined, 1);
    EXPECT_EQ(already, 7);
    EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
}

TEST_F(Together, OneTimeSecretIsUsedOnceByManyHosts) {
    const std::string secret = Open().PreStageComputer(kDomain, "node01").oneTimeSecret;
    std::atomic<int> joined = 0;
    RunThreads(8, [&](int i) {
        const Host own(directoryPath, folder / ("membership" + std::to_string(i) + ".db"));
        joined += StatusOf([&] { own.JoinWithMachineAccount({"", kDomain, "", "", "NODE01", secret}); }) == 0;
    });
    EXPECT_EQ(joined, 1);
}

TEST_F(Together, TwoProcessesChangeOneDirectory) {
    const auto addMany = [&](const std::string& prefix) {
        for (int i = 0; i < 20; ++i) {
            Directory::Open(directoryPath).AddOrganizationalUnit(kDomain, prefix + std::to_string(i));
        }
    };
    const pid_t one = StartProcess([&] { addMany("one"); });
    const pid_t two = StartProcess([&] { addMany("two"); });
    EXPECT_EQ(Wait(one), 0);
    EXPECT_EQ(Wait(two), 0);
    EXPECT_EQ(Open().ListOrganizationalUnits().size(), 43U);
}

TEST_F(Together, ChangeOfAnotherProcessIsSeenAtOnce) {
    int go[2];
    ASSERT_EQ(pipe2(go, O_CLOEXEC), 0);
    const pid_t child = StartProcess([&] {
        char byte = 0;
        if (read(go[0], &byte, 1) == 1) {
            Directory::Open(directoryPath).SetControllerReachable(kDomain, "dc1.corp.test", false);
        }
    });
    const Directory open = Open();  // after the fork: the child must not inherit it
    EXPECT_EQ(open.ListControllers()[0].reachable, true);
    ASSERT_EQ(write(go[1], "x", 1), 1);
    EXPECT_EQ(Wait(child), 0);
    EXPECT_EQ(open.ListControllers()[0].reachable, false);
    close(go[0]);
    close(go[1]);
}

TEST_F(Together, ChildrenForkedUnderBusyThreadsChangeTheFilesToo) {
    std::atomic<bool> stop = false;
    std::vector<std::thread> busy;
    for (int i = 0; i < 4; ++i) {
        busy.emplace_back([&, i] {
            while (!stop) {
                host.SetSmartCardServices({"service" + std::to_string(i)});
                host.AnyController("", kDomain);
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Wait(StartProcess([&] {
                      if (StatusOf([&] { host.SetPreferredControllers({"dc" + std::to_string(i)}); }) != 0) {
                          _exit(1);
                      }
                  })),
                  0);
        EXPECT_EQ(host.PreferredControllers(), std::vector<std::string>{"dc" + std::to_string(i)});
    }
    stop = true;
    for (auto& thread : busy) {
        thread.join();
    }
}

// A process that joins and leaves for ever is ended by its own alarm, at moments spread over its work.
TEST_F(Together, KilledProcessLeavesAccountAndMembershipInAgreement) {
    std::mt19937 random(20311);
    int interruptedJoins = 0;
    for (int round = 0; round < 25; ++round) {
        const auto microseconds = static_cast<suseconds_t>(1 + random() % 150'000);
        const int result = Wait(StartProcess([&] {
            const itimerval alarm = {{0, 0}, {0, microseconds}};
            setitimer(ITIMER_REAL, &alarm, nullptr);
            while (true) {
                if (StatusOf([&] { host.Join(kDomain, "node01", "Hosts", kAdmin); }) == 2691) {
                    host.Part({});
                }
            }
        }));
        ASSERT_TRUE(WIFSIGNALED(result) && WTERMSIG(result) == SIGALRM) << result;
        ExpectConsistent();
        interruptedJoins += !Membership::Open(membershipPath).Current();
    }
    EXPECT_EQ(StatusOf([&] {
                  if (Membership::Open(membershipPath).Current()) {
                      host.Part(kAdmin);
                  }
                  host.Join(kDomain, "node01", "Hosts", kAdmin);
              }),
              0U);
    EXPECT_EQ(host.TrustState(), kTrustStateHealthy);
    RecordProperty("interrupted_joins", interruptedJoins);
}

}  // namespace
}  // namespace nimbrel::embedded::test
