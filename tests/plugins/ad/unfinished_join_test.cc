// Joins whose process is killed, at every message to the controller and between the steps on the host: the next call on
// the same host ends what they have begun.

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "files.h"
#include "host_state.h"
#include "joining_host.h"
#include "keytab.h"
#include "log_lines.h"
#include "sockets.h"
#include "unfinished_join.h"

namespace nimbrel::ad::test {
namespace {

class UnfinishedJoins : public JoiningHost {
 protected:
    static constexpr int kAtTheLogIns = 0;

    // The old state: an account that was made for this host, and another service's keys in the keytab.
    void Prepare() {
        MakeAccount();
        corp.entries.Modify(kAccount, {{2, "unicodePwd", {OneTimeValue()}}});
        KeytabChange web(settings.keytab);
        web.SetKeys({"WEB", "other.test", 1}, kit::Secret("secret"));
        web.Commit();
        _keytab = ReadFile(settings.keytab);
    }

    std::uint32_t JoinAsMachine() {
        return StatusOf([&] {
            TheHost().JoinWithMachineAccount({"node01.corp.test", "corp.test", "", "", "NODE01$", "OneTime-1"});
        });
    }

    // Kills a process that joins at its request of that number, which is carried out or not. False if it has ended before.
    template <typename Work>
    bool KilledAt(int request, Behaviour last, const Work& work) {
        int gate[2] = {};
        EXPECT_EQ(pipe(gate), 0);
        const pid_t child = fork();
        if (child == 0) {
            char go = 0;
            logIns.onEnable = [&] {
                if (request == kAtTheLogIns) raise(SIGKILL);
            };
            _exit(read(gate[0], &go, 1) == 1 && work() == 0 ? 0 : 1);
        }
        corp.controller.SetBehave([=, count = 0](const std::string&, const std::string&) mutable {
            if (++count != request) return Behaviour::Answers;
            kill(child, SIGKILL);
            return last;
        });
        EXPECT_EQ(write(gate[1], "", 1), 1);
        int ending = 0;
        EXPECT_EQ(waitpid(child, &ending, 0), child);
        close(gate[0]);
        close(gate[1]);
        corp.controller.SetBehave({});
        EXPECT_TRUE(WIFSIGNALED(ending) || WEXITSTATUS(ending) == 0);
        return WIFSIGNALED(ending);
    }

    void ForgetEverything() {
        if (TheHost().ActiveDomain().dnsName.empty()) {
            StatusOf([&] { TheHost().Part(std::nullopt); });
        } else {
            TheHost().Part(std::nullopt);
        }
        corp.entries.Delete(kAccount, false);
        std::filesystem::remove(settings.keytab);
    }

    void ExpectJoined() {
        EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
        EXPECT_FALSE(UnfinishedJoin(settings).Find());
        EXPECT_EQ(FileCount(Folder()), 3U) << "the keytab, the membership, the lock";
        EXPECT_EQ(ReadFile(settings.keytab).substr(0, _keytab.size()), _keytab);
    }

    static std::string OneTimeValue() {
        std::string value;
        for (const char letter : std::string("\"OneTime-1\"")) value += std::string{letter, '\0'};
        return value;
    }

