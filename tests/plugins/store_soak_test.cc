// 64 threads ask all questions at once, of a provider that is slow, fails and hangs: nothing is lost, kept or forgotten.
//
// A round ends when the time is over and all threads have come back. Afterwards no request may be left in the table, no
// call in the provider, no result unreleased, and the memory in use may not have grown since the round before the last.
// NIMAUTH_SOAK_SECONDS makes each of the rounds longer than 1.5 seconds.

#include <malloc.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <queue>
#include <random>
#include <thread>

#include "authentication/exceptions.h"
#include "plugins/misbehaving/erratic.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using std::chrono::steady_clock;

constexpr int kThreads = 64;
constexpr int kRounds = 4;
// One call in so many hangs while a round lasts.
constexpr int kHanging = 500;
// How long it hangs at most, which is longer than the middle store waits.
constexpr std::chrono::milliseconds kHang{1500};

std::chrono::milliseconds RoundTime() {
    const char* const seconds = std::getenv("NIMAUTH_SOAK_SECONDS");
    return seconds ? std::chrono::seconds(std::max(1, std::atoi(seconds))) : kHang;
}

// What differs between two rounds that do the same: buffers of the allocator's threads, the log's socket.
constexpr std::size_t kNoise = std::size_t{512} << 10;

// A few workers for all work items, as a management agent has them.
class Pool {
 public:
    explicit Pool(int workers) {
        for (int i = 0; i < workers; ++i) _workers.emplace_back([this] { Work(); });
    }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() {
        Post(nullptr);
        for (std::thread& worker : _workers) worker.join();
    }

    void Post(std::function<void()> work) {
        const std::lock_guard<std::mutex> lock(_lock);
        _work.push(std::move(work));
        _changed.notify_one();
    }

 private:
    // An empty item stays in the queue and ends one worker after the other.
    void Work() {
        std::unique_lock<std::mutex> lock(_lock);
        while (true) {
            _changed.wait(lock, [this] { return !_work.empty(); });
            if (!_work.front()) {
                _changed.notify_one();
                return;
            }
            const std::function<void()> work = std::move(_work.front());
            _work.pop();
            lock.unlock();
            work();
            lock.lock();
        }
    }

    std::mutex _lock;  // guards the queue
    std::condition_variable _changed;
    std::queue<std::function<void()>> _work;
    std::vector<std::thread> _workers;
};

class StoreSoak : public StoreTest {
 protected:
    StoreSoak() : StoreTest("erratic"), plugin("erratic") {
        WriteSystemFile("/etc/nimbrel/nimauth/authentication.conf", "remote-authentication-store = \"None\"\n");
    }
    ~StoreSoak() override { plugin->hangOneIn(0); }

    // Returns how many questions were answered, each by a value or by an exception of this library.
    long Round() {
        const auto end = steady_clock::now() + RoundTime();
        std::atomic<long> answered = 0;
        plugin->hangOneIn(kHanging);
        std::vector<std::thread> threads;
        for (unsigned seed = 0; seed < kThreads; ++seed) {
            threads.emplace_back([&, seed] {
                std::minstd_rand random(seed + 1);
                while (steady_clock::now() < end) {
                    Ask(random);
                    ++answered;
                }
            });
        }
        while (steady_clock::now() < end) {
            std::this_thread::sleep_for(kHang);
            plugin->hangOneIn(kHanging);
        }
        plugin->hangOneIn(0);
        for (std::thread& thread : threads) thread.join();
        return answered;
    }

    void Ask(std::minstd_rand& random) {
        try {
            _questions.at(random() % _questions.size())(*_stores.at(random() % _stores.size()));
        } catch (const Exception&) {
            // the provider fails now and then
        }
    }

    void ExpectNothingLeft() {
        OpenStore::AwaitAllRequests();
        EXPECT_EQ(OpenStore::RequestCount(), 0u);
        // A request leaves the table before its worker has come back from the provider's frame.
        const auto limit = steady_clock::now() + std::chrono::seconds(60);
        while ((plugin->running() > 0 || plugin->given() != plugin->released()) && steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        EXPECT_EQ(plugin->running(), 0);
        EXPECT_EQ(plugin->given(), plugin->released());
        log.Take();
    }

    void Soak() {
        std::array<std::size_t, kRounds> memory = {};
        for (std::size_t& used : memory) {
            EXPECT_GT(Round(), kThreads);
            ExpectNothingLeft();
            used = mallinfo2().uordblks;
        }
        EXPECT_GT(plugin->calls(), kThreads);
        // Nothing is counted under sanitizers, which watch the memory themselves.
        EXPECT_LE(memory.back(), memory.at(kRounds - 2) + kNoise);
        std::printf("%d calls of the provider, memory in use after each round: %zu %zu %zu %zu bytes\n",
                    plugin->calls(), memory[0], memory[1], memory[2], memory[3]);
    }

    Plugin<ErraticControl> plugin;

 private:
    using Question = std::function<void(OpenStore& store)>;

    std::array<std::unique_ptr<OpenStore>, 3> _stores = {MakeStore(0), MakeStore(1), MakeStore(kPatient)};
    const std::array<Question, 15> _questions = {
        [](OpenStore& store) { std::unique_ptr<StoreConfiguration>(store.GetStoreConfiguration()); },
        [](OpenStore& store) { store.GetDomainTrustState(); },
        [](OpenStore& store) { store.GetTrustedDomains(); },
        [](OpenStore& store) { store.GetDomainTrustRelationship("a.test"); },
        [](OpenStore& store) { store.GetDomainTrustRelationship("b.test"); },
        [](OpenStore& store) { store.FetchAdConfig(); },
        [](OpenStore& store) { store.FetchTrustRelationships(); },
        [](OpenStore& store) { store.FetchScEnabledSvcs(); },
        [](OpenStore& store) { store.UpdateCache(true); },
        [](OpenStore& store) { store.MakeActive(); },
        [](OpenStore& store) { store.MakeInactive(); },
        [](OpenStore& store) { store.ConvertCanonicalUsername("alice"); },
        [](OpenStore& store) { store.GetSmartCardEnabledServices(); },
        [](OpenStore&) {
            OpenStore::Cache().GetDomainTrustState();
            OpenStore::Cache().GetTrustedDomains();
        },
        [](OpenStore&) { MakeStore(1)->GetTrustedDomains(); },
    };
};

TEST_F(StoreSoak, AThreadForEachQuestion) { Soak(); }

TEST_F(StoreSoak, APoolOfTheHost) {
    // More than can hang at once: whoever waits for a free worker is let go by nobody.
    Pool pool(kThreads);
    NimauthThreadUtil::SetScheduler([&pool](std::function<void()> work) { pool.Post(std::move(work)); });
    Soak();
    NimauthThreadUtil::SetScheduler(nullptr);
}

}  // namespace
}  // namespace nimbrel::authentication::test
