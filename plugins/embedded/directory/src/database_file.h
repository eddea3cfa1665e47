// The rules for the files themselves: mode 0600 under any umask, no links, root's or the user's own, in a folder that
// nobody else writes, new files complete or absent.
//
// SQLite's locks belong to the process and its file, and closing any descriptor of the file drops them. So nothing here
// opens an existing database for reading or writing: descriptors are O_PATH, or belong to a file nobody else knows yet.

#ifndef NIMBREL_EMBEDDED_DATABASE_FILE_H_
#define NIMBREL_EMBEDDED_DATABASE_FILE_H_

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "pluginkit/descriptor.h"
#include "pluginkit/owner_lock.h"

namespace nimbrel::embedded {

// Who may own a file that `user` trusts, and its folder: root, and the user.
bool MayOwnFiles(uid_t owner, uid_t user);

// The path with its folder's links resolved, ready to be opened; unset if there is no such file. Takes away the rights
// of group and others. Throws `DirectoryError` 5 for a link or anything else but a regular file, for a file of another
// user, and in a folder of another user or one that others may write, or a group but root's own. `name` is for messages.
std::optional<std::string> PrepareExistingFile(const std::string& path, const std::string& name);

// Sees to it that the write-ahead log of an existing database and the index of it are there, by names alone: nothing is
// opened, see above. False where a missing one cannot be made, because nothing can be written, and there is nothing in the
// log: the database's own file then holds everything and stays as it is. Throws `DirectoryError`.
bool MakeLog(const std::string& path);

// How long a maker is waited for: making a database takes some milliseconds.
inline constexpr std::chrono::milliseconds kMakingTime{10'000};

// A new empty file beside `path`, removed again unless it is published. One at a time for each path: a second one waits
// for at most `kMakingTime`. What killed processes left of theirs is removed.
class NewFile {
 public:
    // Creates the last folder of the path if it is missing.
    NewFile(const std::string& path, std::string name);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    const std::string& TemporaryPath() const { return _temporaryPath; }
    // Gives the file its name. Does nothing if another file has got it meanwhile.
    void Publish();

 private:
    void RemoveLeftoversOfDeletedFile() const;

    std::string _name;
    kit::OwnerLock _lock;  // its file, "<path>.lock", is there as long as somebody makes the file
    kit::Descriptor _folder;
    std::string _finalPath;
    std::string _temporaryPath;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DATABASE_FILE_H_
