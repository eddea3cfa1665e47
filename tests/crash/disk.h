// What a power cut leaves of some folders.
//
// A file's bytes are on the disk once the file was synchronised, and a name once its folder was; whatever came after may
// be lost, each independently of the other. File systems keep more than that, some of them by luck.

#ifndef TESTS_CRASH_DISK_H_
#define TESTS_CRASH_DISK_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace nimbrel::crash {

enum class Loss {
    Bytes,  // every name is there, and what was not synchronised of the files is not: new ones are empty
    Names,  // the bytes are there, and what was not synchronised of the folders is not: new names are gone, old ones back
    Both,
};
inline constexpr Loss kLosses[] = {Loss::Bytes, Loss::Names, Loss::Both};

class Disk {
 public:
    // All that is below the folders now is on the disk.
    explicit Disk(std::vector<std::string> folders);

    // A process has synchronised the file or folder that it has open under this number.
    void Synchronise(pid_t process, int descriptor);

    // Makes the folders what they are when the machine comes up again.
    void CutPower(Loss loss) const;

 private:
    using Id = std::pair<dev_t, ino_t>;
    struct File {
        struct stat status = {};
        std::string content;  // a file's bytes, a link's target
    };
    using Names = std::map<std::string, Id>;

    void KeepFile(const std::string& path);
    void KeepFolder(const std::string& path);
    void LoseBytes(const std::string& path) const;
    void LoseNames(const std::string& folder) const;
    void BringBack(const std::string& path, Id id) const;

    std::vector<std::string> _folders;
    std::map<Id, File> _files;      // of everything that has been on the disk, as it was there last
    std::map<Id, Names> _contents;  // of every folder
};

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_DISK_H_
