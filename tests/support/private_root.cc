#include "support/private_root.h"

#include <dlfcn.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "support/files.h"

namespace {

namespace fs = std::filesystem;

bool IsOn(const char* path, std::uint32_t fileSystem) {
    struct statfs status = {};
    return statfs(path, &status) == 0 && static_cast<std::uint32_t>(status.f_type) == fileSystem;
}

void ThrowSystemError(const std::string& what) {
    const int error = errno;
    throw std::system_error(error, std::generic_category(), what);
}

using Capabilities = __user_cap_data_struct[_LINUX_CAPABILITY_U32S_3];

// The two that let root read and write files whatever their permission bits say.
constexpr std::uint32_t kFileOverrides = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH);

template <typename Change>
void ChangeEffectiveCapabilities(const Change& change) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    Capabilities capabilities = {};
    if (syscall(SYS_capget, &header, capabilities) != 0) ThrowSystemError("capget");
    change(capabilities[0]);
    if (syscall(SYS_capset, &header, capabilities) != 0) ThrowSystemError("capset");
}

}  // namespace

void RequirePrivateRoot() {
    static const bool isPrivate = IsOn("/", TMPFS_MAGIC) && IsOn("/etc", OVERLAYFS_SUPER_MAGIC);
    if (!isPrivate) throw std::runtime_error("This test changes system files: run it inside scripts/private-root");
}

void WriteSystemFile(const std::string& path, const std::string& contents) {
    MakeFolder(fs::path(path).parent_path());
    if (fs::is_directory(path)) Remove(path);
    WriteFile(path, contents);
}

void CopySystemFile(const std::string& source, const std::string& path) {
    MakeFolder(fs::path(path).parent_path());
    fs::remove(path);
    fs::copy_file(source, path);
}

void Remove(const std::string& path) {
    RequirePrivateRoot();
    fs::remove_all(path);
}

void MakeFolder(const std::string& path) {
    RequirePrivateRoot();
    fs::create_directories(path);
}

bool IsLoaded(const std::string& path) {
    void* const library = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (library != nullptr) dlclose(library);
    return library != nullptr;
}

MountedOver::MountedOver(const std::string& folder, const std::string& options) : _folder(folder) {
    MakeFolder(folder);
    if (mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) != 0) ThrowSystemError("mount " + folder);
}

MountedOver::~MountedOver() { umount2(_folder.c_str(), MNT_DETACH); }

void MountedOver::Fill() const {
    std::ofstream stream(_folder + "/filler");
    const std::string block(4096, 'x');
    while (stream.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) continue;
}

void MountedOver::Empty() const { Remove(_folder + "/filler"); }

void MountedOver::MakeReadOnly() const {
    if (mount("", _folder.c_str(), "", MS_REMOUNT | MS_RDONLY, "") != 0) ThrowSystemError("remount " + _folder);
}

MountedOnItself::MountedOnItself(const std::string& path) : _path(path) {
    RequirePrivateRoot();
    if (mount(path.c_str(), path.c_str(), "", MS_BIND, "") != 0) ThrowSystemError("mount " + path);
}

MountedOnItself::~MountedOnItself() { umount2(_path.c_str(), MNT_DETACH); }

void MountedOnItself::MakeReadOnly() const {
    if (mount("", _path.c_str(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, "") != 0) ThrowSystemError("remount " + _path);
}

WithoutPrivileges::WithoutPrivileges() {
    RequirePrivateRoot();
    ChangeEffectiveCapabilities([](auto& capabilities) { capabilities.effective &= ~kFileOverrides; });
}

WithoutPrivileges::~WithoutPrivileges() {
    ChangeEffectiveCapabilities(
        [](auto& capabilities) { capabilities.effective |= capabilities.permitted & kFileOverrides; });
}
