// Small helpers over the file calls.

#ifndef NIMBREL_AD_LOGINS_FILES_H_
#define NIMBREL_AD_LOGINS_FILES_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrel::ad::logins {

class Descriptor {
 public:
    explicit Descriptor(int number) : _number(number) {}
    Descriptor(Descriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    int Number() const { return _number; }
    explicit operator bool() const { return _number >= 0; }

 private:
    int _number;
};

// Throws `LogInsError` with the status of `error` (an errno): "Unable to write '/etc/x': No space left on device".
[[noreturn]] void ThrowFileError(const std::string& action, const std::string& path, int error);

struct FileText {
    std::string text;
    mode_t mode = 0;  // the permission bits
};
// Unset if there is no such file. A link is not followed, and nothing that is not a regular file is read: both are
// status 5.
std::optional<FileText> ReadFile(const std::string& path);
// Unset also if it cannot be read. For the files of others.
std::optional<std::string> ReadFileIfPossible(const std::string& path);

// The names in a folder, sorted; none if there is no such folder.
std::vector<std::string> FileNames(const std::string& folder);

// False if there was no such file.
bool RemoveFile(const std::string& path);

std::string FolderOf(const std::string& path);
std::string NameOf(const std::string& path);

// Makes the folder with its parents, and returns those made, outermost first. The last folder has the mode, whatever
// the umask; parents have 0755.
std::vector<std::string> MakeFolders(const std::string& folder, mode_t mode);

// Makes those who change the same files take turns, between threads and between processes, until it is destroyed: by a
// lock on the file `path`, which is made for it with mode 0600, so that nobody else can hold it up, and removed again.
// Throws `LogInsError` 170 if its turn does not come within some seconds, 5 for a link or a file that others may open.
class RecordLock {
 public:
    explicit RecordLock(const std::string& path);
    RecordLock(const RecordLock&) = delete;
    RecordLock& operator=(const RecordLock&) = delete;
    ~RecordLock();

 private:
    std::string _path;
    Descriptor _file;
};

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_FILES_H_
