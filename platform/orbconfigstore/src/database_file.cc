#include "database_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>

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

// A new file of a name of its own that goes away with this object, along with what SQLite may have left beside it.
class TemporaryFile {
 public:
    TemporaryFile(const std::string& path, const Activity& activity) : _name(path + ".new.XXXXXX") {
        const UniqueFd fd(mkostemp(_name.data(), O_CLOEXEC));
        if (fd.Get() < 0 || fchmod(fd.Get(), kFileMode) != 0) activity.FailWithSystemError(errno);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        for (const char* suffix : {"", "-journal", "-wal", "-shm"}) unlink((_name + suffix).c_str());
    }

    const std::string& Name() const { return _name; }

 private:
    std::string _name;
};

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
        if (error == ENOENT) return false;
        if (error == ELOOP) activity.Fail("the file is a symbolic link");
        activity.FailWithSystemError(error);
    }
    struct stat status = {};
    if (fstat(fd.Get(), &status) != 0) activity.FailWithSystemError(errno);
    if (!S_ISREG(status.st_mode)) activity.Fail("it is not a regular file");
    if (status.st_size == 0) activity.Fail("the file is empty, its contents were lost; restore it or remove it");
    if ((status.st_mode & 077) != 0 && fchmod(fd.Get(), kFileMode) != 0) activity.FailWithSystemError(errno);
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
