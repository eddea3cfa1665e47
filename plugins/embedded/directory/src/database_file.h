// The rules for the files themselves: mode 0600 under any umask, no links, new files complete or absent.
//
// SQLite's locks belong to the process and its file, and closing any descriptor of the file drops them. So nothing here
// opens an existing database for reading or writing: descriptors are O_PATH, or belong to a file nobody else knows yet.

#ifndef NIMBREL_EMBEDDED_DATABASE_FILE_H_
#define NIMBREL_EMBEDDED_DATABASE_FILE_H_

#include <chrono>
#include <optional>
#include <string>

namespace nimbrel::embedded {

// An open file descriptor, or -1.
class Descriptor {
 public:
    explicit Descriptor(int number = -1) noexcept : _number(number) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    int Number() const noexcept { return _number; }
    explicit operator bool() const noexcept { return _number >= 0; }

 private:
    int _number;
};

// The path with its folder's links resolved, ready to be opened; unset if there is no such file. Takes away the rights
// of group and others. Throws `DirectoryError` 5 for a link or anything else but a regular file. `name` is for
// messages.
std::optional<std::string> PrepareExistingFile(const std::string& path, const std::string& name);

// Makes those who make the file `path` take turns. The lock is a file beside it, "<path>.lock", of mode 0600, so that
// nobody without the rights to the database can hold it up; it is there as long as somebody has the lock, and what a
// killed process left of it is taken over. One that others may open, or a link, is refused with `DirectoryError` 5.
class MakerLock {
 public:
    // Takes no lock yet. `name` is for messages.
    MakerLock(const std::string& path, std::string name);
    MakerLock(const MakerLock&) = delete;
    MakerLock& operator=(const MakerLock&) = delete;
    ~MakerLock();

    // False if another has it.
    bool Try();
    // Throws `DirectoryError` 1359 if another has it all that time.
    void Wait(std::chrono::milliseconds most);
    // False if the lock's file stays.
    bool Release() noexcept;

 private:
    std::string _name;
    std::string _path;
    Descriptor _lock;
};

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
    MakerLock _lock;
    Descriptor _folder;
    std::string _finalPath;
    std::string _temporaryPath;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DATABASE_FILE_H_
