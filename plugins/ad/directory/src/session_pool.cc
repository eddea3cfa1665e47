#include "session_pool.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "log_on.h"

namespace nimbrel::ad {
namespace {

constexpr std::chrono::seconds kMaximumAge{10};
constexpr std::size_t kMaximumSessions = 4;

struct Kept {
    std::string key;
    PooledSession session;
};

struct Pool {
    std::mutex lock;  // guards what follows; never held across a network step
    std::vector<Kept> kept;
    pid_t process = getpid();
};

// Never destroyed: a query may run while the process exits.
Pool& Sessions() {
    static Pool* pool = new Pool;  // lives as long as the process
    return *pool;
}

// The parent goes on speaking on its connections: a child lets go of them without a word.
void ForgetInChild(Pool& pool) {
    if (pool.process != getpid()) {
        for (auto& one : pool.kept) {
            static_cast<void>(one.session.session.release());
        }
        pool.kept.clear();
        pool.process = getpid();
    }
}

// Returned, so that they are closed when the lock is not held any more.
std::vector<Kept> TakeOld(Pool& pool) {
    std::vector<Kept> old;
    for (auto one = pool.kept.begin(); one != pool.kept.end();) {
        if (one->session.IsYoungerThan(kMaximumAge)) {
            ++one;
        } else {
            old.push_back(std::move(*one));
            one = pool.kept.erase(one);
        }
    }
    return old;
}

}  // namespace

std::string SessionKey(const Settings& settings, const HostState& state) {
    struct stat info = {};
    stat(settings.membership.c_str(), &info);
    std::string key = settings.membership + "|" + settings.keytab + "|" + std::to_string(info.st_ino) + "|" +
                      std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec);
    for (const auto& controller : state.preferredControllers) {
        key += "|" + controller;
    }
    return key;
}

PooledSession TakeSession(const std::string& key) {
    Pool& pool = Sessions();
    std::vector<Kept> old;
    const std::lock_guard guard(pool.lock);
    ForgetInChild(pool);
    old = TakeOld(pool);
    const auto found =
        std::find_if(pool.kept.begin(), pool.kept.end(), [&](const Kept& one) { return one.key == key; });
    if (found == pool.kept.end()) {
        return {};
    }
    PooledSession session = std::move(found->session);
    pool.kept.erase(found);
    return session;
}

void GiveBackSession(const std::string& key, PooledSession session) {
    Pool& pool = Sessions();
    std::vector<Kept> old;
    const std::lock_guard guard(pool.lock);
    ForgetInChild(pool);
    old = TakeOld(pool);
    // The one that was kept first goes: it is nearest to its end, or of a membership that is over.
    if (pool.kept.size() == kMaximumSessions) {
        old.push_back(std::move(pool.kept.front()));
        pool.kept.erase(pool.kept.begin());
    }
    pool.kept.push_back({key, std::move(session)});
}

PooledSession LogOnMachine(const Settings& settings, const HostState& state, const Deadline& deadline) {
    const Membership& membership = *state.membership;
    auto session = std::make_unique<Session>(settings, membership.domain, state.preferredControllers,
                                             MachineLogOn(membership.computer, "FILE:" + settings.keytab), deadline);
    return {std::move(session), Deadline::Clock::now()};
}

}  // namespace nimbrel::ad