    std::string _keytab;
};

TEST_F(UnfinishedJoins, WithAMachineAccountAreEndedByTheSameJoin) {
    for (const auto last : {Behaviour::HangsUp, Behaviour::Vanishes}) {
        for (int request = kAtTheLogIns, killed = 1; killed != 0; ++request) {
            Prepare();
            killed = KilledAt(request, last, [this] { return JoinAsMachine(); });
            if (killed != 0) {
                EXPECT_EQ(TheHost().ActiveDomain().dnsName, "");
                EXPECT_EQ(JoinAsMachine(), 0U) << request;
            }
            SCOPED_TRACE(request);
            ExpectJoined();
            ForgetEverything();
        }
    }
}

TEST_F(UnfinishedJoins, ByAUserAreEndedByTheNextJoin) {
    for (const auto last : {Behaviour::HangsUp, Behaviour::Vanishes}) {
        for (int request = kAtTheLogIns, killed = 1; killed != 0; ++request) {
            Prepare();
            killed = KilledAt(request, last, [this] { return Join(); });
            if (killed != 0) {
                EXPECT_EQ(Join(), 0U) << request;
            }
            SCOPED_TRACE(request);
            ExpectJoined();
            ForgetEverything();
        }
    }
}

TEST_F(UnfinishedJoins, AreTakenAwayByALeave) {
    for (const bool asMachine : {false, true}) {
        Prepare();
        ASSERT_TRUE(
            KilledAt(kAtTheLogIns, Behaviour::Answers, [=, this] { return asMachine ? JoinAsMachine() : Join(); }));
        EXPECT_NE(ReadFile(settings.keytab), _keytab);
        EXPECT_EQ(StatusOf([&] { TheHost().Part(std::nullopt); }), 0U);
        EXPECT_EQ(ReadFile(settings.keytab), _keytab);
        EXPECT_EQ(FileCount(Folder()), 2U) << "the keytab and the lock";
        EXPECT_EQ(StatusOf([&] { TheHost().Part(std::nullopt); }), kStatusNotJoined);
        ForgetEverything();
    }
}

TEST_F(UnfinishedJoins, LeaveWithCredentialsTakesTheAccountToo) {
    Prepare();
    ASSERT_TRUE(KilledAt(kAtTheLogIns, Behaviour::Answers, [this] { return Join(); }));
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
}

// It may have been another host's, and disabled, before this join.
TEST_F(UnfinishedJoins, LeaveWithCredentialsKeepsAnAccountThatIsDisabled) {
    Prepare();
    ASSERT_TRUE(KilledAt(kAtTheLogIns, Behaviour::Answers, [this] { return Join(); }));
    corp.keys.Refuse("NODE01$", KRB5KDC_ERR_CLIENT_REVOKED);
    EXPECT_EQ(Leave(), 0U);
    EXPECT_TRUE(Account());
    EXPECT_EQ(FileCount(Folder()), 2U) << "the keytab and the lock";
}

TEST_F(UnfinishedJoins, FailedJoinAfterwardsLeavesTheHostCleanAndTheKeysForTheNext) {
    Prepare();
    ASSERT_TRUE(KilledAt(kAtTheLogIns, Behaviour::Answers, [this] { return JoinAsMachine(); }));
    logIns.enabled.emplace();
    logIns.services = {"sshd"};
    EXPECT_EQ(Join("", "wrong"), kStatusLogonFailure);
    EXPECT_FALSE(logIns.enabled);
    EXPECT_THAT(logIns.services, ::testing::ElementsAre("sshd")) << "set for the next join";
    EXPECT_EQ(ReadFile(settings.keytab), _keytab);
    logIns.refuses = true;
    EXPECT_EQ(JoinAsMachine(), kStatusAccessDenied);
    EXPECT_EQ(ReadFile(settings.keytab), _keytab);
    logIns.refuses = false;
    EXPECT_EQ(JoinAsMachine(), 0U);
    ExpectJoined();
}

// The keys of this host that are in the keytab may be another tool's, and good.
TEST_F(UnfinishedJoins, KeysThatTheJoinHasNotWrittenStay) {
    Prepare();
    {
        KeytabChange another(settings.keytab);
        another.SetKeys({"NODE01", "corp.test", 5}, kit::Secret("another tool's"));
        another.Commit();
    }
    const std::string before = ReadFile(settings.keytab);
    const auto isFirstChange = [this] { return UnfinishedJoin(settings).Find().has_value(); };
    for (int request = 1; !isFirstChange(); ++request) {
        ASSERT_TRUE(KilledAt(request, Behaviour::Vanishes, [this] { return Join(); }));
    }
    EXPECT_EQ(Join("", "wrong"), kStatusLogonFailure);
    EXPECT_EQ(ReadFile(settings.keytab), before);
}

// The one-time secret cannot be made good again: the keys are all that opens the account.
TEST_F(UnfinishedJoins, KeysStayWhereTheSecretCannotBeTakenBack) {
    Prepare();
    logIns.refuses = true;
    corp.controller.SetRefuse([changes = 0](const std::string& operation, const std::string&) mutable {
        return operation == "modify" && ++changes == 3 ? std::optional(Result{53}) : std::nullopt;
    });
    EXPECT_EQ(JoinAsMachine(), kStatusAccessDenied);
    logIns.refuses = false;
    EXPECT_EQ(JoinAsMachine(), 0U);
    ExpectJoined();
}

// Who fails to join has not opened the account, and is not to take the keys away that do.
TEST_F(UnfinishedJoins, KeysOutliveAnotherJoinThatIsRefused) {
    for (const char* computer : {"node01", "node02"}) {
        Prepare();
        ASSERT_TRUE(KilledAt(kAtTheLogIns, Behaviour::Answers, [this] { return JoinAsMachine(); }));
        corp.controller.SetRefuse([](const std::string& operation, const std::string&) {
            const bool isChange = operation == "modify" || operation == "add";
            return isChange ? std::optional(Result{kInsufficientAccess}) : std::nullopt;
        });
        EXPECT_EQ(StatusOf([&] {
                      TheHost().Join("corp.test", computer, "", {"admin1", "Secret-1"});
                  }),
                  kStatusAccessDenied);
        corp.controller.SetRefuse({});
        EXPECT_EQ(JoinAsMachine(), 0U) << computer;
        ExpectJoined();
        ForgetEverything();
    }
}

TEST_F(UnfinishedJoins, KeysOfAnAccountThatIsResetMeanwhileAreGone) {
    Prepare();
    ASSERT_TRUE(KilledAt(kAtTheLogIns, Behaviour::Answers, [this] { return JoinAsMachine(); }));
    logIns.refuses = true;
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_FALSE(UnfinishedJoin(settings).Find());
}

// Another host's join may have taken the account over.
TEST_F(UnfinishedJoins, UsedSecretIsRefusedWhereTheDomainHasOtherKeys) {
    Prepare();
    ASSERT_TRUE(KilledAt(kAtTheLogIns, Behaviour::Answers, [this] { return JoinAsMachine(); }));
    corp.keys.SetPassword("NODE01$", "another's", MachineSalt("NODE01", "corp.test"));
    EXPECT_EQ(JoinAsMachine(), kStatusLogonFailure);
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "");
}

TEST_F(UnfinishedJoins, KeysThatTheDomainHasNeverTakenAreGoneWithTheNextJoin) {
    Prepare();
    int request = 1;
    while (!UnfinishedJoin(settings).Find()) {
        ASSERT_TRUE(KilledAt(request++, Behaviour::Vanishes, [this] { return JoinAsMachine(); }));
    }
    logIns.refuses = true;
    EXPECT_EQ(JoinAsMachine(), kStatusAccessDenied);
    EXPECT_FALSE(UnfinishedJoin(settings).Find());
}

TEST_F(UnfinishedJoins, RecordOfAFailedJoinIsGone) {
    Prepare();
    logIns.refuses = true;
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_FALSE(UnfinishedJoin(settings).Find());
    EXPECT_EQ(JoinAsMachine(), kStatusLogonFailure) << "the user's join has reset the account";
    EXPECT_FALSE(UnfinishedJoin(settings).Find());
}

// It finds the record of a join that is under way, waits for its turn, and finds a joined host.
TEST_F(UnfinishedJoins, LeaveDuringAJoinDoesNotUndoIt) {
    const UnfinishedJoin record(settings);
    const kit::Descriptor watch(inotify_init1(IN_CLOEXEC));
    std::uint32_t status = 0;
    std::thread leave;
    {
        const FileLock turn(settings.membership + ".lock", Deadline::After(std::chrono::seconds(5)));
        record.Record({"NODE01", "corp.test"}, KeysOfSecret("NODE01", "corp.test", kit::Secret("secret")));
        ASSERT_GE(inotify_add_watch(watch.Number(), (settings.membership + ".lock").c_str(), IN_OPEN), 0);
        leave = std::thread([&] { status = StatusOf([&] { TheHost().Part(std::nullopt); }); });
        EXPECT_TRUE(WaitFor(watch.Number(), POLLIN, Deadline::After(std::chrono::seconds(20)))) << "it has looked";
        HostState state;
        state.membership = Membership{"corp.test", "CORP", "S-1-5-21-1-2-3", "NODE01", kAccount};
        state.Save(settings.membership);
        record.Forget();
    }
    leave.join();
    EXPECT_EQ(status, kStatusNotJoined);
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "corp.test");
}

