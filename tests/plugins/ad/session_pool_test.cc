// Sessions kept for the next question: for a short time, a few of them, and for this process alone.

#include "session_pool.h"

#include <sys/wait.h>

#include <gmock/gmock.h>

#include "joining_host.h"
#include "support/leave_child.h"

namespace nimbrel::ad::test {
namespace {

using std::chrono::seconds;

class Pool : public JoiningHost {
 protected:
    Pool() { EXPECT_EQ(Join(), 0U); }

    PooledSession LogOn() {
        return LogOnMachine(settings, HostState::Load(settings.membership), Deadline::After(seconds(5)));
    }
    static bool IsKept(const std::string& key) { return TakeSession(key).session != nullptr; }
};

TEST_F(Pool, SessionIsForItsKeyAndOnce) {
    GiveBackSession("one", LogOn());
    EXPECT_FALSE(IsKept("another"));
    EXPECT_TRUE(IsKept("one"));
    EXPECT_FALSE(IsKept("one"));
}

TEST_F(Pool, OldSessionIsClosed) {
    PooledSession old = LogOn();
    old.loggedOn -= seconds(11);
    GiveBackSession("old", std::move(old));
    EXPECT_FALSE(IsKept("old"));
}

// In a child, which starts without what other tests have left.
TEST_F(Pool, NoMoreThanFourAreKept) {
    std::vector<PooledSession> sessions;
    for (int i = 0; i < 5; ++i) sessions.push_back(LogOn());
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        for (auto& session : sessions) GiveBackSession("key", std::move(session));
        int kept = 0;
        while (IsKept("key")) ++kept;
        LeaveChild(kept);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 4 << 8) << "it ended by itself, and says how many";
}

TEST_F(Pool, TheNewestIsKept) {
    for (const char* const key : {"1", "2", "3", "4", "5"}) GiveBackSession(key, LogOn());
    EXPECT_FALSE(IsKept("1"));
    for (const char* const key : {"2", "3", "4", "5"}) EXPECT_TRUE(IsKept(key)) << key;
}

TEST_F(Pool, ChildStartsWithoutTheParentsSessions) {
    GiveBackSession("parent", LogOn());
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) LeaveChild(IsKept("parent") ? 1 : 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    PooledSession parents = TakeSession("parent");
    ASSERT_TRUE(parents.session);
    EXPECT_EQ(parents.session->Ldap().Search({"DC=corp,DC=test", LdapScope::Base, "(objectClass=*)", {}}).size(), 1U)
        << "the connection is as it was";
}

TEST_F(Pool, ClosedConnectionTakesNoMoreQuestions) {
    PooledSession session = LogOn();
    Behave("search", Behaviour::HangsUp);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(StatusOf([&] {
                      session.session->Ldap().Search({"DC=corp,DC=test", LdapScope::Base, "(a=b)", {}});
                  }),
                  kStatusNoSuchDomain);
    }
}

TEST_F(Pool, AnotherJoinOrOtherControllersNeedAnotherSession) {
    const HostState state = HostState::Load(settings.membership);
    const std::string key = SessionKey(settings, state);
    HostState other = state;
    other.preferredControllers = {"dc2.corp.test"};
    EXPECT_NE(SessionKey(settings, other), key);
    state.Save(settings.membership);
    EXPECT_NE(SessionKey(settings, state), key);
}

}  // namespace
}  // namespace nimbrel::ad::test
