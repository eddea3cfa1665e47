#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "proxy/calls.h"
#include "proxy/journal.h"

using nimbrel::authentication::test::HostCalls;
using nimbrel::authentication::test::Journal;

std::optional<std::string> HostCalls::hostName;
bool HostCalls::hostNameFails;
std::optional<std::string> HostCalls::fullName;
bool HostCalls::resolvesToNothing;
int HostCalls::resolverError;
int HostCalls::resolverReason;

void HostCalls::Reset() {
    hostName.reset();
    hostNameFails = false;
    fullName.reset();
    resolvesToNothing = false;
    resolverError = 0;
    resolverReason = 0;
}

extern "C" {

int __real_gethostname(char* name, std::size_t size);

int __wrap_gethostname(char* name, std::size_t size) {
    Journal::Add("gethostname");
    if (HostCalls::hostNameFails) {
        errno = EFAULT;
        return -1;
    }
    if (!HostCalls::hostName) return __real_gethostname(name, size);
    std::memcpy(name, HostCalls::hostName->c_str(), std::min(size, HostCalls::hostName->size() + 1));
    return 0;
}

}  // extern "C"
