// Several files changed as one: all or none when something fails, each old or new when the process is killed.
//
// New contents are written beside their files first, on disk to the last byte; only then does anything take its name. If
// that fails half-way, those that have taken their names give them back. What a killed process left behind (names that
// begin with a dot and the file's name) is removed by the next change of the same file.

#ifndef NIMBREL_AD_LOGINS_FILE_CHANGES_H_
#define NIMBREL_AD_LOGINS_FILE_CHANGES_H_

#include <optional>
#include <string>
#include <vector>

namespace nimbrel::ad::logins {

struct FileChange {
    std::string path;
    std::optional<std::string> text;  // unset to remove the file
};

// Makes the changes in their order; the new files have mode 0600. True if there was anything to change: a file that has
// its text and mode already is not touched. The caller keeps others away (a lock). Throws `StatusError`.
bool ChangeFiles(const std::vector<FileChange>& changes);

// Removes what killed processes left behind of changes of the file.
void RemoveLeftovers(const std::string& path);

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_FILE_CHANGES_H_
