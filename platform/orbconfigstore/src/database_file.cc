#include "database_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>

#include "schema.h"
#include "unique_fd.h"

namespace OrbConfigStore {
namespace {

constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0755;

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// 0 for a missing file.
std::int64_t SizeOf(const std::string& path, const Activity& activity) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0) return status.st_size;
    const int error = errno;
    if (error != ENOENT) activity.FailWithSystemError(error);
    return 0;
}

void SyncFolder(const std::string& folder, const Activity& activity) {
    const UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.Get() < 0 || fsync(fd.Get()) != 0) activity.FailWithSystemError(errno);
}

void CreateFolder(const std::string& folder, const Activity& activity) {
    if (mkdir(folder.c_str(), kFolderMode) != 0) {
        const int error = errno;
        if (error == EEXIST) return;
        activity.FailWithSystemError(error);
    }
    // The process's umask must not lock other components of the host out.
    if (chmod(folder.c_str(), kFolderMode) != 0) activity.FailWithSystemError(errno);
    SyncFolder(FolderOf(folder), activity);
}

constexpr char kNewMark[] = ".new.";
constexpr std::size_t kRandomLetters = 6;

// The file and what SQLite may have left beside it. Asks for no memory: it is called where none may be left.
void RemoveWithCompanions(const std::string& name) noexcept {
    char path[PATH_MAX];
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
        const int length = std::snprintf(path, sizeof path, "%s%s", name.c_str(), suffix);
        if (length > 0 && static_cast<std::size_t>(length) < sizeof path) unlink(path);
    }
}

bool Lock(const UniqueFd& fd) { return flock(fd.Get(), LOCK_EX | LOCK_NB) == 0; }

bool HasName(const UniqueFd& fd) {
    struct stat status = {};
    return fstat(fd.Get(), &status) != 0 || status.st_nlink > 0;
}

// What processes left that were killed while they made a store. Who makes one holds a lock on its new file, so a file
// that can be locked is nobody's. What cannot be removed stays.
void RemoveAbandonedFiles(const std::string& path) {
    const std::string prefix = path + kNewMark;
    struct Close {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    const std::unique_ptr<DIR, Close> folder(opendir(FolderOf(path).c_str()));
    std::set<std::string> names;
    for (const dirent* entry = nullptr; folder != nullptr && (entry = readdir(folder.get())) != nullptr;) {
        const std::string name = FolderOf(path) + "/" + entry->d_name;
        if (name.compare(0, prefix.size(), prefix) == 0) names.insert(name.substr(0, prefix.size() + kRandomLetters));
    }
    for (const std::string& name : names) {
        const UniqueFd fd(open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        const bool isMissing = fd.Get() < 0 && errno == ENOENT;  // and has companions that were left alone
        if (isMissing || (fd.Get() >= 0 && Lock(fd))) RemoveWithCompanions(name);
    }
}

// A new file of a name of its own that goes away with this object, along with what SQLite may have left beside it.
class TemporaryFile {
 public:
    TemporaryFile(const std::string& path, const Activity& activity) : _path(path), _fd(MakeLocked(activity)) {
        if (fchmod(_fd.Get(), kFileMode) == 0) return;
        const int error = errno;
        RemoveWithCompanions(_name);  // the destructor of a half-made object does not run
        activity.FailWithSystemError(error);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { RemoveWithCompanions(_name); }

    const std::string& Name() const { return _name; }

 private:
    // Between the making and the lock somebody may have taken the file for an abandoned one. A file system without
    // locks keeps what is abandoned.
    UniqueFd MakeLocked(const Activity& activity) {
        for (;;) {
            _name = _path + kNewMark + std::string(kRandomLetters, 'X');
            UniqueFd fd(mkostemp(_name.data(), O_CLOEXEC));
            if (fd.Get() < 0) activity.FailWithSystemError(errno);
            const bool isMine = Lock(fd) || errno != EWOULDBLOCK;
            if (isMine && HasName(fd)) return fd;
        }
    }

    const std::string _path;
    std::string _name;
    const UniqueFd _fd;  // holds the lock
};

// SQLite would play the changes of a store that is gone into the next one of its name.
void RefuseLogWithoutStore(const std::string& path, const Activity& activity) {
    for (const char* suffix : {"-wal", "-journal"}) {
        const std::string log = path + suffix;
        // Another process may just have made the store, and be writing to it.
        if (SizeOf(log, activity) == 0 || access(path.c_str(), F_OK) == 0) continue;
        activity.Fail("the file is gone, and " + log +
                      " holds changes of it; put the file back beside it, or remove that one, too");
    }
}

}  // namespace

std::string ResolveFolder(const std::string& path, const Activity& activity) {
    struct Free {
        void operator()(char* text) const { std::free(text); }
    };
    const std::unique_ptr<char, Free> folder(realpath(FolderOf(path).c_str(), nullptr));
    if (folder == nullptr) {
        const int error = errno;
        if (error == ENOENT) return path;
        activity.FailWithSystemError(error);
    }
    return std::string(folder.get()) + "/" + path.substr(path.rfind('/') + 1);
}

bool CheckDatabaseFile(const std::string& path, const Activity& activity) {
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.Get() < 0) {
        const int error = errno;
        if (error == ENOENT) {
            RefuseLogWithoutStore(path, activity);
            return false;
        }
        if (error == ELOOP) activity.Fail("the file is a symbolic link");
        activity.FailWithSystemError(error);
    }
    struct stat status = {};
    if (fstat(fd.Get(), &status) != 0) activity.FailWithSystemError(errno);
    if (!S_ISREG(status.st_mode)) activity.Fail("it is not a regular file");
    if (status.st_size == 0) activity.Fail("the file is empty, its contents were lost; restore it or remove it");
    if ((status.st_mode & 077) != 0 && fchmod(fd.Get(), kFileMode) != 0) activity.FailWithSystemError(errno);
    // Its maker has not taken the first name away yet, or was killed before it could.
    if (status.st_nlink > 1) RemoveAbandonedFiles(path);
    return true;
}

void CheckWholePages(Database& database, const std::string& path, const Activity& activity) {
    const std::int64_t pageSize = database.QueryNumber("PRAGMA page_size");
    if (SizeOf(path, activity) % pageSize == 0 || SizeOf(path + "-wal", activity) > 0) return;
    activity.Fail("the file ends in the middle of a page, it was cut off");
}

void CreateDatabaseFile(const std::string& path, const Activity& activity) {
    CreateFolder(FolderOf(path), activity);
    const std::string resolved = ResolveFolder(path, activity);
    RemoveAbandonedFiles(resolved);
    const TemporaryFile temporary(resolved, activity);
    {
        Database database(temporary.Name(), activity);
        CreateSchema(database);
    }
    if (link(temporary.Name().c_str(), resolved.c_str()) != 0) {
        const int error = errno;
        if (error != EEXIST) activity.FailWithSystemError(error);
    }
    SyncFolder(FolderOf(resolved), activity);
}

}  // namespace OrbConfigStore
