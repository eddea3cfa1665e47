// What tests do to the system files of a private root, and ways to make them fail for real.
//
//     WriteSystemFile("/etc/nimbrel/nimauth/provider.conf", "provider = \"ad\"\n");
//     const MountedOver full("/etc/nimbrel/nimauth", "size=4k");
//     full.Fill();
//
// Whatever changes something throws `std::runtime_error` outside a private root, before it has touched anything.

#ifndef TESTS_SUPPORT_PRIVATE_ROOT_H_
#define TESTS_SUPPORT_PRIVATE_ROOT_H_

#include <string>

// Throws unless this process runs in a private root: it lies in memory and has the machine's /etc as a layer.
void RequirePrivateRoot();

// Puts a file with these contents at `path`, and the folders above it. A folder that is there goes.
void WriteSystemFile(const std::string& path, const std::string& contents);

// Puts a copy of the file `source` at `path`, and the folders above it. A new file each time: a plug-in that is loaded must
// not change under the loader, which takes two names of one file for one plug-in.
void CopySystemFile(const std::string& source, const std::string& path);

void MakeFolder(const std::string& path);

// Removes whatever is at `path`, with all below it; nothing there is fine.
void Remove(const std::string& path);

// Whether the loader of this process has the shared object `path` open.
bool IsLoaded(const std::string& path);

// Lays an empty tmpfs with these mount options over a folder for as long as it lives.
class MountedOver {
 public:
    MountedOver(const std::string& folder, const std::string& options);
    MountedOver(const MountedOver&) = delete;
    MountedOver& operator=(const MountedOver&) = delete;
    ~MountedOver();

    // No byte fits any more: every write fails with "No space left on device".
    void Fill() const;

    // Gives the room back.
    void Empty() const;

    // Every change fails with "Read-only file system".
    void MakeReadOnly() const;

 private:
    std::string _folder;
};

// Makes a file a mount point for as long as it lives: it can be written but not be replaced.
class MountedOnItself {
 public:
    explicit MountedOnItself(const std::string& path);
    MountedOnItself(const MountedOnItself&) = delete;
    MountedOnItself& operator=(const MountedOnItself&) = delete;
    ~MountedOnItself();

    // Now it cannot be written either.
    void MakeReadOnly() const;

 private:
    std::string _path;
};

// The present thread obeys permission bits, as an ordinary user does, for as long as this lives.
class WithoutPrivileges {
 public:
    WithoutPrivileges();
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;
    ~WithoutPrivileges();
};

#endif  // TESTS_SUPPORT_PRIVATE_ROOT_H_
