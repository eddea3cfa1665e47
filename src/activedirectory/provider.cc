#include "authentication/provider.h"

#include <dlfcn.h>

#include <sstream>

#include "activedirectory/plugin_file.h"
#include "authentication/exceptions.h"
#include "internal/no_cancellation.h"

namespace nimbrel::authentication {
namespace {

// The loader's text for a missing symbol, taken before the library is closed.
[[noreturn]] void RefuseForMissingSymbol(void* library, const std::string& name) {
    const char* const text = dlerror();
    const std::string detail = text != nullptr ? text : "";
    dlclose(library);
    throw InvalidActiveDirectoryProviderException(name, detail);
}

std::list<std::string> SplitWords(const char* text) {
    std::list<std::string> words;
    if (text == nullptr) return words;
    std::istringstream stream(text);
    stream.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

}  // namespace

ActiveDirectoryProvider::ActiveDirectoryProvider(const std::string& name)
    : _library(OpenPluginFile(name, "Unable to open provider: ")) {
    _metadata = static_cast<const NimauthProviderMetadata*>(dlsym(_library, "ActiveDirectoryClientMetadata"));
    if (_metadata == nullptr) RefuseForMissingSymbol(_library, name);

    // Every older version is accepted, 0 and negative ones included: plug-ins in the field carry them.
    if (_metadata->apiVersion > NIMAUTH_PROVIDER_API_VERSION) {
        const std::string version = std::to_string(_metadata->apiVersion);
        dlclose(_library);
        throw InvalidActiveDirectoryProviderException(
            name, "The API version (" + version + ") is not supported by this version of libnimauth");
    }

    _operations = static_cast<const NimauthProviderOperations*>(dlsym(_library, "ActiveDirectoryClientOperations"));
    if (_operations == nullptr) RefuseForMissingSymbol(_library, name);
    CacheMetadata();
}

ActiveDirectoryProvider::~ActiveDirectoryProvider() {
    const internal::NoCancellation noCancellation;
    dlclose(_library);
}

// A module name must be there; std::string refuses a null one, and the library then stays open.
void ActiveDirectoryProvider::CacheMetadata() const {
    _pamModule = std::string(_metadata->pamModule);
    _pamModuleParameters.splice(_pamModuleParameters.end(), SplitWords(_metadata->pamModuleParameters));
    _nssModule = std::string(_metadata->nssModule);
    _nssModuleParameters.splice(_nssModuleParameters.end(), SplitWords(_metadata->nssModuleParameters));
}

int ActiveDirectoryProvider::GetAPIVersion() const { return _operations->tableVersion; }

}  // namespace nimbrel::authentication
