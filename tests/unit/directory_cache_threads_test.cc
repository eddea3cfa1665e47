// The cache under many threads, and its lock.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <system_error>
#include <thread>

#include "authentication/directory_cache.h"

namespace {

thread_local bool counting = false;  // looks at the locks of this thread only
thread_local int locks = 0;
thread_local int held = 0;
thread_local int errorOfLock = 0;

}  // namespace

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (!counting) return __real_pthread_mutex_lock(mutex);
    if (errorOfLock != 0) return errorOfLock;
    ++locks;
    ++held;
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (counting) --held;
    return __real_pthread_mutex_unlock(mutex);
}

}  // extern "C"

namespace {

using nimbrel::authentication::ActiveDirectoryStoreConfiguration;
using nimbrel::authentication::ADCache;
using nimbrel::authentication::Domain;

constexpr int kRounds = 2000;

struct Member {
    const char* name;
    std::function<void(ADCache&)> call;
};

const Member kMembers[] = {
    {"SetConfiguration",
     [](ADCache& cache) {
         cache.SetConfiguration({"corp.test", "CORP", {"dc1"}, "CN=node01"});
     }},
    {"GetConfiguration", [](ADCache& cache) { cache.GetConfiguration(); }},
    {"IsDomainMember", [](ADCache& cache) { cache.IsDomainMember(); }},
    {"SetDomainTrustState", [](ADCache& cache) { cache.SetDomainTrustState(static_cast<TrustState>(1)); }},
    {"GetDomainTrustState", [](ADCache& cache) { cache.GetDomainTrustState(); }},
    {"SetTrustedDomains", [](ADCache& cache) { cache.SetTrustedDomains({Domain("a.test", "A")}); }},
    {"GetTrustedDomains", [](ADCache& cache) { cache.GetTrustedDomains(); }},
    {"GetAllDomains", [](ADCache& cache) { cache.GetAllDomains(); }},
    {"IncreaseTrustRelationshipsGenNo", [](ADCache& cache) { cache.IncreaseTrustRelationshipsGenNo(); }},
    {"SetDomainTrustRelationship",
     [](ADCache& cache) { cache.SetDomainTrustRelationship("a.test", static_cast<TrustRelationship>(1)); }},
    {"CleanupOldTrustRelationships", [](ADCache& cache) { cache.CleanupOldTrustRelationships(); }},
    {"GetDomainTrustRelationship", [](ADCache& cache) { cache.GetDomainTrustRelationship("a.test"); }},
    {"SetSmartCardEnabledServices", [](ADCache& cache) { cache.SetSmartCardEnabledServices({"s1"}); }},
    {"SetPcscdSvcPolicyOn", [](ADCache& cache) { cache.SetPcscdSvcPolicyOn(true); }},
    {"IsSmartCardAuthenticationEnabled",
     [](ADCache& cache) {
         const char* const services[] = {"s1"};
         cache.IsSmartCardAuthenticationEnabled(services, 1);
     }},
};

class CacheThreads : public ::testing::Test {
 protected:
    // Runs writers and readers at once until the writers are through their rounds.
    void Race(const std::vector<std::function<void(int)>>& writers, const std::function<void()>& reader) {
        std::atomic<std::size_t> writing = writers.size();
        std::vector<std::thread> threads;
        for (const auto& writer : writers) {
            threads.emplace_back([&writing, &writer] {
                for (int round = 0; round < kRounds; ++round) writer(round);
                --writing;
            });
        }
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&writing, &reader] {
                do reader();
                while (writing > 0);
            });
        }
        for (std::thread& thread : threads) thread.join();
    }

    ADCache _cache;
};

TEST_F(CacheThreads, EveryMemberTakesTheLockOnceAndGivesItBack) {
    for (const Member& member : kMembers) {
        locks = held = 0;
        counting = true;
        member.call(_cache);
        counting = false;
        EXPECT_EQ(locks, 1) << member.name;
        EXPECT_EQ(held, 0) << member.name;
    }
}

TEST_F(CacheThreads, LockThatFailsIsAStandardSystemError) {
    for (const Member& member : kMembers) {
        int error = 0;
        counting = true;
        errorOfLock = EDEADLK;
        try {
            member.call(_cache);
        } catch (const std::system_error& caught) {
            error = caught.code().value();
        }
        counting = false;
        errorOfLock = 0;
        EXPECT_EQ(error, EDEADLK) << member.name;
    }
}

TEST_F(CacheThreads, AnyMembersMayRunAtOnce) {
    std::vector<std::function<void(int)>> callers;
    for (const Member& member : kMembers) callers.emplace_back([this, &member](int) { member.call(_cache); });
    Race(callers, [this] { _cache.GetAllDomains(); });
    EXPECT_EQ(_cache.GetConfiguration().DomainDNSName(), "corp.test");
}

TEST_F(CacheThreads, ConfigurationIsNeverSeenHalfReplaced) {
    const auto writer = [this](const std::string& name) {
        return [this, name](int) { _cache.SetConfiguration({name, name, {name, name}, name}); };
    };
    std::atomic<int> torn = 0;
    Race({writer("first"), writer("a second one that is too long for a short text")}, [&] {
        const ActiveDirectoryStoreConfiguration seen = _cache.GetConfiguration();
        const std::string& name = seen.DomainDNSName();
        if (name.empty()) return;
        const bool whole = seen.DomainNetBIOSName() == name && seen.MachineAccountDN() == name &&
                           seen.PreferredDomainControllers() == std::deque<std::string>{name, name};
        if (!whole) ++torn;
    });
    EXPECT_EQ(torn, 0);
}

TEST_F(CacheThreads, DomainListIsNeverSeenHalfReplaced) {
    const auto writer = [this](const std::string& name, std::size_t count) {
        return [this, name, count](int) { _cache.SetTrustedDomains(std::deque<Domain>(count, Domain(name, name))); };
    };
    std::atomic<int> torn = 0;
    Race({writer("one", 1), writer("fifty", 50)}, [&] {
        const std::deque<Domain> seen = _cache.GetTrustedDomains();
        if (seen.empty()) return;
        for (const Domain& domain : seen) {
            if (domain.DNSName() != (seen.size() == 1 ? "one" : "fifty")) ++torn;
        }
    });
    EXPECT_EQ(torn, 0);
}

TEST_F(CacheThreads, RelationshipOfTheRunningPassIsNeverLost) {
    _cache.SetDomainTrustRelationship("kept.test", static_cast<TrustRelationship>(1));
    std::atomic<int> lost = 0;
    Race({[this](int) {
             _cache.IncreaseTrustRelationshipsGenNo();
             _cache.SetDomainTrustRelationship("kept.test", static_cast<TrustRelationship>(1));
             _cache.CleanupOldTrustRelationships();
         }},
         [&] {
             if (_cache.GetDomainTrustRelationship("kept.test") != 1) ++lost;
         });
    EXPECT_EQ(lost, 0);
}

}  // namespace
