// What the service knows of its domain: asked for once for all who want to know it, and kept for a while.
//
// A domain changes none of its names while hosts join it, and each join asks for them four times: an answer is good for
// five minutes. A refusal is good for five seconds, so that a directory that does not answer is not asked by each waiting
// client in turn, for as long as one question may take.
//
//     KnownDomain domain([&] { return AskTheDirectory(); }, KnownDomain::Clock::now);
//     const DomainFacts facts = domain.Facts();
//
// Before other questions it is looked whether the directory has just been found out of reach. Only that nobody could be
// asked counts: a question that a controller breaks off may be that question's own fault, and the next one fails over. What
// is known of the domain stays known meanwhile.
//
// Threads: any; those who come while somebody asks wait for that answer.

#ifndef NIMBREL_APXD_KNOWN_DOMAIN_H_
#define NIMBREL_APXD_KNOWN_DOMAIN_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <string>

#include "services/apxd/back_end.h"

namespace nimbrel::apxd {

class KnownDomain {
 public:
    using Clock = std::chrono::steady_clock;
    using Ask = std::function<DomainFacts()>;
    using Now = std::function<Clock::time_point()>;

    static constexpr std::chrono::minutes kAnswerKeeps{5};
    static constexpr std::chrono::seconds kRefusalKeeps{5};

    KnownDomain(Ask ask, Now now) : _ask(std::move(ask)), _now(std::move(now)) {}

    // Throws the `Refusal` that `ask` has thrown, for each who waits one of its own, and whatever else it throws.
    DomainFacts Facts();

    // For other questions to the same directory: throws the `Unreachable` that is still good. Asks nobody.
    void RequireReachable();
    // A question has ended with `Unreachable`: others need not be asked for as long as a refusal is good.
    void NoteUnreachable(const std::string& message);

 private:
    struct Outcome {
        DomainFacts facts;
        std::uint32_t status = 0;
        std::string message;
    };

    Outcome AskNow();
    std::shared_future<Outcome> Current();
    void RequireReachableLocked() const;

    const Ask _ask;
    const Now _now;
    std::mutex _lock;  // guards all below; never held while the directory is asked
    std::shared_future<Outcome> _outcome;
    Clock::time_point _ends = {};  // of the outcome's time; without an end while somebody asks
    std::string _unreachable;      // why
    Clock::time_point _unreachableUntil = {};
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_KNOWN_DOMAIN_H_
