#include "tools/nimauthctl/progress.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include "tools/nimauthctl/report.h"
#include "tools/nimauthctl/standard_streams.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr std::size_t kColumns = 79;  // the last one of 80 stays free, so that no terminal wraps
constexpr char kRedraw[] = "\r\x1b[K";
constexpr char kPauseReason[] = "a new account spreads slowly";

thread_local Progress* pausesOfThread = nullptr;

std::string Cut(std::string line) {
    if (line.size() <= kColumns) return line;
    line.resize(kColumns - 3);
    // Not in the middle of a character.
    while (!line.empty() && (static_cast<unsigned char>(line.back()) & 0xc0) == 0x80) line.pop_back();
    if (!line.empty() && static_cast<unsigned char>(line.back()) >= 0xc0) line.pop_back();
    return line + "...";
}

std::string Member(std::string_view name, int value) {
    return ", \"" + std::string(name) + "\": " + std::to_string(value);
}

std::string Member(std::string_view name, std::string_view text) {
    return ", \"" + std::string(name) + "\": " + JsonText(text);
}

// Whether the code at this address is the library's. A plug-in's own sleep is no pause between attempts.
bool IsLibrary(const void* address) {
    Dl_info info{};
    return dladdr(address, &info) != 0 && info.dli_fname != nullptr &&
           std::string_view(info.dli_fname).find("/libnimauth.so") != std::string_view::npos;
}

volatile std::sig_atomic_t signalArrived = 0;

void Remember(int number) { signalArrived = number; }

struct HeldSignal {
    int number;
    struct sigaction before;
};
std::array<HeldSignal, 3> heldSignals = {{{SIGINT, {}}, {SIGTERM, {}}, {SIGHUP, {}}}};
sigset_t maskBefore;

void BringBackActions() {
    for (const HeldSignal& held : heldSignals) sigaction(held.number, &held.before, nullptr);
}

}  // namespace

Progress::Progress(const Settings& settings) {
    if (settings.progress == ProgressForm::Json) {
        _form = Form::Json;
    } else if (settings.progress == ProgressForm::Auto && !settings.quiet && !settings.json &&
               isatty(STDERR_FILENO) == 1) {
        _form = Form::Terminal;
    }
}

void Progress::End(std::string_view event) {
    const std::lock_guard lock(_mutex);
    if (_ended) return;
    EndLine();
    Tell(event, "");
    _ended = true;
}

void Progress::Step(std::string_view name, std::string_view text) {
    const std::lock_guard lock(_mutex);
    _attempt = 0;
    _now = std::string(text) + " was under way";
    Tell("step", Member("step", name) + Member("text", text));
    BeginLine(std::string(text));
}

void Progress::Attempts(std::string_view text, int attempts) {
    const std::lock_guard lock(_mutex);
    _attemptText = text;
    _attempts = attempts;
    BeginAttempt(1);
}

void Progress::BeginAttempt(int attempt) {
    _attempt = attempt;
    _now = WhichAttempt() + " was under way";
    Tell("step", Member("step", "attempt") + Member("text", _attemptText) + Member("attempt", _attempt) +
                     Member("attempts", _attempts));
    BeginLine(_attemptText + ", " + WhichAttempt());
}

void Progress::Pause(int seconds) {
    const std::lock_guard lock(_mutex);
    if (_attempt == 0) return;
    EndLine();
    _pausing = true;
    _pauseBegin = Clock::now();
    _pauseEnd = _pauseBegin + std::chrono::seconds(seconds);
    _now = WhichAttempt() + " was refused" + (_attempt < _attempts ? ", and the next had not begun" : "");
    Tell("pause", Member("attempt", _attempt) + Member("attempts", _attempts) + Member("seconds", seconds) +
                      Member("reason", kPauseReason));
    Draw();
}

void Progress::PauseEnded() {
    const std::lock_guard lock(_mutex);
    if (!_pausing) return;
    EndLine();
    if (_attempt < _attempts) BeginAttempt(_attempt + 1);
}

void Progress::Tick() {
    const std::lock_guard lock(_mutex);
    if (_lineIsOpen) Draw();
}

