#include "services/apxd/known_domain.h"

#include <exception>
#include <utility>

namespace nimbrel::apxd {

KnownDomain::Outcome KnownDomain::AskNow() {
    try {
        return {_ask(), 0, ""};
    } catch (const Unreachable& refusal) {
        NoteUnreachable(refusal.what());
        return {{}, refusal.Status(), refusal.what()};
    } catch (const Refusal& refusal) {
        return {{}, refusal.Status(), refusal.what()};
    }
}

// Whoever finds nothing that is still good asks for all who come meanwhile.
std::shared_future<KnownDomain::Outcome> KnownDomain::Current() {
    std::promise<Outcome> promise;
    {
        const std::lock_guard<std::mutex> lock(_lock);
        if (_outcome.valid() && _now() < _ends) return _outcome;
        RequireReachableLocked();
        _outcome = promise.get_future().share();
        _ends = Clock::time_point::max();
    }
    Clock::duration keeps = Clock::duration::zero();
    try {
        Outcome outcome = AskNow();
        keeps = outcome.status == 0 ? kAnswerKeeps : kRefusalKeeps;
        promise.set_value(std::move(outcome));
    } catch (...) {
        promise.set_exception(std::current_exception());  // for those who wait, too
    }
    const std::lock_guard<std::mutex> lock(_lock);
    _ends = _now() + keeps;
    return _outcome;
}

DomainFacts KnownDomain::Facts() {
    const std::shared_future<Outcome> current = Current();
    const Outcome& outcome = current.get();
    if (outcome.status != 0) throw Refusal(outcome.status, outcome.message);
    return outcome.facts;
}

void KnownDomain::RequireReachable() {
    const std::lock_guard<std::mutex> lock(_lock);
    RequireReachableLocked();
}

void KnownDomain::RequireReachableLocked() const {
    if (_now() < _unreachableUntil) throw Unreachable(_unreachable);
}

void KnownDomain::NoteUnreachable(const std::string& message) {
    const std::lock_guard<std::mutex> lock(_lock);
    _unreachable = message;
    _unreachableUntil = _now() + kRefusalKeeps;
}

}  // namespace nimbrel::apxd
