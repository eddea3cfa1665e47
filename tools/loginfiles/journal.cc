#include "tools/loginfiles/journal.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/numbers.h"
#include "tools/loginfiles/record_text.h"

namespace nimbrel::logins {
namespace {

namespace fs = std::filesystem;

// As many changes are remembered. Older ones go when a new one is recorded.
constexpr std::size_t kKept = 50;

void MakeFolder(const std::string& path, mode_t mode) {
    const bool made = mkdir(path.c_str(), mode) == 0;
    int error = errno;
    if (!made && error == EEXIST) return;
    const bool moded = made && chmod(path.c_str(), mode) == 0;  // the umask may have taken rights
    if (made) error = errno;
    if (!moded) ThrowSystemError("make the folder", path, error);
    SyncFolder(FolderOf(path));
}

// The copy of `path` below `tree`, with every folder on the way.
std::string PlaceBelow(const std::string& tree, const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        MakeFolder(tree + path.substr(0, slash), 0755);
    }
    return tree + path;
}

// The folders on the way to a new file. They stay when the file goes again.
void MakeFoldersFor(const std::string& path) { static_cast<void>(PlaceBelow("", path)); }

void Keep(const std::string& tree, const std::string& path, const FileState& state) {
    if (state.kind == FileState::Kind::Absent) return;
    const std::string place = PlaceBelow(tree, path);
    Stage(place, 0, state);
    Replace(place, 0, state);
}

// 0 for a name that is no change's.
int IdOf(const std::string& name) { return std::max(WholeNumber<int>(name).value_or(0), 0); }

// None in a folder that is not there. Without std::filesystem, whose iterators end the process when memory runs out.
std::vector<std::string> Names(const std::string& folder) {
    struct Close {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    std::vector<std::string> names;
    const std::unique_ptr<DIR, Close> stream(opendir(folder.c_str()));
    int error = errno;
    if (stream == nullptr && (error == ENOENT || error == ENOTDIR)) return names;
    if (stream == nullptr) ThrowSystemError("open the folder", folder, error);
    for (errno = 0; const dirent* const entry = readdir(stream.get()); errno = 0) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    error = errno;
    if (error != 0) ThrowSystemError("read the folder", folder, error);
    return names;
}

void RemoveTree(const std::string& path) {
    std::error_code ignored;  // what stays behind is removed by a later call
    fs::remove_all(path, ignored);
}

bool IsFinal(Progress progress) {
    return progress == Progress::Confirmed || progress == Progress::Restored || progress == Progress::Undone;
}

// Of an entry that cannot be read as a whole.
bool IsOver(const std::string& folder) {
    try {
        Entry entry;
        ParseState(ReadWhole(folder + "/state"), entry);
        return IsFinal(entry.progress);
    } catch (const LoginsError&) {
        return false;
    }
}

// While it lives, a closed terminal, Ctrl-C or a service manager that ends the process waits until its work is whole.
class EndingHeld {
 public:
    EndingHeld() {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&ending, signal);
        pthread_sigmask(SIG_BLOCK, &ending, &_before);
    }
    EndingHeld(const EndingHeld&) = delete;
    EndingHeld& operator=(const EndingHeld&) = delete;
    ~EndingHeld() { pthread_sigmask(SIG_SETMASK, &_before, nullptr); }

 private:
    sigset_t _before;
};

void UnstageAll(const std::vector<Change>& changes, int id, Prepared which) {
    for (const Change& change : changes) Unstage(change.path, id, which);
}

// What the file was before lies beside it, unless somebody has been there.
bool IsPrepared(const Change& change, int id) {
    try {
        return ReadLinkedState(StagedName(change.path, id, Prepared::Before)) == change.before;
    } catch (const LoginsError&) {
        return false;
    }
}

// Empty if the change may stay as it is.
std::string ReasonToTakeBack(const Entry& entry) {
    if (entry.progress == Progress::Applying) return "the tool was interrupted";
    if (entry.progress == Progress::Restoring) return entry.reason;
    const bool overdue = entry.progress == Progress::Applied && IsOverdue(entry.record);
    return overdue ? "nobody confirmed it in time" : "";
}

[[noreturn]] void ThrowChanged(const std::string& path) {
    throw LoginsError(LoginsError::Kind::Changed, "'" + path + "' has been changed by somebody else in the meantime",
                      "look at it, then run the command again");
}

}  // namespace

