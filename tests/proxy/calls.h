// Stand-ins for calls that the library makes, linked by `--wrap`; each calls_*.cc belongs to one of them, and a test
// links those that it needs. What each does beyond writing a line to the journal:
//
//     sleep               returns at once                          "sleep 30"
//     syslog              keeps the line from the system log       "error: Failed to ..."
//     dlopen              nothing                                  "dlopen /usr/... failed", and flags other than
//                                                                  RTLD_LAZY | RTLD_GLOBAL
//     dlerror             nothing                                  "dlerror"
//     open                nothing                                  "open /etc/nimbrel/nimauth/apxprovider.conf"
//     gethostname         answers as `HostCalls` says              "gethostname"
//     gethostbyname_r     answers as `HostCalls` says              "gethostbyname_r node01"
//     ConfigStore         nothing                                  "read active_directory", "write ...", "remove ..."
//     AddOrReplaceEntry   nothing                                  "hosts 192.0.2.10 node01.corp.test node01"

#ifndef TESTS_PROXY_CALLS_H_
#define TESTS_PROXY_CALLS_H_

#include <optional>
#include <string>

namespace nimbrel::authentication::test {

// The system's own answers stand where nothing is set.
struct HostCalls {
    static std::optional<std::string> hostName;
    static bool hostNameFails;

    // What the resolver answers: a name, or nothing, or an error with its reason.
    static std::optional<std::string> fullName;
    static bool resolvesToNothing;
    static int resolverError;
    static int resolverReason;

    static void Reset();
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PROXY_CALLS_H_
