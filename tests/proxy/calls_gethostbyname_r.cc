#include <netdb.h>

#include <cstring>

#include "proxy/calls.h"
#include "proxy/journal.h"

using nimbrel::authentication::test::HostCalls;
using nimbrel::authentication::test::Journal;

extern "C" {

int __real_gethostbyname_r(const char* name, hostent* entry, char* work, std::size_t size, hostent** result,
                           int* reason);

int __wrap_gethostbyname_r(const char* name, hostent* entry, char* work, std::size_t size, hostent** result,
                           int* reason) {
    Journal::Add("gethostbyname_r " + std::string(name));
    *result = nullptr;
    *reason = HostCalls::resolverReason;
    if (HostCalls::resolverError != 0) return HostCalls::resolverError;
    if (HostCalls::resolvesToNothing) return 0;
    if (!HostCalls::fullName) return __real_gethostbyname_r(name, entry, work, size, result, reason);
    entry->h_name = std::strncpy(work, HostCalls::fullName->c_str(), size);
    *result = entry;
    return 0;
}

}  // extern "C"
