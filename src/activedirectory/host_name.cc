#include "activedirectory/host_name.h"

#include <netdb.h>

#include <algorithm>
#include <locale>

#include "authentication/exceptions.h"
#include "foundation/system_calls.h"

namespace nimbrel::authentication {

std::string ReadHostName() {
    char name[64];
    if (NimauthGetHostName(name, sizeof name) != 0) throw InvalidHostNameException("unable to get hostname");
    return {name, std::find(name, name + sizeof name, '\0')};
}

std::string ResolveFullName(const std::string& hostName) {
    hostent entry = {};
    hostent* result = nullptr;
    char work[1024];
    int error = 0;
    if (gethostbyname_r(hostName.c_str(), &entry, work, sizeof work, &result, &error) != 0) {
        throw InvalidHostNameException(hstrerror(error));
    }
    if (result == nullptr) throw InvalidHostNameException("hostname cannot be resolved");
    return result->h_name;
}

std::string FirstLabel(const std::string& name) { return name.substr(0, name.find('.')); }

bool EqualIgnoringCase(const std::string& one, const std::string& other) {
    const std::locale locale;
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [&locale](char a, char b) { return std::toupper(a, locale) == std::toupper(b, locale); });
}

}  // namespace nimbrel::authentication
