#include "crash/run.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <typeinfo>

#include "crash/allocations.h"
#include "support/leave_child.h"
#include "support/traced_child.h"

namespace nimbrel::crash {
namespace {

constexpr unsigned kSecondsForARun = 60;
constexpr int kLastDescriptor = 63;

// Calls without an effect that the tracer recognises by an argument that nobody else gives.
constexpr long kBegin = 0x6e696d01;
constexpr long kEnd = 0x6e696d02;
void Mark(long mark) { syscall(SYS_getppid, mark); }
bool IsMark(const __ptrace_syscall_info& info, long mark) {
    return info.op == PTRACE_SYSCALL_INFO_ENTRY && info.entry.nr == SYS_getppid &&
           info.entry.args[0] == static_cast<std::uint64_t>(mark);
}

std::vector<bool> OpenDescriptors() {
    std::vector<bool> open;
    for (int fd = 0; fd <= kLastDescriptor; ++fd) open.push_back(fcntl(fd, F_GETFD) >= 0);
    return open;
}

std::string NewDescriptors(const std::vector<bool>& before) {
    std::string names;
    const std::vector<bool> now = OpenDescriptors();
    for (std::size_t fd = 0; fd < now.size(); ++fd) {
        if (!now[fd] || before[fd]) continue;
        std::error_code error;
        names += " " + std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error).string();
    }
    return names;
}

std::string ClassOf(const std::exception& error) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, &status), std::free);
    return name == nullptr ? typeid(error).name() : name.get();
}

// The allocations fail no longer than the call lasts.
Attempt Try(const Operation& operation, const std::function<void()>& call, long& allocations) {
    try {
        call();
        allocations = StopAllocations();
        return {.succeeded = true};
    } catch (const std::bad_alloc& error) {
        allocations = StopAllocations();
        return {.outOfMemory = true, .error = ClassOf(error)};
    } catch (const std::exception& error) {
        allocations = StopAllocations();
        return {.documented = operation.isDocumented(error), .error = ClassOf(error) + ": " + error.what()};
    } catch (...) {
        allocations = StopAllocations();
        return {.error = "something that is no std::exception"};
    }
}

std::string TextOf(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) return "killed by signal " + std::to_string(WTERMSIG(waitStatus));
    return WEXITSTATUS(waitStatus) == 0 ? "exited" : "exited with " + std::to_string(WEXITSTATUS(waitStatus));
}

// Runs on to the next call of the operation. False at its end.
bool NextCall(TracedChild& child, __ptrace_syscall_info& info) {
    while (child.Next(info)) {
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) return !IsMark(info, kEnd);
    }
    return false;
}

void RunToTheBegin(TracedChild& child) {
    child.StopAtSystemCalls();
    for (__ptrace_syscall_info info{}; child.Next(info) && !IsMark(info, kBegin);) {
    }
}

// Runs on to the entry into the call; false if the operation ends before.
bool RunTo(TracedChild& child, const Call& call) {
    RunToTheBegin(child);
    __ptrace_syscall_info info{};
    for (int occurrence = 0; NextCall(child, info);) {
        if (info.entry.nr == call.number && ++occurrence == call.occurrence) return true;
    }
    return false;
}

// To give a lock back never fails.
bool TakesLock(TracedChild& child, const __ptrace_syscall_info& info) {
    if (info.entry.nr != SYS_fcntl) return false;
    switch (info.entry.args[1]) {
        case F_SETLK:
        case F_SETLKW:
        case F_OFD_SETLK:
        case F_OFD_SETLKW:
            return static_cast<short>(child.Peek(info.entry.args[2])) != F_UNLCK;  // the first member tells
        default:
            return false;
    }
}

bool ChangesDisk(std::uint64_t number) {
    static const std::set<std::uint64_t> numbers = {
        SYS_write,   SYS_pwrite64, SYS_writev,    SYS_sendfile, SYS_fsync,  SYS_fdatasync, SYS_ftruncate, SYS_fallocate,
        SYS_rename,  SYS_renameat, SYS_renameat2, SYS_link,     SYS_linkat, SYS_symlink,   SYS_symlinkat, SYS_mkdir,
        SYS_mkdirat, SYS_unlink,   SYS_unlinkat,  SYS_rmdir,    SYS_chmod,  SYS_fchmod,    SYS_fchmodat};
    return numbers.contains(number);
}

bool Synchronises(std::uint64_t number) { return number == SYS_fsync || number == SYS_fdatasync; }

