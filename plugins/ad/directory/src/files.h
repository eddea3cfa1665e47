// Small files that this host's trust depends on: read whole, replaced atomically, mode 0600.
//
// Errors: `AdError` with 5 for a file that may not be used (no right, not a regular file, somebody else may write it),
// 112 when there is no room, 1359 for any other fault of the file system.

#ifndef NIMBREL_AD_FILES_H_
#define NIMBREL_AD_FILES_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "deadline.h"
#include "pluginkit/descriptor.h"
#include "pluginkit/owner_lock.h"
#include "pluginkit/secret.h"

namespace nimbrel::ad {

struct WholeFile {
    kit::Secret contents;  // may be keys
    uid_t owner = 0;
    gid_t group = 0;
    mode_t mode = 0;  // permissions alone
};

// Unset if it does not exist.
std::optional<WholeFile> ReadWholeFile(const std::string& path);
// The contents of a file that must be its owner's alone to write, the owner being this user or root; root's own group may,
// too.
std::optional<kit::Secret> ReadTrustedFile(const std::string& path);

// Of folders that this provider makes.
inline constexpr mode_t kFolderMode = 0755;

// A new file beside the one that it is to replace. Until `Commit` nothing of it can be seen under the final name;
// destroyed before that it leaves nothing behind. Its name is fixed, as it may hold keys: what a killed process left is
// gone with the next replacement. One at a time for a path, which the lock of joins and leaves sees to.
class FileReplacement {
 public:
    explicit FileReplacement(std::string path);
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;
    ~FileReplacement();

    const std::string& TemporaryPath() const { return _temporary; }
    void Write(std::string_view contents);
    // Owner, group and mode; else those of this process's user and 0600.
    void SetAttributesOf(const WholeFile& file);
    // Durable when it returns.
    void Commit();
    // Also after a `Commit` that has failed: the folder may not have been synced.
    bool IsInPlace() const { return _temporary.empty(); }

 private:
    std::string _path;
    std::string _temporary;  // empty when it has taken its place
    mode_t _mode = S_IRUSR | S_IWUSR;
    kit::Descriptor _file;
};

// Puts back what `ReadWholeFile` returned: the contents with their owner, group and mode, or no file.
void RestoreFile(const std::string& path, const std::optional<WholeFile>& file);
// Durable; a missing file is as good.
void RemoveFile(const std::string& path);
// What a process that was killed has left of a replacement of the file.
void RemoveLeftover(const std::string& path);

// One change of this host's membership at a time, between threads and processes. Throws 170 if another one holds it
// beyond the deadline.
class FileLock {
 public:
    FileLock(const std::string& path, const Deadline& deadline);

 private:
    kit::OwnerLock _lock;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_FILES_H_
