// Rehearsals through the table: a status, a value or a delay for each operation; calls that wait; a process that exits
// meanwhile.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <map>
#include <thread>

#include "provider.h"

namespace nimbrel::embedded::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

const char* const kNone[] = {nullptr};

// One call of each operation that answers with a status.
const std::map<std::string, std::function<std::uint32_t()>>& StatusCalls() {
    static const std::map<std::string, std::function<std::uint32_t()>> calls = {
        {"join-domain", [] { return Join(); }},
        {"part-domain", [] { return Table().partDomain(nullptr); }},
        {"get-active-domain", [] { return ActiveDomain().status; }},
        {"set-preferred-domain-controllers", [] { return Table().setPreferredDomainControllers(kNone); }},
        {"get-preferred-domain-controllers", [] { return PreferredControllers().status; }},
        {"get-trusted-domains", [] { return TrustedDomains().status; }},
        {"get-machine-account-dn", [] { return MachineAccountDN().status; }},
        {"get-any-domain-controller", [] { return AnyController().status; }},
        {"convert-canonical-username", [] { return CanonicalName("user1").status; }},
        {"join-domain-with-machine-account", [] { return JoinWithMachineAccount("NODE01", "secret"); }},
        {"get-host-principal-for-domain", [] { return HostPrincipal(kDomain).status; }},
        {"set-smart-card-enabled-services", [] { return Table().setSmartCardEnabledServices(kNone); }},
        {"get-smart-card-enabled-services", [] { return SmartCardServices().status; }},
    };
    return calls;
}

class RehearsedProvider : public Provider {
 protected:
    // Returns once one more call has been counted: the caller is in its rehearsal.
    static void AwaitRemaining(const std::string& operation, std::uint32_t remaining) {
        while (true) {
            for (const auto& rehearsal : Open().ListRehearsals()) {
                if (rehearsal.operation == operation && rehearsal.remaining == remaining) {
                    return;
                }
            }
            std::this_thread::yield();
        }
    }

    template <class Call>
    static milliseconds TimeOf(const Call& call) {
        const auto start = steady_clock::now();
        call();
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
    }
};

TEST_F(RehearsedProvider, EveryOperationIsCovered) {
    for (const auto operation : kOperations) {
        EXPECT_EQ(StatusCalls().count(std::string(operation)), AnswersWithValue(operation) ? 0U : 1U) << operation;
    }
}

TEST_F(RehearsedProvider, StatusIsAnsweredAndNothingIsDone) {
    for (const auto& [operation, call] : StatusCalls()) {
        Open().SetRehearsal({operation, 0, 1398, {}, {}});
        EXPECT_EQ(call(), 1398U) << operation;
    }
    Open().ClearRehearsals();
    EXPECT_EQ(ActiveDomain().text, "|");
    EXPECT_TRUE(Open().ListComputers().empty());
}

TEST_F(RehearsedProvider, ValuesAreAnswered) {
    ASSERT_EQ(Join(), 0U);
    Open().SetRehearsal({"get-domain-trust-state", 0, {}, 42, {}});
    Open().SetRehearsal({"get-domain-trust-relationship", 0, {}, -7, 1});
    EXPECT_EQ(Table().getDomainTrustState(), 42);
    EXPECT_EQ(Table().getDomainTrustRelationship(kDomain), -7);
    EXPECT_EQ(Table().getDomainTrustRelationship(kDomain), kRelationshipOwnDomain);
}

TEST_F(RehearsedProvider, LargestStatusPassesUnchanged) {
    Open().SetRehearsal({"join-domain", 0, 0xFFFFFFFFU, {}, {}});
    EXPECT_EQ(Join(), 0xFFFFFFFFU);
}

TEST_F(RehearsedProvider, OnlyTheNextCallsAreRehearsed) {
    Open().SetRehearsal({"join-domain", 0, 1326, {}, 2});
    EXPECT_EQ(Join(), 1326U);
    EXPECT_EQ(Join(), 1326U);
    EXPECT_EQ(Join(), 0U);
}

TEST_F(RehearsedProvider, DelayComesBeforeTheWork) {
    Open().SetRehearsal({"get-active-domain", 300, {}, {}, 1});
    EXPECT_GE(TimeOf([] { EXPECT_EQ(ActiveDomain().text, "|"); }), milliseconds(300));
    Open().SetRehearsal({"join-domain", 30, {}, {}, 1});
    EXPECT_GE(TimeOf([] { EXPECT_EQ(Join(), 0U); }), milliseconds(30));
    EXPECT_EQ(ActiveDomain().text, "corp.test|CORP");
}

