#include "services/apxd/rate_limiter.h"

#include <algorithm>
#include <iterator>

namespace nimbrel::apxd {

void RateLimiter::Fill(Bucket& bucket, Time now) const {
    const std::chrono::duration<double> passed = now - bucket.filled;
    bucket.requests = std::min(_burst, bucket.requests + passed.count() * _perSecond);
    bucket.filled = now;
}

void RateLimiter::ForgetIdle(Time now) {
    for (auto entry = _buckets.begin(); entry != _buckets.end();) {
        Fill(entry->second, now);
        entry = entry->second.requests >= _burst ? _buckets.erase(entry) : std::next(entry);
    }
}

bool RateLimiter::Admit(const Address& address, Time now) {
    const Address client = address.Client();
    const std::lock_guard<std::mutex> lock(_lock);
    auto found = _buckets.find(client);
    if (found == _buckets.end()) {
        if (_buckets.size() >= kMostClients) ForgetIdle(now);
        if (_buckets.size() >= kMostClients) return false;
        found = _buckets.emplace(client, Bucket{_burst, now}).first;
    }
    Fill(found->second, now);
    if (found->second.requests < 1) return false;
    found->second.requests -= 1;
    return true;
}

}  // namespace nimbrel::apxd
