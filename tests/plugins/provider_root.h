// The files of a private root by which the library finds a directory provider, and a grip on a provider that is loaded.
//
//     InstallProvider("scripted");
//     ConfigureProvider("provider = \"scripted\"\n");
//     Plugin<ScriptedControl> plugin("scripted");
//     plugin->hold(kGetTrustedDomains);
//
// Everything here throws `std::runtime_error` outside a private root, before it has touched anything.

#ifndef TESTS_PLUGINS_PROVIDER_ROOT_H_
#define TESTS_PLUGINS_PROVIDER_ROOT_H_

#include <dlfcn.h>

#include <stdexcept>
#include <string>

#include "support/private_root.h"

namespace nimbrel::authentication::test {

// The path at which a provider of this name is found.
inline std::string ProviderPath(const std::string& name) { return "/usr/libexec/nimauth/lib" + name + ".so"; }

// The file of the provider `built`, one of tests/plugins/misbehaving, in the build tree.
std::string BuiltProvider(const std::string& built);

// Copies the provider `built` to `path`, or to where a provider of that name is found. A copy, not a link: the loader
// takes two names of one file for one plug-in.
void InstallProvider(const std::string& built, const std::string& path);
inline void InstallProvider(const std::string& built) { InstallProvider(built, ProviderPath(built)); }

// provider.conf from now on.
void ConfigureProvider(const std::string& contents);

// Removes all installed providers and provider.conf.
void RemoveProviders();

// The exported `control` table of an installed provider. Loads it, or finds it loaded; keeps it loaded.
template <typename Control>
class Plugin {
 public:
    explicit Plugin(const std::string& name) : _library(dlopen(ProviderPath(name).c_str(), RTLD_LAZY | RTLD_LOCAL)) {
        if (!_library) throw std::runtime_error(dlerror());
        _control = static_cast<const Control*>(dlsym(_library, "control"));
        if (!_control) throw std::runtime_error(dlerror());
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    ~Plugin() { dlclose(_library); }

    const Control* operator->() const { return _control; }

 private:
    void* _library;
    const Control* _control;
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PLUGINS_PROVIDER_ROOT_H_
