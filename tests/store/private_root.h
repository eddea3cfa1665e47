// The files of a private root that the library reads and writes, and ways to make them fail for real.
//
//     WriteFile(kRecordFile, "remote-authentication-store = \"None\"\n");
//     const MountedOver full(kSettingsFolder, "size=4k");
//
// Everything here throws `std::runtime_error` outside a private root, before it has touched anything.

#ifndef TESTS_STORE_PRIVATE_ROOT_H_
#define TESTS_STORE_PRIVATE_ROOT_H_

#include <sys/stat.h>

#include <string>
#include <vector>

namespace nimbrel::authentication::test {

inline constexpr const char* kSettingsFolder = "/etc/nimbrel/nimauth";
inline constexpr const char* kRecordFile = "/etc/nimbrel/nimauth/authentication.conf";
inline constexpr const char* kProviderFile = "/etc/nimbrel/nimauth/provider.conf";
inline constexpr const char* kProxyProviderFile = "/etc/nimbrel/nimauth/apxprovider.conf";
inline constexpr const char* kHostsFile = "/etc/hosts";

// Throws unless this process runs in a private root.
void RequirePrivateRoot();

// Puts a file with these contents at `path`, and the folders above it.
void WriteFile(const std::string& path, const std::string& contents);
std::string ReadFile(const std::string& path);

// Removes whatever is at `path`, with all below it; nothing there is fine.
void Remove(const std::string& path);
void MakeFolder(const std::string& path);
bool Exists(const std::string& path);

// The names in a folder, in byte order.
std::vector<std::string> Names(const std::string& folder);

struct stat Status(const std::string& path);

// Makes authentication.conf say that this store is active, and nothing else.
void Record(const std::string& store);

// Copies the plug-in `file` to where a provider called `name` is found.
void InstallProvider(const std::string& name, const std::string& file);

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

}  // namespace nimbrel::authentication::test

#endif  // TESTS_STORE_PRIVATE_ROOT_H_
