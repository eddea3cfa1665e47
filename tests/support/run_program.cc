#include "support/run_program.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ostream>
#include <system_error>
#include <utility>

namespace nimbrel::testing {
namespace {

constexpr int kEndMark = 199;

using Clock = std::chrono::steady_clock;

// Far above the numbers that a program gets, so that nothing in the child is overwritten while it is put in place.
constexpr int kFirstOwnDescriptor = 100;

[[noreturn]] void ThrowErrno(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

class Descriptor {
 public:
    Descriptor() = default;
    explicit Descriptor(int number) : _number(number) {}
    Descriptor(Descriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        Close();
        _number = std::exchange(other._number, -1);
        return *this;
    }
    ~Descriptor() { Close(); }

    int Number() const { return _number; }
    void Close() {
        if (_number >= 0) close(std::exchange(_number, -1));
    }

 private:
    int _number = -1;
};

Descriptor MovedUp(int number) {
    const int high = fcntl(number, F_DUPFD_CLOEXEC, kFirstOwnDescriptor);
    close(number);
    if (high < 0) ThrowErrno("fcntl");
    return Descriptor(high);
}

struct Pipe {
    Descriptor reading;
    Descriptor writing;
};

Pipe MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) ThrowErrno("pipe2");
    Pipe made;
    made.reading = MovedUp(ends[0]);
    made.writing = MovedUp(ends[1]);
    return made;
}

Descriptor OpenUp(const std::string& path, int flags) {
    const int number = open(path.c_str(), flags | O_CLOEXEC);
    if (number < 0) ThrowErrno(path.c_str());
    return MovedUp(number);
}

// In a namespace that has no such user, one without any mapping is as good: it owns our files, but has another number
// and no privilege.
bool BecomeUser(uid_t user) {
    if (setresuid(user, user, user) != 0) return errno == EINVAL && unshare(CLONE_NEWUSER) == 0;
    return true;
}

// A stream between the program and us.
struct Feed {
    Descriptor end;
    std::string rest;
};

class Run {
 public:
    Run(const std::string& path, const ProgramOptions& options) : _path(path), _options(options) {}

    ProgramResult Go();

 private:
    void PrepareInput(int target, const std::string& text);
    Descriptor PrepareOutput(int target);
    void PrepareTerminal();
    void Start();
    [[noreturn]] void BeTheChild(const Pipe& report);
    void Talk();
    bool TalkOnce();
    void FollowTerminal();
    void FeedSome(Feed& feed);
    static bool TakeSome(Descriptor& end, std::string& text);
    void Follow(OutputStep& step, const std::string& text) const;
    void Finish();

