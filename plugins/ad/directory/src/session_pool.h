// Sessions of this joined host that a process keeps open for a few seconds, because its questions come in bursts: a
// refresh asks for the trusted domains, the trust state and the relationships one after the other.
//
// A session is used by one call at a time. It counts for ten seconds after its log-in and only while the membership
// file is the same; the last four are kept. They are closed by the next call after that, or by the controller. A child
// process has none.
//
// Threads: any.

#ifndef NIMBREL_AD_SESSION_POOL_H_
#define NIMBREL_AD_SESSION_POOL_H_

#include <memory>
#include <string>
#include <utility>

#include "addirectory/ad_error.h"
#include "addirectory/settings.h"
#include "deadline.h"
#include "gate.h"
#include "host_state.h"
#include "session.h"

namespace nimbrel::ad {

struct PooledSession {
    std::unique_ptr<Session> session;
    Deadline::Clock::time_point loggedOn;
    bool hasToldName = false;  // where the account stands

    bool IsYoungerThan(std::chrono::seconds age) const { return Deadline::Clock::now() - loggedOn < age; }
};

// What a session must fit: the membership as it is on disk, and the controllers preferred.
std::string SessionKey(const Settings& settings, const HostState& state);
// Empty if there is none.
PooledSession TakeSession(const std::string& key);
void GiveBackSession(const std::string& key, PooledSession session);
PooledSession LogOnMachine(const Settings& settings, const HostState& state, const Deadline& deadline);

// Does `work` on a session of this host, an open one if it still answers. Throws what the log-on and the work throw.
template <class Work>
auto OnMachineSession(const Settings& settings, const HostState& state, const Deadline& deadline, const Work& work) {
    const std::string key = SessionKey(settings, state);
    PooledSession pooled = TakeSession(key);
    if (pooled.session) {
        try {
            pooled.session->SetDeadline(deadline.OrAfter(settings.controllerBudget));
            auto result = work(*pooled.session);
            GiveBackSession(key, std::move(pooled));
            return result;
        } catch (const AdError& error) {
            if (error.Status() != kStatusNoSuchDomain) {
                throw;
            }
        }
    }
    pooled = LogOnMachine(settings, state, deadline);
    auto result = work(*pooled.session);
    GiveBackSession(key, std::move(pooled));
    return result;
}

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_SESSION_POOL_H_
