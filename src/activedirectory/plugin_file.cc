#include "activedirectory/plugin_file.h"

#include <dlfcn.h>

#include "authentication/exceptions.h"

namespace nimbrel::authentication {
namespace {

void* Open(const std::string& path) {
    dlerror();  // clears what an earlier call has left
    return dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
}

}  // namespace

void* OpenPluginFile(const std::string& name, const std::string& failure) {
    const std::string folder = "/usr/libexec/nimauth/";
    const std::string file = "lib" + name + ".so";
    void* library = Open(folder + "lib64/" + file);
    if (library == nullptr) library = Open(folder + file);
    if (library != nullptr) return library;
    const char* const text = dlerror();
    throw IOError(failure + (text != nullptr ? text : ""));
}

}  // namespace nimbrel::authentication
