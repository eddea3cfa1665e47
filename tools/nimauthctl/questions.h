// Asking the directory with a time-out, and knowing for certain whether an answer is fresh.
//
// A query of the directory store returns the last known answer when its time-out strikes, and says so only in the
// system log. Here each query runs under a watch: the tool's own scheduler runs the library's work items, so the watch
// knows which item the query started, when, and whether it has ended. An answer counts as fresh only if the query came
// back before its time-out could strike and its work item has ended; everything else is stale.
//
//     const auto domains = Ask(timeout, [&] { return store.GetTrustedDomains(); });
//     if (domains.stale) ...
//
// Threads: ask from one thread at a time.

#ifndef NIMAUTHCTL_QUESTIONS_H_
#define NIMAUTHCTL_QUESTIONS_H_

#include <cxxabi.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {

// Installs the scheduler. Call it once, before the first query.
void WatchWorkItems();

// Runs it on a detached thread and counts it as running until it ends. Throws `ThreadErrorException` if no thread can
// be started.
void RunInBackground(std::function<void()> work);

// Whether anything started here still runs: then the process must end without destroying what it may use.
bool WorkStillRuns();

// The watch over the queries that its thread makes while it lives.
class QueryWatch {
 public:
    explicit QueryWatch(int timeoutSeconds);
    QueryWatch(const QueryWatch&) = delete;
    QueryWatch& operator=(const QueryWatch&) = delete;
    ~QueryWatch();

    // Call it right after the one query. Waits for the work item's last steps. True also for a query that started no
    // work item because one of its name still runs from before: nothing is known of its answer.
    bool IsStale() const;

    // One run of a work item.
    class Item;

 private:
    friend void WatchWorkItems();

    const int _timeoutSeconds;
    // A query may ask another one first; its own item is the last.
    std::shared_ptr<Item> _last;
};

template <typename Value>
struct Answer {
    Value value;
    bool stale = false;
};

// Asks a query of the library, which keeps the time-out itself.
template <typename Query>
auto Ask(int timeoutSeconds, Query query) -> Answer<std::invoke_result_t<Query>> {
    const QueryWatch watch(timeoutSeconds);
    auto value = query();
    return {std::move(value), watch.IsStale()};
}

// What a call on another thread ended with. A failure is described where it arose: exceptions do not cross threads.
template <typename Result>
using Outcome = std::variant<Result, Failure>;

// The failure of a call whose thread was ended by a plug-in.
Failure EndedThread();

// Hands the outcome over however the call is left, a forced unwind included.
template <typename Result>
class OutcomeGuard {
 public:
    explicit OutcomeGuard(std::promise<Outcome<Result>>& promise) : _promise(promise) {}
    OutcomeGuard(const OutcomeGuard&) = delete;
    OutcomeGuard& operator=(const OutcomeGuard&) = delete;
    ~OutcomeGuard() { _promise.set_value(std::move(outcome)); }

    Outcome<Result> outcome = EndedThread();

 private:
    std::promise<Outcome<Result>>& _promise;
};

// Starts a call on a thread of its own. It goes on when nobody waits for it any more, so it must own what it uses.
template <typename Call>
auto InBackground(Call call) -> std::future<Outcome<std::invoke_result_t<Call>>> {
    using Result = std::invoke_result_t<Call>;
    const auto promise = std::make_shared<std::promise<Outcome<Result>>>();
    RunInBackground([promise, call = std::move(call)]() mutable {
        OutcomeGuard<Result> guard(*promise);
        try {
            guard.outcome = call();
        } catch (const abi::__forced_unwind&) {
            throw;  // must not be held up
        } catch (...) {
            guard.outcome = DescribeCurrentException();
        }
    });
    return promise->get_future();
}

template <typename Ended>
bool EndsWithin(const std::future<Ended>& ended, std::chrono::milliseconds time) {
    return ended.wait_for(time) == std::future_status::ready;
}

// The result of a call that has ended. Throws `CarriedFailure` if it failed.
template <typename Result>
Result Take(std::future<Outcome<Result>>& ended) {
    Outcome<Result> outcome = ended.get();
    if (const auto* const failure = std::get_if<Failure>(&outcome)) throw CarriedFailure(*failure);
    return std::get<Result>(std::move(outcome));
}

// Calls what has no time-out of its own. Unset if it did not end in time. A failure in time is thrown as
// `CarriedFailure`.
template <typename Call>
auto AskWithin(int timeoutSeconds, Call call) -> std::optional<std::invoke_result_t<Call>> {
    auto ended = InBackground(std::move(call));
    if (!EndsWithin(ended, std::chrono::seconds(timeoutSeconds))) return std::nullopt;
    return Take<std::invoke_result_t<Call>>(ended);
}

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_QUESTIONS_H_