TEST_F(UnfinishedJoins, DamagedRecordIsToldAndRemovedByALeaveThatAsksNobody) {
    Prepare();
    const std::string record = settings.membership + ".joining";
    for (const std::string& damaged : {std::string("\x05\x02"), std::string(), std::string("\x05\x02\0\0\1", 5)}) {
        WriteFile(record, damaged);
        std::filesystem::permissions(record, std::filesystem::perms(0600));
        EXPECT_EQ(Join(), kStatusInternalError);
        EXPECT_THAT(JoinText(), ::testing::EndsWith("is damaged; a leave without credentials removes it"));
        EXPECT_EQ(Leave(), kStatusInternalError) << "of which account?";
        EXPECT_TRUE(std::filesystem::exists(record));
        TakeLogLines();
        EXPECT_EQ(StatusOf([&] { TheHost().Part(std::nullopt); }), 0U);
        EXPECT_THAT(TakeLogLines(),
                    ::testing::ElementsAre("The record of an unfinished join was damaged, and is removed: "
                                           "its keys may be in '" +
                                           settings.keytab + "' still"));
        EXPECT_FALSE(std::filesystem::exists(record));
        EXPECT_EQ(ReadFile(settings.keytab), _keytab);
    }
    EXPECT_EQ(Join(), 0U);
}

// A join that ends is killed before its last step; the host is joined.
TEST_F(UnfinishedJoins, RecordOfAJoinedHostGoesWithItsNextTrustState) {
    const UnfinishedJoin record(settings);
    EXPECT_EQ(Join(), 0U);
    record.Record({"NODE01", "corp.test"}, KeysOfSecret("NODE01", "corp.test", kit::Secret("secret")));
    {
        const FileLock another(settings.membership + ".lock", Deadline::After(std::chrono::seconds(5)));
        EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
        EXPECT_TRUE(record.Find()) << "a join may be under way";
    }
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    EXPECT_FALSE(record.Find());
}

}  // namespace
}  // namespace nimbrel::ad::test
