#include "proxy/root.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace nimbrel::authentication::test {

void InstallAt(const std::string& path, const std::string& plugin) {
    CopySystemFile(NIMAUTH_TEST_PROXIES "/lib" + plugin + ".so", path);
}

void Install(const std::string& name, const std::string& plugin) {
    InstallAt(kPluginFolder + ("lib" + name + ".so"), plugin);
}

void RemovePlugins() { Remove(kPluginFolder); }

std::string Describe(const std::exception& error) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, &status), &std::free);
    const std::string full = name.get();
    return full.substr(full.rfind(':') + 1) + ": " + error.what();
}

}  // namespace nimbrel::authentication::test