    const std::string& _path;
    const ProgramOptions& _options;
    std::vector<std::pair<int, Descriptor>> _childEnds;  // the number in the child, and what goes there
    std::vector<Feed> _feeds;
    OutputStep _onOutput = _options.onOutput;
    OutputStep _onErrors = _options.onErrors;
    Descriptor _output;
    Descriptor _errors;
    Descriptor _terminal;
    Descriptor _terminalHold;
    std::string _terminalName;
    std::size_t _step = 0;
    std::size_t _seen = 0;  // of the terminal's text, up to the last step
    pid_t _child = -1;
    Clock::time_point _begin = Clock::now();
    ProgramResult _result;
};

void Run::PrepareInput(int target, const std::string& text) {
    Pipe made = MakePipe();
    fcntl(made.writing.Number(), F_SETFL, O_NONBLOCK);
    _childEnds.emplace_back(target, std::move(made.reading));
    _feeds.push_back({std::move(made.writing), text});
}

Descriptor Run::PrepareOutput(int target) {
    Pipe made = MakePipe();
    _childEnds.emplace_back(target, std::move(made.writing));
    return std::move(made.reading);
}

void Run::PrepareTerminal() {
    _terminal = OpenUp("/dev/ptmx", O_RDWR | O_NOCTTY);
    std::array<char, 64> name{};
    if (grantpt(_terminal.Number()) != 0 || unlockpt(_terminal.Number()) != 0 ||
        ptsname_r(_terminal.Number(), name.data(), name.size()) != 0) {
        ThrowErrno("pseudo-terminal");
    }
    const winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    ioctl(_terminal.Number(), TIOCSWINSZ, &size);
    _terminalName = name.data();
    // Held open, so that the terminal is not hung up while the child has not opened it for good.
    _terminalHold = OpenUp(_terminalName, O_RDWR | O_NOCTTY);
}

void Run::BeTheChild(const Pipe& report) {
    setsid();
    for (const auto& [target, end] : _childEnds) dup2(end.Number(), target);
    if (!_terminalName.empty()) {
        const int terminal = open(_terminalName.c_str(), O_RDWR);
        if (terminal < 0 || ioctl(terminal, TIOCSCTTY, 0) != 0) _exit(126);
        if (_options.outputOnTerminal) {
            dup2(terminal, STDOUT_FILENO);
            dup2(terminal, STDERR_FILENO);
        }
        close(terminal);
    }
    for (const int number : _options.closed) close(number);
    if (_options.user != 0 && !BecomeUser(_options.user)) _exit(126);
    std::vector<char*> words = {const_cast<char*>(_path.c_str())};
    for (const std::string& argument : _options.arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    for (const std::string& variable : _options.environment) putenv(const_cast<char*>(variable.c_str()));
    signal(SIGPIPE, SIG_DFL);
    execv(_path.c_str(), words.data());
    const int error = errno;
    static_cast<void>(!write(report.writing.Number(), &error, sizeof error));
    _exit(126);
}

void Run::Start() {
    PrepareInput(STDIN_FILENO, _options.input);
    for (const auto& [number, text] : _options.descriptors) PrepareInput(number, text);
    if (_options.outputOnTerminal) {
        // Under a number of no meaning to the program: it tells when the program has ended.
        _output = PrepareOutput(kEndMark);
    } else if (_options.outputPath.empty()) {
        _output = PrepareOutput(STDOUT_FILENO);
    } else {
        _childEnds.emplace_back(STDOUT_FILENO, OpenUp(_options.outputPath, O_WRONLY));
    }
    if (_options.readNoOutput) _output.Close();
    if (!_options.outputOnTerminal) _errors = PrepareOutput(STDERR_FILENO);
    if (_options.outputOnTerminal || !_options.terminal.empty()) PrepareTerminal();
    Pipe report = MakePipe();
    _child = fork();
    if (_child < 0) ThrowErrno("fork");
    if (_child == 0) BeTheChild(report);
    report.writing.Close();
    _childEnds.clear();
    int error = 0;
    // Ends when the program has replaced the child.
    if (read(report.reading.Number(), &error, sizeof error) > 0) {
        waitpid(_child, nullptr, 0);
        throw std::system_error(error, std::generic_category(), _path);
    }
    if (_options.beforeInput) _options.beforeInput(_child);
}

void Run::FeedSome(Feed& feed) {
    const ssize_t count = write(feed.end.Number(), feed.rest.data(), feed.rest.size());
    const int error = errno;
    if (count > 0) feed.rest.erase(0, static_cast<std::size_t>(count));
    if (feed.rest.empty() || (count < 0 && error != EAGAIN && error != EINTR)) feed.end.Close();
}

// False at the end.
bool Run::TakeSome(Descriptor& end, std::string& text) {
    std::array<char, 65536> buffer{};
    const ssize_t count = read(end.Number(), buffer.data(), buffer.size());
    if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

void Run::FollowTerminal() {
    while (_step < _options.terminal.size()) {
        const TerminalStep& step = _options.terminal[_step];
        const std::size_t found = _result.terminal.find(step.expect, _seen);
        if (found == std::string::npos) return;
        _seen = found + step.expect.size();
        ++_step;
        if (step.beforeTyping) step.beforeTyping(_child);
        static_cast<void>(!write(_terminal.Number(), step.type.data(), step.type.size()));
    }
}

void Run::Follow(OutputStep& step, const std::string& text) const {
    if (!step.call || text.find(step.expect) == std::string::npos) return;
    std::exchange(step.call, nullptr)(_child);
}

// False when all that can come has come.
bool Run::TalkOnce() {
    std::vector<pollfd> waits;
    for (const Descriptor* end : {&_output, &_errors, &_terminal}) waits.push_back({end->Number(), POLLIN, 0});
    for (const Feed& feed : _feeds) waits.push_back({feed.end.Number(), POLLOUT, 0});
    if (waits[0].fd < 0 && waits[1].fd < 0) return false;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(_begin + _options.limit - Clock::now());
    if (left.count() <= 0 || poll(waits.data(), waits.size(), static_cast<int>(left.count())) == 0) {
        _result.limitReached = true;
        kill(_child, SIGKILL);
        return false;
    }
    if (waits[0].revents != 0 && !TakeSome(_output, _result.output)) _output.Close();
    if (waits[1].revents != 0 && !TakeSome(_errors, _result.errors)) _errors.Close();
    if (waits[2].revents != 0 && !TakeSome(_terminal, _result.terminal)) _terminal.Close();
    if (_terminal.Number() >= 0) FollowTerminal();
    Follow(_onOutput, _result.output);
    Follow(_onErrors, _result.errors);
    for (std::size_t index = 0; index < _feeds.size(); ++index) {
        if (waits[3 + index].revents != 0) FeedSome(_feeds[index]);
    }
    return true;
}

void Run::Talk() {
    for (Feed& feed : _feeds) {
        if (feed.rest.empty()) feed.end.Close();
    }
    while (TalkOnce()) {
    }
    if (_terminal.Number() < 0) return;
    fcntl(_terminal.Number(), F_SETFL, O_NONBLOCK);
    while (TakeSome(_terminal, _result.terminal)) {
    }
}

void Run::Finish() {
    int status = 0;
    while (waitpid(_child, &status, 0) < 0 && errno == EINTR) {
    }
    _result.took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _begin);
    if (WIFEXITED(status)) _result.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) _result.signal = WTERMSIG(status);
}

ProgramResult Run::Go() {
    signal(SIGPIPE, SIG_IGN);
    Start();
    Talk();
    Finish();
    return _result;
}

}  // namespace

void PrintTo(const ProgramResult& result, std::ostream* stream) {
    *stream << "exit status " << result.exitStatus << ", signal " << result.signal
            << (result.limitReached ? ", killed for its time" : "") << "\nstdout: " << result.output
            << "\nstderr: " << result.errors << "\nterminal: " << result.terminal;
}

ProgramResult RunProgram(const std::string& path, const ProgramOptions& options) { return Run(path, options).Go(); }

}  // namespace nimbrel::testing