Journal::Journal(std::string folder) : _folder(std::move(folder)) {}

void Journal::Lock() {
    if (_lock) return;
    MakeFolder(FolderOf(_folder), 0755);
    MakeFolder(_folder, 0700);
    const std::string path = _folder + "/lock";
    kit::Descriptor lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    int error = errno;
    if (!lock) ThrowSystemError("open", path, error);
    const bool moded = fchmod(lock.Number(), 0600) == 0;  // the umask may have taken rights
    error = errno;
    if (!moded) ThrowSystemError("open", path, error);
    int locked = 0;
    do {
        locked = flock(lock.Number(), LOCK_EX);
        error = errno;
    } while (locked != 0 && error == EINTR);
    if (locked != 0) ThrowSystemError("lock", path, error);
    _lock = std::move(lock);
}

std::string Journal::EntryFolder(int id) const { return _folder + '/' + std::to_string(id); }

std::optional<Entry> Journal::Find(int id) const {
    const std::string folder = EntryFolder(id);
    const bool isThere = access((folder + "/record").c_str(), F_OK) == 0;
    const int error = errno;
    if (!isThere && (error == ENOENT || error == ENOTDIR)) return std::nullopt;
    if (!isThere) ThrowSystemError("look at", folder, error);
    Entry entry;
    entry.record = ParseRecord(ReadWhole(folder + "/record"));
    entry.record.id = id;
    for (Change& change : entry.record.changes) {
        change.before = ReadLinkedState(folder + "/before" + change.path);
        change.after = ReadLinkedState(folder + "/after" + change.path);
    }
    ParseState(ReadWhole(folder + "/state"), entry);
    return entry;
}

