// Reading and replacing a small system file as a whole.
//
// Errors: HostMgmtException with the path and the system's text.
//
// Threads: any number at once. Of two replacements of one file at the same moment, the last to finish wins whole; of two in
// place, too, unless one of them takes longer than the two seconds for which the other waits.

#ifndef SYSNET_SRC_TEXT_FILE_H_
#define SYSNET_SRC_TEXT_FILE_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace SysNet::Network {

// The bytes of a regular file, reached through symbolic links if need be; nothing if there is no such file. Never waits
// for the other end of a pipe.
std::optional<std::string> ReadTextFile(const std::string& path);

// Replaces the file, or the target of the symbolic link, by a new file with the old one's mode, owner, group and extended
// attributes. Where that cannot be done because the file is a mount point, because its folder may not be written, or
// because the owner cannot be kept, its bytes are rewritten in place under a lock, after room for them has been taken. A
// missing file is created with mode 0644; its folder must exist.
//
// What a killed process left of its new file, the next replacement of the same file removes.
//
// When it throws, the old contents are there. When it returns, the new ones are on disk.
void ReplaceTextFile(const std::string& path, std::string_view content);

// Makes the folder, with mode 0755, and those above it where they are missing.
void MakeFolders(const std::string& folder);

// One line and the bytes that end it: "\n", "\r\n", or none at the end of the file.
struct Line {
    std::string text;
    std::string end;
};

std::vector<Line> SplitLines(std::string_view content);
std::string JoinLines(const std::vector<Line>& lines);

// The line end of the last line that has one; "\n" if none has.
std::string LineEndOf(const std::vector<Line>& lines);

// Adds a line behind the last one, which gets a line end if it has none.
void AppendLine(std::vector<Line>& lines, std::string text);

}  // namespace SysNet::Network

#endif  // SYSNET_SRC_TEXT_FILE_H_
