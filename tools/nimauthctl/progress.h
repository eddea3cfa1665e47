// What long work is doing and since when, told while it goes on: to a person at a terminal, or to a program as JSON
// lines. Both stand on standard error, so that standard output holds the result alone.
//
//     [  0 s] making the host's name fit corp.test
//     [  0 s] joining corp.test, attempt 1 of 4
//     [ 12 s] attempt 1 of 4 refused, next in 18 s: a new account spreads slowly
//
//     {"schema": 1, "event": "pause", "attempt": 1, "attempts": 4, "seconds": 30, ..., "elapsedMilliseconds": 52}
//
// The last line of a terminal is drawn again each second; a pipe gets nothing unless it asks for JSON.

#ifndef NIMAUTHCTL_PROGRESS_H_
#define NIMAUTHCTL_PROGRESS_H_

#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "tools/nimauthctl/command.h"
#include "tools/nimauthctl/questions.h"

namespace nimbrel::nimauthctl {

// Threads: any thread may call any function.
class Progress {
 public:
    // Tells nothing where `settings` want silence, and to a person only if standard error is a terminal.
    explicit Progress(const Settings& settings);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // A step begins, and the one before it is over. `name` is for programs and never changes between versions.
    void Step(std::string_view name, std::string_view text);

    // The first of several attempts begins; `text` is followed by which attempt it is.
    void Attempts(std::string_view text, int attempts);
    // The attempt was refused, and the next one waits; after the last one, the refusal. Nothing outside of attempts.
    void Pause(int seconds);
    // Over: the next attempt begins, or nothing does.
    void PauseEnded();

    // All is over, in whatever way; the last line is left as it is. `event` is for programs: "end", "interrupted".
    void End(std::string_view event);

    // Draws the last line again.
    void Tick();

    // What was going on, in words: "attempt 2 of 4 was under way". Empty before the first step.
    std::string Now() const;
    // Whether an attempt is under way, whose outcome is open.
    bool OutcomeIsOpen() const;

 private:
    using Clock = std::chrono::steady_clock;
    enum class Form { None, Terminal, Json };

    void Tell(std::string_view event, const std::string& members) const;
    void BeginAttempt(int attempt);
    void BeginLine(const std::string& text);
    void EndLine();
    void Draw();
    std::string Line() const;
    std::string PauseText() const;
    std::string WhichAttempt() const;
    long ElapsedMilliseconds() const;

    Form _form = Form::None;
    const Clock::time_point _begin = Clock::now();
    mutable std::mutex _mutex;  // guards all below; held while a line is written
    std::string _text;          // of the last line, but for a pause's
    bool _lineIsOpen = false;
    std::string _shown;   // as it stands in the terminal
    bool _ended = false;  // nothing is told any more
    std::string _now;
    std::string _attemptText;
    int _attempt = 0;  // 0 outside of attempts
    int _attempts = 0;
    bool _pausing = false;
    Clock::time_point _pauseBegin;
    Clock::time_point _pauseEnd;
};

// While it lives, the pauses that its thread makes by `sleep` are told to `progress`.
class PauseWatch {
 public:
    explicit PauseWatch(Progress& progress);
    PauseWatch(const PauseWatch&) = delete;
    PauseWatch& operator=(const PauseWatch&) = delete;
    ~PauseWatch();
};

// A signal that asks the process to end: what the host is like now stands in the failure.
class Interrupted : public std::runtime_error {
 public:
    explicit Interrupted(int signal) : std::runtime_error("interrupted"), _signal(signal) {}

    int Signal() const { return _signal; }

 private:
    int _signal;
};

// Holds SIGINT, SIGTERM and SIGHUP back while long work runs; one that the caller ignores stays ignored.
//
// Threads: one object in the process at a time, on the main thread.
class SignalHold {
 public:
    SignalHold();
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;
    ~SignalHold();

    // Once the work's thread is started, which inherits the block: lets signals in.
    void Listen();
    // Throws `Interrupted` if one arrived. From then on another one ends the process at once.
    void Check();
};

// Carries out long work on a thread of its own, draws its progress to the end, and heeds signals. Throws
// `CarriedFailure` if the work failed, and `Interrupted`; then it still goes on, so it must own what it uses.
template <typename Call>
auto RunLong(Progress& progress, Call call) -> std::invoke_result_t<Call> {
    constexpr auto kLook = std::chrono::milliseconds(100);
    SignalHold signals;
    auto ended = InBackground(std::move(call));
    signals.Listen();
    while (!EndsWithin(ended, kLook)) {
        progress.Tick();
        signals.Check();
    }
    progress.End("end");
    return Take<std::invoke_result_t<Call>>(ended);
}

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_PROGRESS_H_
