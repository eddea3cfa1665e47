// Stand-ins for what the system says about the host's name: `gethostname`, `gethostbyname_r` and `gethostbyname`.
//
//     HostCalls::Reset();
//     HostCalls::hostName = "node01";
//     HostCalls::fullName = "node01.corp.test";
//
// For one thread only, as the calls that they stand for are made on the caller's.

#ifndef TESTS_STORE_HOST_CALLS_H_
#define TESTS_STORE_HOST_CALLS_H_

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace nimbrel::authentication::test {

struct HostCalls {
    // The host is node01, known to the resolver as node01.corp.test, and no domain name resolves.
    static void Reset();

    static std::string hostName;
    static bool hostNameFails;

    // What the resolver answers for any host: a name, or nothing, or an error with its reason.
    static std::string fullName;
    static bool resolvesToNothing;
    static int resolverError;
    static int resolverReason;

    // The names that resolve by `gethostbyname`.
    static std::set<std::string> resolvable;

    // What was asked: "gethostname 64", "gethostbyname_r node01 1024", "gethostbyname corp.test".
    static std::vector<std::string> asked;
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_STORE_HOST_CALLS_H_