TEST_F(RehearsedProvider, DelayAndStatusGoTogether) {
    Open().SetRehearsal({"get-trusted-domains", 250, 1355, {}, 1});
    EXPECT_GE(TimeOf([] { EXPECT_EQ(TrustedDomains().status, 1355U); }), milliseconds(250));
}

TEST_F(RehearsedProvider, WaitingCallsDoNotWaitForEachOther) {
    Open().SetRehearsal({"get-active-domain", 700, {}, {}, 8});
    const auto all = TimeOf([] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([] { ActiveDomain(); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
    });
    EXPECT_GE(all, milliseconds(700));
    EXPECT_LT(all, milliseconds(8 * 700)) << "one after the other";
}

TEST_F(RehearsedProvider, ClearedRehearsalLetsWaitingCallsGoOn) {
    Open().SetRehearsal({"get-active-domain", kMaximumDelayMilliseconds, {}, {}, 1});
    std::thread waiting([] { EXPECT_EQ(ActiveDomain().text, "|"); });
    AwaitRemaining("get-active-domain", 0);
    Open().ClearRehearsal("get-active-domain");
    waiting.join();
}

TEST_F(RehearsedProvider, WaitingCallHoldsNothing) {
    Open().SetRehearsal({"join-domain", kMaximumDelayMilliseconds, 1222, {}, 1});
    std::thread waiting([] { EXPECT_EQ(Join(), 1222U); });
    AwaitRemaining("join-domain", 0);
    Open().AddDomain("other.test");
    EXPECT_EQ(ActiveDomain().text, "|");
    const char* services[] = {"login", nullptr};
    EXPECT_EQ(Table().setSmartCardEnabledServices(services), 0U);
    const auto filesAreOpen = [] {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry.path(), gone).string().rfind("/var/lib/nimbrel", 0) == 0) {
                return true;
            }
        }
        return false;
    };
    while (filesAreOpen()) {
        std::this_thread::yield();
    }
    Open().ClearRehearsals();
    waiting.join();
}

TEST_F(RehearsedProvider, WaitingThreadCanBeCancelled) {
    Open().SetRehearsal({"get-active-domain", kMaximumDelayMilliseconds, {}, {}, 1});
    pthread_t thread = {};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void*) -> void* {
                      ActiveDomain();
                      return nullptr;
                  },
                  nullptr),
              0);
    AwaitRemaining("get-active-domain", 0);
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(ActiveDomain().text, "|");
}

TEST_F(RehearsedProvider, RehearsalOfAnotherProcessCountsAtOnce) {
    EXPECT_EQ(ActiveDomain().status, 0U);
    const pid_t child = fork();
    if (child == 0) {
        Directory::Open().SetRehearsal({"get-active-domain", 0, 1222, {}, 1});
        _exit(0);
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    ASSERT_EQ(result, 0);
    EXPECT_EQ(ActiveDomain().status, 1222U);
    EXPECT_EQ(ActiveDomain().status, 0U);
}

TEST_F(RehearsedProvider, DamagedDirectoryRehearsesNothing) {
    Open().SetRehearsal({"get-active-domain", 0, 1222, {}, {}});
    std::filesystem::remove(std::string(kDefaultDirectoryPath) + "-wal");
    WriteFile(kDefaultDirectoryPath, "damaged");
    EXPECT_EQ(ActiveDomain().status, 0U);
}

// --- A process that exits while calls are under way ---

int ExitStatusOf(const std::string& what) {
    const int result =
        system((std::string(NIMAUTH_EMBEDDED_EXIT_HELPER " " NIMAUTH_EMBEDDED_MODULE " ") + what).c_str());
    return WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
}

TEST_F(RehearsedProvider, ProcessExitsCleanlyWhileACallWaits) {
    Open().SetRehearsal({"get-domain-trust-state", kMaximumDelayMilliseconds, {}, {}, {}});
    EXPECT_EQ(ExitStatusOf("trust-state 0"), 7);
}

TEST_F(RehearsedProvider, ProcessExitsCleanlyWhileCallsAnswer) {
    ASSERT_EQ(Join(), 0U);
    Open().SetRehearsal({"get-trusted-domains", 1, {}, {}, {}});
    for (int moment = 0; moment < 12; moment += NIMAUTH_EXIT_STEP) {
        EXPECT_EQ(ExitStatusOf("trust-state " + std::to_string(moment)), 7) << moment;
        EXPECT_EQ(ExitStatusOf("trusted-domains " + std::to_string(moment)), 7) << moment;
        EXPECT_EQ(ExitStatusOf("part " + std::to_string(20 * moment)), 7) << moment;
    }
}

}  // namespace
}  // namespace nimbrel::embedded::test
