#include "proxy/root.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace nimbrel::authentication::test {
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

// The two that let root read and write files whatever their permission bits say.
constexpr std::uint32_t kFileOverrides = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH);

template <typename Change>
void ChangeEffectiveCapabilities(const Change& change) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct capabilities[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capget, &header, capabilities) != 0) ThrowSystemError("capget");
    change(capabilities[0]);
    if (syscall(SYS_capset, &header, capabilities) != 0) ThrowSystemError("capset");
}

}  // namespace

void RequirePrivateRoot() {
    static const bool isPrivate = IsOn("/", TMPFS_MAGIC) && IsOn("/etc", OVERLAYFS_SUPER_MAGIC);
    if (!isPrivate) throw std::runtime_error("This test changes system files: run it inside scripts/private-root");
}

void WriteFile(const std::string& path, const std::string& contents) {
    MakeFolder(fs::path(path).parent_path());
    Remove(path);
    std::ofstream stream(path, std::ios::binary);
    stream << contents;
    stream.close();
    if (!stream) throw std::runtime_error("Unable to write " + path);
}

std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream contents;
    contents << stream.rdbuf();
    if (!stream) throw std::runtime_error("Unable to read " + path);
    return contents.str();
}

void MakeFolder(const std::string& path) {
    RequirePrivateRoot();
    fs::create_directories(path);
}

void Remove(const std::string& path) {
    RequirePrivateRoot();
    fs::remove_all(path);
}

// A new file each time: one that is loaded must not change under the loader.
void CopyPlugin(const std::string& source, const std::string& path) {
    MakeFolder(fs::path(path).parent_path());
    Remove(path);
    fs::copy_file(source, path);
}

void InstallAt(const std::string& path, const std::string& plugin) {
    CopyPlugin(NIMAUTH_TEST_PROXIES "/lib" + plugin + ".so", path);
}

void Install(const std::string& name, const std::string& plugin) {
    InstallAt(kPluginFolder + ("lib" + name + ".so"), plugin);
}

void RemovePlugins() { Remove(kPluginFolder); }

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

WithoutPrivileges::WithoutPrivileges() {
    RequirePrivateRoot();
    ChangeEffectiveCapabilities([](auto& capabilities) { capabilities.effective &= ~kFileOverrides; });
}

WithoutPrivileges::~WithoutPrivileges() {
    ChangeEffectiveCapabilities(
        [](auto& capabilities) { capabilities.effective |= capabilities.permitted & kFileOverrides; });
}

std::string Describe(const std::exception& error) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, &status), &std::free);
    const std::string full = name.get();
    return full.substr(full.rfind(':') + 1) + ": " + error.what();
}

}  // namespace nimbrel::authentication::test
