#include "store/host_calls.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace nimbrel::authentication::test {

std::string HostCalls::hostName;
bool HostCalls::hostNameFails;
std::string HostCalls::fullName;
bool HostCalls::resolvesToNothing;
int HostCalls::resolverError;
int HostCalls::resolverReason;
std::set<std::string> HostCalls::resolvable;
std::vector<std::string> HostCalls::asked;

void HostCalls::Reset() {
    hostName = "node01";
    hostNameFails = false;
    fullName = "node01.corp.test";
    resolvesToNothing = false;
    resolverError = 0;
    resolverReason = 0;
    resolvable.clear();
    asked.clear();
}

// Like some systems, and unlike Linux, cuts a name that does not fit and leaves it without its NUL.
extern "C" int __wrap_gethostname(char* name, std::size_t size) {
    HostCalls::asked.push_back("gethostname " + std::to_string(size));
    if (HostCalls::hostNameFails) {
        errno = EFAULT;
        return -1;
    }
    std::memset(name, 'x', size);
    const std::string& answer = HostCalls::hostName;
    std::memcpy(name, answer.c_str(), std::min(size, answer.size() + 1));
    return 0;
}

extern "C" int __wrap_gethostbyname_r(const char* name, hostent* entry, char* work, std::size_t size, hostent** result,
                                      int* reason) {
    HostCalls::asked.push_back("gethostbyname_r " + std::string(name) + " " + std::to_string(size));
    *result = nullptr;
    *reason = HostCalls::resolverReason;
    if (HostCalls::resolverError != 0) return HostCalls::resolverError;
    if (HostCalls::resolvesToNothing) return 0;
    entry->h_name = std::strncpy(work, HostCalls::fullName.c_str(), size);
    *result = entry;
    return 0;
}

extern "C" hostent* __wrap_gethostbyname(const char* name) {
    static hostent found = {};
    HostCalls::asked.push_back("gethostbyname " + std::string(name));
    return HostCalls::resolvable.count(name) != 0 ? &found : nullptr;
}

}  // namespace nimbrel::authentication::test
