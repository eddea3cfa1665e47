#include "plugins/provider_root.h"

namespace nimbrel::authentication::test {
namespace {

constexpr char kPluginFolder[] = "/usr/libexec/nimauth";
constexpr char kProviderConf[] = "/etc/nimbrel/nimauth/provider.conf";

}  // namespace

std::string BuiltProvider(const std::string& built) {
    return std::string(NIMAUTH_TEST_PROVIDERS) + "/lib" + built + ".so";
}

void InstallProvider(const std::string& built, const std::string& path) { CopySystemFile(BuiltProvider(built), path); }

void ConfigureProvider(const std::string& contents) { WriteSystemFile(kProviderConf, contents); }

void RemoveProviders() {
    Remove(kPluginFolder);
    Remove(kProviderConf);
}

}  // namespace nimbrel::authentication::test
