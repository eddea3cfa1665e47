// The cache beside its floor: the same containers, a mutex and a copy.

#include <benchmark/benchmark.h>

#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>

#include "authentication/directory_cache.h"

namespace {

using nimbrel::authentication::ADCache;
using nimbrel::authentication::Domain;

constexpr int kDomains = 1000;
constexpr int kRelationships = 100000;

std::string NameOf(int i) { return "domain-" + std::to_string(i) + ".corp.test"; }

std::deque<Domain> MakeDomains() {
    std::deque<Domain> domains;
    for (int i = 0; i < kDomains; ++i) domains.emplace_back(NameOf(i), "DOMAIN" + std::to_string(i));
    return domains;
}

// Every thread reads; the first one also writes now and then.
void TrustStateOurs(benchmark::State& state) {
    static ADCache cache;
    int round = 0;
    for (auto _ : state) {
        if (state.thread_index() == 0 && (++round & 15) == 0) cache.SetDomainTrustState(static_cast<TrustState>(1));
        benchmark::DoNotOptimize(cache.GetDomainTrustState());
    }
}
BENCHMARK(TrustStateOurs)->Name("cached trust state under load/ours")->Threads(2)->UseRealTime();

void TrustStateFloor(benchmark::State& state) {
    static std::mutex mutex;
    static int value = 0;
    int round = 0;
    for (auto _ : state) {
        if (state.thread_index() == 0 && (++round & 15) == 0) {
            const std::lock_guard<std::mutex> guard(mutex);
            value = 1;
        }
        const std::lock_guard<std::mutex> guard(mutex);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(TrustStateFloor)->Name("cached trust state under load/floor")->Threads(2)->UseRealTime();

void CopyOurs(benchmark::State& state) {
    ADCache cache;
    cache.SetTrustedDomains(MakeDomains());
    for (auto _ : state) benchmark::DoNotOptimize(cache.GetTrustedDomains());
}
BENCHMARK(CopyOurs)->Name("copy of 1000 cached domains/ours");

void CopyFloor(benchmark::State& state) {
    std::mutex mutex;
    const std::deque<Domain> domains = MakeDomains();
    for (auto _ : state) {
        const std::lock_guard<std::mutex> guard(mutex);
        std::deque<Domain> copy = domains;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(CopyFloor)->Name("copy of 1000 cached domains/floor");

void RelationshipOurs(benchmark::State& state) {
    ADCache cache;
    for (int i = 0; i < kRelationships; ++i) {
        cache.SetDomainTrustRelationship(NameOf(i), static_cast<TrustRelationship>(1));
    }
    const std::string name = NameOf(kRelationships / 2);
    for (auto _ : state) benchmark::DoNotOptimize(cache.GetDomainTrustRelationship(name));
}
BENCHMARK(RelationshipOurs)->Name("one of 100000 cached relationships/ours");

void RelationshipFloor(benchmark::State& state) {
    struct Entry {
        int value;
        unsigned char generation;
    };
    std::mutex mutex;
    std::unordered_map<std::string, Entry> relationships;
    for (int i = 0; i < kRelationships; ++i) relationships.insert_or_assign(NameOf(i), Entry{1, 0});
    const std::string name = NameOf(kRelationships / 2);
    for (auto _ : state) {
        const std::lock_guard<std::mutex> guard(mutex);
        const auto entry = relationships.find(name);
        benchmark::DoNotOptimize(entry == relationships.end() ? 6 : entry->second.value);
    }
}
BENCHMARK(RelationshipFloor)->Name("one of 100000 cached relationships/floor");

}  // namespace
