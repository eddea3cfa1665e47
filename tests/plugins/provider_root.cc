#include "plugins/provider_root.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <filesystem>
#include <fstream>

namespace nimbrel::authentication::test {
namespace {

namespace fs = std::filesystem;

constexpr char kPluginFolder[] = "/usr/libexec/nimauth";
constexpr char kProviderConf[] = "/etc/nimbrel/nimauth/provider.conf";

bool IsOn(const char* path, long magic) {
    struct statfs info = {};
    return statfs(path, &info) == 0 && info.f_type == magic;
}

// A private root lies in memory and has the machine's /usr and /etc as copy-on-write layers.
void RequirePrivateRoot() {
    if (IsOn("/", TMPFS_MAGIC) && IsOn("/usr", OVERLAYFS_SUPER_MAGIC) && IsOn("/etc", OVERLAYFS_SUPER_MAGIC)) return;
    throw std::runtime_error("this test replaces system files and runs in scripts/private-root only");
}

}  // namespace

std::string BuiltProvider(const std::string& built) {
    return std::string(NIMAUTH_TEST_PROVIDERS) + "/lib" + built + ".so";
}

void InstallFile(const std::string& file, const std::string& path) {
    RequirePrivateRoot();
    fs::create_directories(fs::path(path).parent_path());
    fs::remove(path);  // a mapped file must not be written to
    fs::copy_file(file, path);
}

void InstallProvider(const std::string& built, const std::string& path) { InstallFile(BuiltProvider(built), path); }

void WriteFile(const std::string& path, const std::string& contents) {
    RequirePrivateRoot();
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    if (!(stream << contents << std::flush)) throw std::runtime_error("cannot write " + path);
}

void ConfigureProvider(const std::string& contents) { WriteFile(kProviderConf, contents); }

void RemoveProviders() {
    RequirePrivateRoot();
    fs::remove_all(kPluginFolder);
    fs::remove_all(kProviderConf);
}

bool IsLoaded(const std::string& path) {
    void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (library) dlclose(library);
    return library != nullptr;
}

}  // namespace nimbrel::authentication::test
