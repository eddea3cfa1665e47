// Queries in the background: started, shared and awaited.

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_map>

#include "authentication/directory_store.h"

namespace {

using nimbrel::authentication::ActiveDirectoryStore;
using nimbrel::authentication::ADCache;
using nimbrel::authentication::NimauthThreadUtil;

// The request table of the directory store, without a provider behind it.
class Requests : public ActiveDirectoryStore {
 public:
    using ActiveDirectoryStore::FinishRequest;
    using ActiveDirectoryStore::StartOrAttachToRequest;
    static ADCache& WritableCache() { return _adCache; }
};

constexpr int kLong = 3600;  // seconds
const std::string kKey = "TrustState";

// What the provider does: it takes its time.
int Provide(long microseconds) {
    if (microseconds > 0) {
        const timespec time = {microseconds / 1000000, microseconds % 1000000 * 1000};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
    }
    return 1;
}

int QueryOurs(long microseconds) {
    Requests::StartOrAttachToRequest(kKey, [microseconds](const std::string& key) {
        Requests::WritableCache().SetDomainTrustState(static_cast<TrustState>(Provide(microseconds)));
        Requests::FinishRequest(key, nullptr);
    })->WaitResult(kLong);
    return Requests::Cache().GetDomainTrustState();
}

int QueryAsync(long microseconds) { return std::async(std::launch::async, Provide, microseconds).get(); }

// A detached thread and a condition variable, with nothing to spare.
int QueryBareThread(long microseconds) {
    struct Answer {
        std::mutex mutex;
        std::condition_variable ready;
        long microseconds;
        int value = 0;
    };
    const auto answer = std::make_shared<Answer>();
    answer->microseconds = microseconds;
    auto holder = std::make_unique<std::shared_ptr<Answer>>(answer);
    pthread_t thread = {};
    const auto run = [](void* argument) -> void* {
        const std::unique_ptr<std::shared_ptr<Answer>> held(static_cast<std::shared_ptr<Answer>*>(argument));
        const int value = Provide((*held)->microseconds);
        const std::lock_guard<std::mutex> guard((*held)->mutex);
        (*held)->value = value;
        (*held)->ready.notify_all();
        return nullptr;
    };
    if (pthread_create(&thread, nullptr, run, holder.get()) != 0) throw std::runtime_error("no thread");
    static_cast<void>(holder.release());
    pthread_detach(thread);
    std::unique_lock<std::mutex> lock(answer->mutex);
    answer->ready.wait(lock, [&answer] { return answer->value != 0; });
    return answer->value;
}

// One parked worker, as a host might install it.
class Pool {
 public:
    Pool() : _worker([this] { Run(); }) {}
    ~Pool() {
        Post(nullptr);
        _worker.join();
    }
    void Post(std::function<void()> work) {
        {
            const std::lock_guard<std::mutex> guard(_mutex);
            _queue.push_back(std::move(work));
        }
        _arrived.notify_one();
    }

 private:
    void Run() {
        for (;;) {
            std::unique_lock<std::mutex> lock(_mutex);
            _arrived.wait(lock, [this] { return !_queue.empty(); });
            const std::function<void()> work = std::move(_queue.front());
            _queue.pop_front();
            lock.unlock();
            if (!work) return;
            work();
        }
    }

    std::mutex _mutex;
    std::condition_variable _arrived;
    std::deque<std::function<void()>> _queue;
    std::thread _worker;
};

void Query(benchmark::State& state, int (*query)(long)) {
    for (auto _ : state) benchmark::DoNotOptimize(query(state.range(0)));
}

void QueryThroughPool(benchmark::State& state) {
    Pool pool;
    NimauthThreadUtil::SetScheduler([&pool](std::function<void()> work) { pool.Post(std::move(work)); });
    Query(state, QueryOurs);
    NimauthThreadUtil::SetScheduler(nullptr);
}

// A request that runs for as long as the scope.
class RunningRequest {
 public:
    RunningRequest() {
        NimauthThreadUtil::SetScheduler([](const std::function<void()>&) {});
        Requests::StartOrAttachToRequest(kKey, [](const std::string&) {});
    }
    ~RunningRequest() {
        Requests::FinishRequest(kKey, nullptr);
        NimauthThreadUtil::SetScheduler(nullptr);
    }
};

void AttachOurs(benchmark::State& state) {
    const RunningRequest running;
    for (auto _ : state) benchmark::DoNotOptimize(Requests::StartOrAttachToRequest(kKey, [](const std::string&) {}));
}

// What a table of shared futures does for the same question.
void AttachFuture(benchmark::State& state) {
    std::promise<int> promise;
    std::mutex mutex;
    std::unordered_map<std::string, std::shared_future<int>> table;
    table.emplace(kKey, promise.get_future().share());
    for (auto _ : state) {
        const std::lock_guard<std::mutex> guard(mutex);
        const std::shared_future<int> attached = table.at(kKey);
        benchmark::DoNotOptimize(attached);
    }
}

// Many callers, one question: the counter tells how often the provider was asked.
void Share(benchmark::State& state) {
    long calls = 0;
    std::function<void()> scheduled;
    NimauthThreadUtil::SetScheduler([&scheduled](std::function<void()> work) { scheduled = std::move(work); });
    for (auto _ : state) {
        std::vector<std::shared_ptr<nimbrel::authentication::RequestState>> callers;
        for (long i = 0; i < state.range(0); ++i) {
            callers.push_back(Requests::StartOrAttachToRequest(kKey, [&calls](const std::string& key) {
                ++calls;
                Requests::FinishRequest(key, nullptr);
            }));
        }
        std::thread(scheduled).join();
        for (const auto& caller : callers) caller->WaitResult(kLong);
    }
    NimauthThreadUtil::SetScheduler(nullptr);
    state.counters["calls"] = static_cast<double>(calls) / static_cast<double>(state.iterations());
}

const bool kRegistered = [] {
    for (const long microseconds : {0L, 100L, 10000L}) {
        const std::string work = "query, provider takes " + std::to_string(microseconds) + " us/";
        const auto add = [&](const char* contender, int (*query)(long)) {
            benchmark::RegisterBenchmark((work + contender).c_str(), Query, query)->Arg(microseconds)->UseRealTime();
        };
        add("ours", QueryOurs);
        add("std::async", QueryAsync);
        add("bare thread", QueryBareThread);
    }
    benchmark::RegisterBenchmark("query through an installed pool/ours", QueryThroughPool)->Arg(0)->UseRealTime();
    benchmark::RegisterBenchmark("query through an installed pool/std::async", Query, QueryAsync)
        ->Arg(0)
        ->UseRealTime();
    benchmark::RegisterBenchmark("attach to a running request/ours", AttachOurs);
    benchmark::RegisterBenchmark("attach to a running request/std::shared_future", AttachFuture);
    for (const long callers : {1L, 8L, 64L, 1000L}) {
        const std::string work = "provider calls for " + std::to_string(callers) + " callers/ours";
        benchmark::RegisterBenchmark(work.c_str(), Share)->Arg(callers)->UseRealTime();
    }
    return true;
}();

}  // namespace
