#include "crash/sweep.h"

#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <stdexcept>
#include <system_error>

#include "crash/run.h"

namespace nimbrel::crash {
namespace {

constexpr std::size_t kViolationsShown = 8;

// What each call can fail with. A call that is not named here cannot fail so, or nobody could do anything about it.
const std::map<std::uint64_t, std::vector<int>>& ErrorsOfCalls() {
    static const std::vector<int> byName = {EACCES, EIO, ENOMEM};
    static const std::vector<int> newName = {EACCES, EIO, ENOMEM, ENOSPC};
    static const std::vector<int> content = {EIO, EINTR, ENOSPC};
    static const std::map<std::uint64_t, std::vector<int>> errors = {
        {SYS_open, {EACCES, EMFILE, EIO, EINTR, ENOMEM}},
        {SYS_openat, {EACCES, EMFILE, EIO, EINTR, ENOMEM}},
        {SYS_read, {EIO, EINTR}},
        {SYS_pread64, {EIO, EINTR}},
        {SYS_readv, {EIO, EINTR}},
        {SYS_write, content},
        {SYS_pwrite64, content},
        {SYS_writev, content},
        {SYS_sendfile, {EIO, ENOMEM}},
        {SYS_fsync, content},
        {SYS_fdatasync, content},
        {SYS_ftruncate, {EIO, EINTR, EACCES}},
        {SYS_fallocate, content},
        {SYS_close, content},
        {SYS_dup, {EMFILE}},
        {SYS_stat, byName},
        {SYS_lstat, byName},
        {SYS_newfstatat, byName},
        {SYS_statx, byName},
        {SYS_access, byName},
        {SYS_faccessat, byName},
        {SYS_faccessat2, byName},
        {SYS_readlink, byName},
        {SYS_readlinkat, byName},
        {SYS_chdir, byName},
        {SYS_fstat, {EIO, ENOMEM}},
        {SYS_statfs, byName},
        {SYS_fstatfs, {EIO, ENOMEM, EINTR}},
        {SYS_getdents64, {EIO, ENOMEM}},
        {SYS_rename, newName},
        {SYS_renameat, newName},
        {SYS_renameat2, newName},
        {SYS_link, newName},
        {SYS_linkat, newName},
        {SYS_symlink, newName},
        {SYS_mkdir, newName},
        {SYS_mkdirat, newName},
        {SYS_unlink, byName},
        {SYS_unlinkat, byName},
        {SYS_rmdir, byName},
        {SYS_chmod, byName},
        {SYS_fchmod, {EIO, EACCES}},
        {SYS_fchmodat, byName},
        {SYS_chown, byName},
        {SYS_fchown, {EIO, EACCES}},
        {SYS_fgetxattr, {EIO, ENOMEM}},
        {SYS_flistxattr, {EIO, ENOMEM}},
        {SYS_fsetxattr, {EIO, ENOSPC, EACCES}},
        {SYS_utimensat, byName},
        {SYS_flock, {EINTR, ENOMEM}},
        {SYS_getrandom, {EINTR}},
#ifndef NIMAUTH_CRASH_SANITIZED  // a sanitizer that gets no memory ends the process
        {SYS_mmap, {ENOMEM}},
        {SYS_mremap, {ENOMEM}},
#endif
        {SYS_socket, {EMFILE, ENOMEM, EACCES}},
        {SYS_connect, {EACCES, EINTR}},
        {SYS_sendto, {EACCES, EINTR, ENOMEM}},
        {SYS_clock_nanosleep, {EINTR}},
    };
    return errors;
}

std::vector<int> ErrorsOf(const Call& call) {
    if (call.takesLock) return {EACCES, EINTR, EIO};
    const auto found = ErrorsOfCalls().find(call.number);
    if (found == ErrorsOfCalls().end()) return {};
    std::vector<int> errors = found->second;
    if (call.creates) errors.push_back(ENOSPC);
    return errors;
}

std::string TextOf(const Parts& parts) {
    std::string text;
    for (const auto& [name, value] : parts) text += "\n    " + name + ": " + value;
    return text;
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

// "100600 0:0", or a folder, whose files are looked at one by one.
bool IsOwnersAlone(const std::string& attributes) {
    return attributes[0] == '4' || attributes.find("00 ") != std::string::npos;
}

// What is compared with what, for one operation.
class Judge {
 public:
    Judge(const Operation& operation, Runner& runner) : _operation(operation), _old(runner.Look()) {
        const Ending ending = runner.Run();
        if (!ending.report || !ending.report->attempt.succeeded || !ending.report->next.succeeded) {
            throw std::runtime_error(operation.name + ": undisturbed, it " + ending.how + " " +
                                     (ending.report ? ending.report->attempt.error + ending.report->next.error : ""));
        }
        _new = ending.report->between;
        _allocations = ending.report->allocations;
        CheckEnd("undisturbed", *ending.report);
        if (_old.parts == _new.parts) throw std::runtime_error(operation.name + " changes nothing");
    }

    long Allocations() const { return _allocations; }
    std::vector<std::string> Violations() const { return _violations; }
    bool HasSeenEnough() const { return _violations.size() >= kViolationsShown; }

    void AfterAKill(const std::string& point, const Ending& ending) {
        if (!HasReport(point, ending)) return;
        const Parts& parts = ending.report->between.parts;
        if (_operation.killedPartByPart) {
            Check(IsPartByPartOldOrNew(parts), point, "a part is neither old nor new:" + TextOf(parts));
        } else {
            Check(parts == _old.parts || parts == _new.parts, point,
                  "the state is neither old nor new:" + TextOf(parts));
        }
        CheckEnd(point, *ending.report);
    }

    // Whatever the operation has told its caller is on the disk.
    void AfterItsEnd(const std::string& point, const Ending& ending) {
        if (!HasReport(point, ending)) return;
        const Parts& parts = ending.report->between.parts;
        Check(parts == _new.parts, point, "it had succeeded, and the state is not the new one:" + TextOf(parts));
        CheckEnd(point, *ending.report);
    }

    void AfterAFailure(const std::string& point, const Ending& ending, bool memoryRanOut, bool forGood = false) {
        if (!HasReport(point, ending)) return;
        const Report& report = *ending.report;
        const Parts& parts = report.between.parts;
        if (report.attempt.succeeded) {
            Check(parts == _new.parts, point, "it succeeded, and the state is not the new one:" + TextOf(parts));
        } else {
            Check(report.attempt.documented || (memoryRanOut && report.attempt.outOfMemory), point,
                  "it threw " + report.attempt.error);
            const bool allowed = parts == _old.parts || (parts == _new.parts && !_operation.throwsUnchanged) ||
                                 (MayBePartByPart(forGood) && IsPartByPartOldOrNew(parts));
            Check(allowed, point, "it threw " + report.attempt.error + ", and the state is:" + TextOf(parts));
        }
        Check(report.leaked.empty(), point, "it left open:" + report.leaked);
        CheckEnd(point, report);
    }

 private:
    bool HasReport(const std::string& point, const Ending& ending) {
        Check(ending.how == "exited" && ending.report, point, "the process was " + ending.how);
        return ending.report.has_value();
    }

    void Check(bool holds, const std::string& point, const std::string& violation) {
        if (!holds && !HasSeenEnough()) _violations.push_back(point + ": " + violation);
    }

    bool MayBePartByPart(bool exhaustedForGood) const {
        return _operation.throwsPartByPart || (exhaustedForGood && _operation.exhaustedPartByPart);
    }

    bool IsPartByPartOldOrNew(const Parts& parts) const {
        const auto has = [](const Parts& all, const auto& part) {
            const auto found = all.find(part.first);
            return found != all.end() && found->second == part.second;
        };
        return parts.size() == _new.parts.size() && std::all_of(parts.begin(), parts.end(), [&](const auto& part) {
                   return has(_old.parts, part) || has(_new.parts, part);
               });
    }

    // The attributes right after the point, and everything after the next call.
    void CheckEnd(const std::string& point, const Report& report) {
        for (const auto& [path, attributes] : report.between.attributes) CheckAttributes(point, path, attributes);
        Check(report.next.succeeded, point, "the next call threw " + report.next.error);
        Check(report.end.parts == _new.parts, point, "after the next call the state is:" + TextOf(report.end.parts));
        for (const auto& [path, attributes] : report.end.attributes) {
            CheckAttributes(point, path, attributes);
            const bool expected = _new.attributes.contains(path) || (_operation.mayStay && _operation.mayStay(path));
            Check(expected, point, "after the next call there still is " + path);
        }
    }

    void CheckAttributes(const std::string& point, const std::string& path, const std::string& attributes) {
        const auto is = [&](const Attributes& all) {
            const auto found = all.find(path);
            return found != all.end() && found->second == attributes;
        };
        const bool known = _old.attributes.contains(path) || _new.attributes.contains(path);
        const bool right = known ? is(_old.attributes) || is(_new.attributes) || is(_operation.furtherAttributes)
                                 : IsOwnersAlone(attributes) || HasNeighbour(path, attributes);
        Check(right, point, path + " has " + attributes);
    }

    // A file that belongs to neither state is on its way to be one that does.
    bool HasNeighbour(const std::string& path, const std::string& attributes) const {
        const auto is = [&](const auto& file) {
            return FolderOf(file.first) == FolderOf(path) && file.second == attributes;
        };
        return std::any_of(_old.attributes.begin(), _old.attributes.end(), is) ||
               std::any_of(_new.attributes.begin(), _new.attributes.end(), is);
    }

    const Operation& _operation;
    Observation _old;
    Observation _new;
    long _allocations = 0;
    std::vector<std::string> _violations;
};

std::string NameOf(const Call& call) {
    return "system call number " + std::to_string(call.number) + ", time " + std::to_string(call.occurrence);
}

std::string NameOf(Loss loss) {
    return loss == Loss::Bytes ? "bytes lost" : loss == Loss::Names ? "names lost" : "bytes and names lost";
}

}  // namespace

SweepResult KillAtEachCall(const Operation& operation, std::size_t stride) {
    Runner runner(operation);
    Judge judge(operation, runner);
    const std::vector<Call> calls = runner.Calls();
    SweepResult result = {.points = calls.size()};
    for (std::size_t index = 0; index < calls.size() && !judge.HasSeenEnough(); index += stride) {
        const Ending ending = runner.KillAt(calls[index]);
        judge.AfterAKill("killed at " + NameOf(calls[index]), ending);
        if (ending.reached) ++result.tried;
    }
    result.violations = judge.Violations();
    return result;
}

SweepResult CutPowerAtEachCall(const Operation& operation, std::size_t stride) {
    Runner runner(operation);
    Judge judge(operation, runner);
    std::vector<Call> calls = runner.Calls();
    std::erase_if(calls, [](const Call& call) { return !call.changesDisk; });
    SweepResult result = {.points = calls.size() + 1};
    for (const Loss loss : kLosses) {
        const std::string lost = NameOf(loss);
        judge.AfterItsEnd("power cut at the end, " + lost, runner.CutPowerAt(nullptr, loss));
        for (std::size_t index = 0; index < calls.size() && !judge.HasSeenEnough(); index += stride) {
            const Ending ending = runner.CutPowerAt(&calls[index], loss);
            judge.AfterAKill("power cut at " + NameOf(calls[index]) + ", " + lost, ending);
            if (ending.reached) ++result.tried;
        }
    }
    result.violations = judge.Violations();
    return result;
}

SweepResult FailEachCall(const Operation& operation, std::size_t stride) {
    Runner runner(operation);
    Judge judge(operation, runner);
    SweepResult result;
    for (const Call& call : runner.Calls()) {
        for (const int error : ErrorsOf(call)) {
            if (result.points++ % stride != 0 || judge.HasSeenEnough()) continue;
            const Ending ending = runner.FailCall(call, error);
            judge.AfterAFailure(NameOf(call) + ", " + std::generic_category().message(error), ending, error == ENOMEM);
            if (ending.reached) ++result.tried;
        }
    }
    result.violations = judge.Violations();
    return result;
}

SweepResult FailEachAllocation(const Operation& operation, std::size_t limit) {
    Runner runner(operation);
    Judge judge(operation, runner);
    const auto count = static_cast<std::size_t>(judge.Allocations());
    const std::size_t stride = (count + limit - 1) / limit;
    SweepResult result = {.points = 2 * count};
    for (std::size_t number = 1; number <= count && !judge.HasSeenEnough(); number += stride) {
        for (const bool onwards : {false, true}) {
            const std::string point = "allocation " + std::to_string(number) + (onwards ? " and all later ones" : "");
            judge.AfterAFailure(point, runner.FailAllocation(static_cast<long>(number), onwards), true, onwards);
            ++result.tried;
        }
    }
    result.violations = judge.Violations();
    return result;
}

}  // namespace nimbrel::crash