// As `RunTo`, or to the operation's end without a call. What it synchronises on the way is on the disk.
bool RunTo(TracedChild& child, const Call* call, Disk& disk) {
    RunToTheBegin(child);
    __ptrace_syscall_info info{};
    for (int occurrence = 0; NextCall(child, info);) {
        if (call != nullptr && info.entry.nr == call->number && ++occurrence == call->occurrence) return true;
        if (!Synchronises(info.entry.nr)) continue;
        const int descriptor = static_cast<int>(info.entry.args[0]);
        if (child.Next(info) && info.exit.rval == 0) disk.Synchronise(child.Process(), descriptor);
    }
    return call == nullptr;
}

Call Describe(TracedChild& child, const __ptrace_syscall_info& info, int occurrence) {
    const bool creates = info.entry.nr == SYS_openat && (info.entry.args[2] & O_CREAT) != 0;
    return {info.entry.nr, occurrence, TakesLock(child, info), creates, creates || ChangesDisk(info.entry.nr)};
}

}  // namespace

Runner::Runner(const Operation& operation) : _operation(operation) {
    for (const auto& folder : operation.folders) {
        if (!std::filesystem::is_empty(folder))
            throw std::runtime_error(folder + " is not empty, and would be emptied");
    }
    operation.prepare();
    _old.emplace(operation.folders);
}

Runner::~Runner() { EmptyFolders(_operation.folders); }

void Runner::Restore() {
    _old->Restore();
    _shared.Clear();
}

Observation Runner::Observe() const {
    Parts parts;
    try {
        parts = _operation.read();
    } catch (const std::exception& error) {
        parts = {{"unreadable", error.what()}};
    }
    return {std::move(parts), AttributesBelow(_operation.folders)};
}

void Runner::LookAndGoOn(Report& report) {
    report.between = Observe();
    long ignored = 0;
    report.next = Try(_operation, _operation.next ? _operation.next : _operation.run, ignored);
    report.end = Observe();
    _shared.Put(report);
    LeaveChild(0);
}

void Runner::RunMarked(long failingAllocation, bool onwards) {
    Report report;
    alarm(kSecondsForARun);
    const std::vector<bool> before = OpenDescriptors();
    Mark(kBegin);
    crash::FailAllocation(failingAllocation, onwards);
    report.attempt = Try(_operation, _operation.run, report.allocations);
    Mark(kEnd);
    report.leaked = NewDescriptors(before);
    LookAndGoOn(report);
}

template <typename Work>
Ending Runner::InChild(Work work) {
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) work();
    int status = 0;
    waitpid(child, &status, 0);
    return {TextOf(status), true, _shared.Take()};
}

Observation Runner::Look() {
    Restore();
    const Ending ending = InChild([this] {
        Report report;
        report.between = Observe();
        _shared.Put(report);
        LeaveChild(0);
    });
    if (!ending.report) throw std::runtime_error("the old state cannot be looked at");
    return ending.report->between;
}

Ending Runner::Run() {
    Restore();
    return InChild([this] { RunMarked(0, false); });
}

std::vector<Call> Runner::Calls() {
    Restore();
    TracedChild child([this] { RunMarked(0, false); });
    RunToTheBegin(child);
    std::vector<Call> calls;
    std::map<std::uint64_t, int> counts;
    for (__ptrace_syscall_info info{}; NextCall(child, info);) {
        calls.push_back(Describe(child, info, ++counts[info.entry.nr]));
    }
    return calls;
}

Ending Runner::RunToTheEnd(TracedChild& child, bool reached) {
    const int status = child.RunOn();
    return {TextOf(status), reached, _shared.Take()};
}

Ending Runner::KillAt(const Call& call) {
    Restore();
    {
        TracedChild child([this] { RunMarked(0, false); });
        if (!RunTo(child, call)) return RunToTheEnd(child, false);
        child.Kill();
    }
    return LookAfterwards();
}

Ending Runner::CutPowerAt(const Call* call, Loss loss) {
    Restore();
    Disk disk(_operation.folders);
    {
        TracedChild child([this] { RunMarked(0, false); });
        if (!RunTo(child, call, disk)) return RunToTheEnd(child, false);
        child.Kill();
    }
    disk.CutPower(loss);
    return LookAfterwards();
}

Ending Runner::LookAfterwards() {
    return InChild([this] {
        Report report;
        alarm(kSecondsForARun);
        LookAndGoOn(report);
    });
}

Ending Runner::FailCall(const Call& call, int error) {
    Restore();
    TracedChild child([this] { RunMarked(0, false); });
    const bool reached = RunTo(child, call);
    if (reached) child.Fail(error);
    return RunToTheEnd(child, reached);
}

Ending Runner::FailAllocation(long number, bool onwards) {
    Restore();
    return InChild([=, this] { RunMarked(number, onwards); });
}

}  // namespace nimbrel::crash