std::string Progress::Now() const {
    const std::lock_guard lock(_mutex);
    return _now;
}

bool Progress::OutcomeIsOpen() const {
    const std::lock_guard lock(_mutex);
    return _attempt > 0 && !_pausing;
}

void Progress::Tell(std::string_view event, const std::string& members) const {
    if (_form != Form::Json || _ended) return;
    WriteError("{\"schema\": 1, \"event\": \"" + std::string(event) + '"' + members +
               ", \"elapsedMilliseconds\": " + std::to_string(ElapsedMilliseconds()) + "}\n");
}

void Progress::BeginLine(const std::string& text) {
    EndLine();
    _text = text;
    Draw();
}

// What stays in the terminal is how long it took.
void Progress::EndLine() {
    if (_lineIsOpen && _pausing) {
        const auto waited = std::chrono::round<std::chrono::seconds>(Clock::now() - _pauseBegin).count();
        _text = WhichAttempt() + " refused, waited " + std::to_string(waited) + " s: " + kPauseReason;
    }
    _pausing = false;
    if (!_lineIsOpen) return;
    Draw();
    WriteError("\n");
    _lineIsOpen = false;
}

void Progress::Draw() {
    if (_form != Form::Terminal || _ended) return;
    std::string line = Cut(Line());
    if (!_lineIsOpen || line != _shown) WriteError(kRedraw + line);
    _shown = std::move(line);
    _lineIsOpen = true;
}

std::string Progress::Line() const {
    const std::string elapsed = std::to_string(ElapsedMilliseconds() / 1000);
    const std::string padding(elapsed.size() < 3 ? 3 - elapsed.size() : 0, ' ');
    return '[' + padding + elapsed + " s] " + (_pausing ? PauseText() : Printable(_text));
}

std::string Progress::PauseText() const {
    const auto left = std::chrono::ceil<std::chrono::seconds>(_pauseEnd - Clock::now()).count();
    return WhichAttempt() + " refused, " + (_attempt < _attempts ? "next in " : "giving up in ") +
           std::to_string(std::max<long>(left, 0)) + " s: " + kPauseReason;
}

std::string Progress::WhichAttempt() const {
    return "attempt " + std::to_string(_attempt) + " of " + std::to_string(_attempts);
}

long Progress::ElapsedMilliseconds() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _begin).count();
}

PauseWatch::PauseWatch(Progress& progress) { pausesOfThread = &progress; }

PauseWatch::~PauseWatch() { pausesOfThread = nullptr; }

SignalHold::SignalHold() {
    signalArrived = 0;
    sigset_t held;
    sigemptyset(&held);
    for (const HeldSignal& signal : heldSignals) sigaddset(&held, signal.number);
    pthread_sigmask(SIG_BLOCK, &held, &maskBefore);
    struct sigaction action {};
    action.sa_handler = Remember;
    sigemptyset(&action.sa_mask);
    for (HeldSignal& signal : heldSignals) {
        sigaction(signal.number, nullptr, &signal.before);
        if (signal.before.sa_handler == SIG_DFL) sigaction(signal.number, &action, nullptr);
    }
}

SignalHold::~SignalHold() {
    BringBackActions();
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

void SignalHold::Listen() { pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr); }

void SignalHold::Check() {
    if (signalArrived == 0) return;
    BringBackActions();
    throw Interrupted(signalArrived);
}

namespace {

void Rest(unsigned int seconds, const void* caller) {
    Progress* const progress = IsLibrary(caller) ? pausesOfThread : nullptr;
    if (progress != nullptr) progress->Pause(static_cast<int>(seconds));
    timespec rest{static_cast<time_t>(seconds), 0};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) continue;
    if (progress != nullptr) progress->PauseEnded();
}

}  // namespace
}  // namespace nimbrel::nimauthctl

// The library pauses between attempts to join by calling this function, and lets its host stand in for it.
extern "C" __attribute__((visibility("default"))) unsigned int sleep(unsigned int seconds) {
    nimbrel::nimauthctl::Rest(seconds, __builtin_return_address(0));
    return 0;
}
