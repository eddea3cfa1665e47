// A fork in the middle of the LDAP library's start: it waits for the end of it, but not for ever.

#include <netdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "gate.h"
#include "ldap_library.h"
#include "sandbox.h"
#include "support/leave_child.h"

namespace nimbrel::ad::test {
namespace {

using std::chrono::milliseconds;

// The look-up of the host's name, in a process that is made for one test.
struct LookUp {
    milliseconds takes{0};
    std::atomic_flag isUnderWay;
    std::promise<void> begun;
    std::promise<void> mayEnd;  // before that
};
LookUp& TheLookUp() {
    static auto* lookUp = new LookUp;  // a thread of the library's may need it until the process is gone
    return *lookUp;
}

// The status of a use of the library.
std::uint32_t Use(milliseconds budget) {
    return StatusOf([&] {
        const InsideGate inside;
        AwaitLdapLibrary(Deadline::After(budget));
    });
}

// What `host` returns in a process of its own.
template <class Call>
int InAHost(const Call& host) {
    const pid_t child = fork();
    if (child == 0) LeaveChild(host());
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Forks while the library starts. What the child's use of it ends with.
std::uint32_t UseInAChild(milliseconds lookUp) {
    TheLookUp().takes = lookUp;
    std::thread first([] { Use(std::chrono::seconds(60)); });
    TheLookUp().begun.get_future().wait();
    const int status = InAHost([] { return static_cast<int>(Use(std::chrono::seconds(4)) % 256); });
    TheLookUp().mayEnd.set_value();
    first.join();
    return static_cast<std::uint32_t>(status);
}

TEST(LibraryStart, ForkWaitsForIt) {
    EXPECT_EQ(InAHost([] { return static_cast<int>(UseInAChild(milliseconds(100))); }), 0);
}

TEST(LibraryStart, ChildOfAForkThatCouldNotWaitIsToldSo) {
    EXPECT_EQ(InAHost([] { return static_cast<int>(UseInAChild(std::chrono::hours(1))); }),
              static_cast<int>(kStatusInternalError % 256));
}

}  // namespace
}  // namespace nimbrel::ad::test

// ThreadSanitizer takes the parent's threads, which a forked child does not have, for threads that nobody joined.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "report_thread_leaks=0";
}

// Found by libldap before the C library's.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char*, const char*, const addrinfo*,
                                                                  addrinfo**) {
    using nimbrel::ad::test::TheLookUp;
    // The library may ask more than once, and so may a child of the fork.
    if (!TheLookUp().isUnderWay.test_and_set()) TheLookUp().begun.set_value();
    TheLookUp().mayEnd.get_future().wait_for(TheLookUp().takes);
    return EAI_AGAIN;
}
