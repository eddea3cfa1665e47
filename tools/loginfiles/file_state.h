// Everything that a path holds and that a replacement must keep: content, mode, owner and extended attributes (access
// control lists and security labels are such). Two equal states look the same to every reader.
//
// Errors: `LoginsError` of kind System.
// Threads: plain functions and values.

#ifndef NIMBREL_LOGINS_FILE_STATE_H_
#define NIMBREL_LOGINS_FILE_STATE_H_

#include <sys/types.h>

#include <map>
#include <string>

namespace nimbrel::logins {

struct FileState {
    enum class Kind { Absent, Regular, Symlink };

    Kind kind = Kind::Absent;
    std::string content = {};  // of a symbolic link: its target
    mode_t mode = 0644;        // permission bits; like the rest of no meaning for an absent path
    uid_t owner = 0;
    gid_t group = 0;
    std::map<std::string, std::string> attributes = {};

    bool operator==(const FileState&) const = default;

    // The same file with other content; a new one of mode 0644 and root's, if there was none.
    FileState With(const std::string& newContent) const;
};

// What `path` itself holds; links are not followed. Refuses (kind Refused) what is neither absent, a regular file nor a
// link, and a file with further names: a replacement would part them.
FileState ReadState(const std::string& path);
// The same of a file that may have further names: a kept copy, which a backup or a de-duplicator has linked, or a file
// that is to be put back.
FileState ReadLinkedState(const std::string& path);
// Whether both hold the same; mode, owner and attributes may differ.
bool SameContent(const FileState& a, const FileState& b);

// The file that a path means: links followed to the end. A missing file is itself. Refuses a link that leads nowhere.
std::string Resolve(const std::string& path);

// What is prepared beside a file that is to be replaced.
enum class Prepared { After, Before };

// The file beside `path` in which its replacement is prepared, or what would replace that again. No program takes such a
// name for a service or profile.
std::string StagedName(const std::string& path, int id, Prepared which = Prepared::After);

// Writes `state` durably into the staged file. Nothing that a reader sees changes. Absent is staged as nothing.
void Stage(const std::string& path, int id, const FileState& state, Prepared which = Prepared::After);
// Puts the staged file in place, or removes the file for an absent state, in one step that is durable on return.
void Replace(const std::string& path, int id, const FileState& state, Prepared which = Prepared::After);
// Removes what staging left; a missing file is fine.
void Unstage(const std::string& path, int id, Prepared which = Prepared::After) noexcept;

// --- Small durable files (the journal) ---

std::string ReadWhole(const std::string& path);
// A new file of mode 0600; on the disk when the call returns.
void WriteDurably(const std::string& path, const std::string& content);
// The same without waiting for the disk, for what nobody needs after a crash.
void WriteQuickly(const std::string& path, const std::string& content);
// Makes the names in a folder durable.
void SyncFolder(const std::string& folder);
std::string FolderOf(const std::string& path);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_FILE_STATE_H_
