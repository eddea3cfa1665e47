// Small helpers over the file calls.

#ifndef NIMBREL_AD_LOGINS_FILES_H_
#define NIMBREL_AD_LOGINS_FILES_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace nimbrel::ad::logins {

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

std::string NameOf(const std::string& path);

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_FILES_H_
