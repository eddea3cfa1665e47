// The moment by which a call has to be over. Every step that may wait is given one, so that whatever a controller or a
// name server does, an operation ends within its budget.

#ifndef NIMBREL_AD_DEADLINE_H_
#define NIMBREL_AD_DEADLINE_H_

#include <algorithm>
#include <chrono>

namespace nimbrel::ad {

class Deadline {
 public:
    using Clock = std::chrono::steady_clock;

    static Deadline After(std::chrono::milliseconds budget) { return Deadline(Clock::now() + budget); }

    // This one, or `budget` from now if that is sooner.
    Deadline OrAfter(std::chrono::milliseconds budget) const { return Deadline(std::min(_end, Clock::now() + budget)); }

    // Rounded up, so that a wait of this length never ends early; 0 once it has passed.
    std::chrono::milliseconds Remaining() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(_end - Clock::now());
        return std::max(left, std::chrono::milliseconds(0));
    }
    bool HasPassed() const { return Clock::now() >= _end; }

 private:
    explicit Deadline(Clock::time_point end) : _end(end) {}

    Clock::time_point _end;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_DEADLINE_H_