std::vector<int> Journal::Ids() const {
    std::vector<int> ids;
    for (const std::string& name : Names(_folder)) {
        if (IdOf(name) > 0) ids.push_back(IdOf(name));
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

std::vector<Entry> Journal::Entries() const {
    const std::vector<Damage> damages = Damages();
    if (damages.empty()) return ReadableEntries();
    Refuse(damages.front());
}

void Journal::Refuse(const Damage& damage) const {
    throw LoginsError(
        LoginsError::Kind::System, "change " + std::to_string(damage.id) + " cannot be read: " + damage.reason,
        "once none of its files is needed any more: mv " + EntryFolder(damage.id) + " " + _folder + "/damaged");
}

std::vector<Entry> Journal::ReadableEntries() const {
    std::vector<Entry> entries;
    for (const int id : Ids()) {
        try {
            if (std::optional<Entry> entry = Find(id)) entries.push_back(std::move(*entry));
        } catch (const LoginsError&) {
            continue;  // `Damages` tells of it
        }
    }
    return entries;
}

std::vector<Damage> Journal::Damages() const {
    std::vector<Damage> damages;
    for (const int id : Ids()) {
        try {
            Find(id);
        } catch (const LoginsError& error) {
            damages.push_back({id, error.what(), IsOver(EntryFolder(id))});
        }
    }
    return damages;
}

std::optional<Entry> Journal::Waiting() const {
    for (Entry& entry : ReadableEntries()) {
        if (entry.progress == Progress::Applied) return std::move(entry);
    }
    return std::nullopt;
}

int Journal::NextId() const {
    const std::vector<int> ids = Ids();
    return ids.empty() ? 1 : ids.back() + 1;
}

// Built under another name, so that an entry is there whole or not at all.
void Journal::Create(Record& record) {
    record.id = NextId();
    record.started = std::time(nullptr);
    const std::string built = _folder + "/new-" + std::to_string(record.id);
    MakeFolder(built, 0700);
    for (const char* const tree : {"/before", "/after"}) MakeFolder(built + tree, 0700);
    for (const Change& change : record.changes) {
        Keep(built + "/before", change.path, change.before);
        Keep(built + "/after", change.path, change.after);
    }
    WriteDurably(built + "/record", RecordText(record));
    WriteDurably(built + "/state", StateText(Progress::Applying, ""));
    SyncFolder(built);
    const bool renamed = std::rename(built.c_str(), EntryFolder(record.id).c_str()) == 0;
    const int error = errno;
    if (!renamed) ThrowSystemError("record the change in", EntryFolder(record.id), error);
    SyncFolder(_folder);
}

void Journal::SetProgress(int id, Progress progress, const std::string& reason) {
    const std::string folder = EntryFolder(id);
    const std::string path = folder + "/state";
    const std::string next = path + ".new";
    std::string line = reason;
    std::replace(line.begin(), line.end(), '\n', ' ');
    WriteDurably(next, StateText(progress, line));
    const bool renamed = std::rename(next.c_str(), path.c_str()) == 0;
    const int error = errno;
    if (!renamed) ThrowSystemError("write", path, error);
    SyncFolder(folder);  // asks for no memory: the progress is made
}

void Journal::ReplaceAll(const Record& record) {
    // All that needs room or rights comes before the first file changes, also what going back would need.
    for (const Change& change : record.changes) {
        if (change.after.kind != FileState::Kind::Absent) MakeFoldersFor(change.path);
        for (const Prepared which : {Prepared::After, Prepared::Before}) {
            Unstage(change.path, record.id, which);  // of a journal that is gone
            Stage(change.path, record.id, which == Prepared::After ? change.after : change.before, which);
        }
    }
    for (const Change& change : record.changes) {
        if (ReadState(change.path) != change.before) ThrowChanged(change.path);
        Replace(change.path, record.id, change.after);
    }
}

int Journal::Apply(Record record, const std::function<void(int)>& armed) {
    Lock();
    for (const Change& change : record.changes) {
        if (ReadState(change.path) != change.before) ThrowChanged(change.path);
    }
    Prune();
    try {
        Create(record);
    } catch (...) {
        RemoveLeftovers();  // compensated: a full disk gets its room back
        throw;
    }
    std::optional<EndingHeld> held;
    try {
        armed(record.id);
        held.emplace();
        ReplaceAll(record);
        SetProgress(record.id, record.deadline == 0 ? Progress::Confirmed : Progress::Applied);
    } catch (const std::exception& error) {
        Compensate(record, error.what());
        throw;
    }
    if (record.deadline == 0) UnstageAll(record.changes, record.id, Prepared::Before);
    if (record.undoes != 0) {
        // The change stands whether this can be written or not; else the next call marks it.
        SetProgressIfPossible(record.undoes, Progress::Undone, "");
        UnstageAll(record.changes, record.undoes, Prepared::Before);
    }
    return record.id;
}

// All or nothing. Where a full disk takes not even the record of that, the next call finds every file as it was.
void Journal::Compensate(const Record& record, const std::string& reason) try {
    SetProgressIfPossible(record.id, Progress::Restored, PutAllBack(record, reason));
} catch (const LoginsError& error) {
    throw LoginsError(LoginsError::Kind::System,
                      reason + "; and then the files could not all be put back: " + error.what(),
                      "remove what is in the way; the next 'nimauthctl logins show' puts the rest back. The files as "
                      "they were are in " +
                          EntryFolder(record.id) + "/before");
}

// False if the file is somebody else's by now.
bool Journal::PutBack(const Change& change, int id) {
    const FileState now = ReadLinkedState(change.path);
    if (now == change.before) return true;
    if (!SameContent(now, change.after)) return SameContent(now, change.before);
    if (!IsPrepared(change, id)) {
        Unstage(change.path, id, Prepared::Before);
        Stage(change.path, id, change.before, Prepared::Before);
    }
    Replace(change.path, id, change.before, Prepared::Before);
    return true;
}

// What needs room comes last, and one file does not keep the others from going back. Returns the reason, with the files
// that were left alone.
std::string Journal::PutAllBack(const Record& record, const std::string& reason) {
    const EndingHeld held;
    UnstageAll(record.changes, record.id, Prepared::After);
    SetProgressIfPossible(record.id, Progress::Restoring, reason);
    std::string left;
    std::optional<LoginsError> failure;
    for (auto change = record.changes.rbegin(); change != record.changes.rend(); ++change) {
        try {
            if (PutBack(*change, record.id)) continue;
        } catch (const LoginsError& error) {
            if (error.Reason() != LoginsError::Kind::Refused) {
                if (!failure) failure = error;
                continue;
            }
        }
        left += (left.empty() ? "; changed by somebody else and left alone: " : ", ") + change->path;
    }
    if (failure) throw LoginsError(*failure);
    UnstageAll(record.changes, record.id, Prepared::Before);
    return reason + left;
}

std::vector<Entry> Journal::Recover() {
    if (!_lock && access(_folder.c_str(), F_OK) != 0) return {};
    Lock();
    RemoveLeftovers();
    MarkUndone();
    std::vector<Entry> recovered;
    const std::vector<Entry> entries = ReadableEntries();
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        const std::string reason = ReasonToTakeBack(*entry);
        if (reason.empty()) {
            if (IsFinal(entry->progress)) UnstageAll(entry->record.changes, entry->record.id, Prepared::Before);
            continue;
        }
        SetProgress(entry->record.id, Progress::Restored, PutAllBack(entry->record, reason));
        recovered.push_back(*Find(entry->record.id));
    }
    return recovered;
}

void Journal::SetProgressIfPossible(int id, Progress progress, const std::string& reason) noexcept try {
    SetProgress(id, progress, reason);
} catch (const std::exception&) {
    return;
}

// A crash may have come between the last file of an undo and the mark on what it undid.
void Journal::MarkUndone() {
    const std::vector<Entry> entries = ReadableEntries();
    for (const Entry& entry : entries) {
        const bool stands = entry.progress == Progress::Applied || entry.progress == Progress::Confirmed;
        if (!stands || entry.record.undoes == 0) continue;
        const auto undone = std::find_if(entries.begin(), entries.end(), [&](const Entry& other) {
            return other.record.id == entry.record.undoes && other.progress != Progress::Undone;
        });
        if (undone != entries.end()) SetProgress(undone->record.id, Progress::Undone);
    }
}

void Journal::Confirm(int id) {
    Lock();
    const std::optional<Entry> entry = Find(id);
    SetProgress(id, Progress::Confirmed);
    if (entry) UnstageAll(entry->record.changes, id, Prepared::Before);
}

std::string Journal::MakeCandidateFolder() const {
    std::string path = _folder + "/candidate-XXXXXX";
    const bool made = mkdtemp(path.data()) != nullptr;
    const int error = errno;
    if (!made) ThrowSystemError("make the folder", path, error);
    return path;
}

void Journal::RemoveLeftovers() {
    for (const std::string& name : Names(_folder)) {
        if (name.starts_with("new-") || name.starts_with("candidate-")) RemoveTree(_folder + '/' + name);
    }
}

void Journal::Prune() {
    const std::vector<int> ids = Ids();
    for (std::size_t index = 0; index + kKept <= ids.size(); ++index) {
        // Under a name that says so first: an entry is there whole or not at all.
        const std::string folder = EntryFolder(ids[index]);
        if (std::rename(folder.c_str(), (_folder + "/new-pruned").c_str()) == 0) RemoveTree(_folder + "/new-pruned");
    }
}

std::string Journal::BootId() {
    std::string id = ReadWhole("/proc/sys/kernel/random/boot_id");
    while (id.ends_with('\n')) id.pop_back();
    return id;
}

std::int64_t Journal::MillisecondsSinceBoot() {
    struct timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

namespace {

// Where /proc is not there, as in the root of a rescue system, it is another boot than the change's.
bool IsOfThisBoot(const Record& record) {
    try {
        return record.bootId == Journal::BootId();
    } catch (const LoginsError&) {
        return false;
    }
}

}  // namespace

bool IsOverdue(const Record& record) {
    if (record.deadline == 0) return false;
    return !IsOfThisBoot(record) || Journal::MillisecondsSinceBoot() >= record.deadline;
}

}  // namespace nimbrel::logins
