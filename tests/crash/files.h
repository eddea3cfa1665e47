// Every file below some folders: kept, put back and looked at.

#ifndef TESTS_CRASH_FILES_H_
#define TESTS_CRASH_FILES_H_

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

namespace nimbrel::crash {

// Path -> "100600 0:0" (type and mode in octal, owner, group).
using Attributes = std::map<std::string, std::string>;

Attributes AttributesBelow(const std::vector<std::string>& folders);

// Empty for a file that is missing.
std::string ReadFile(const std::string& path);
// Makes the file, and its folders, or replaces its bytes.
void WriteFile(const std::string& path, const std::string& text, mode_t mode = 0644);

void EmptyFolders(const std::vector<std::string>& folders);

// Lays an empty folder in memory over the folder, for this process and those that it starts: nobody else's is touched.
void CoverFolder(const std::string& folder);

// The folders as they are when the object is made. Regular files, folders and symbolic links.
class Snapshot {
 public:
    explicit Snapshot(std::vector<std::string> folders);

    // Makes them so again.
    void Restore() const;

 private:
    struct Entry {
        struct stat status;
        std::string content;  // a file's bytes, a link's target
    };

    std::vector<std::string> _folders;
    std::map<std::string, Entry> _entries;  // a folder before what is in it
};

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_FILES_H_
