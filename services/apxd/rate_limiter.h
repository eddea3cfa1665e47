// How often one client may ask: a bucket of requests for each, filled up again as time passes.

#ifndef NIMBREL_APXD_RATE_LIMITER_H_
#define NIMBREL_APXD_RATE_LIMITER_H_

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>

#include "services/apxd/names.h"

namespace nimbrel::apxd {

// Threads: any.
class RateLimiter {
 public:
    using Time = std::chrono::steady_clock::time_point;

    // At most this many clients are remembered; where all of them are busy, another one must wait.
    static constexpr std::size_t kMostClients = 65536;

    RateLimiter(unsigned requestsPerMinute, unsigned burst) : _perSecond(requestsPerMinute / 60.0), _burst(burst) {}

    // Counts a request. True if the client may ask; who counts as one, `Address::Client` tells.
    bool Admit(const Address& address, Time now);

 private:
    struct Bucket {
        double requests;
        Time filled;
    };

    void Fill(Bucket& bucket, Time now) const;
    // Forgets clients whose bucket is full again.
    void ForgetIdle(Time now);

    const double _perSecond;
    const double _burst;
    std::mutex _lock;  // guards the buckets
    std::map<Address, Bucket> _buckets;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_RATE_LIMITER_H_
