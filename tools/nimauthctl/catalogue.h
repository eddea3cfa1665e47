// The causes and remedies of every failure that the tool can explain.
//
// Failures come in four kinds, one table each:
//   - status codes of the directory provider (Windows system error numbers), whether the library has a class for them
//     or reports them as `UnknownException`;
//   - the library's and the platform's own exceptions, by class name;
//   - refusals of a change to the embedded directory, where the same numbers speak of the file that is being edited and
//     not of a domain on the network;
//   - what a question to an authentication proxy, or a join through one, ends with: there the same numbers come from
//     the proxy, from a controller behind it, or from this host's own talk to a controller at the end of a join.

#ifndef NIMAUTHCTL_CATALOGUE_H_
#define NIMAUTHCTL_CATALOGUE_H_

#include <cstdint>
#include <span>
#include <string_view>

#include "tools/nimauthctl/exit_code.h"

namespace nimbrel::nimauthctl {

struct StatusEntry {
    std::uint32_t status;
    ExitCode exitCode;
    std::string_view
        exception;  // the library's class for it; empty for an edit of the embedded directory, and for proxies
    std::string_view cause;
    std::string_view remedy;
};

struct ClassEntry {
    std::string_view exception;
    ExitCode exitCode;
    std::string_view cause;
    std::string_view remedy;
    std::string_view text = {};  // what the message must hold; empty for every message that no other entry fits
};

// In the order of their codes, and of no particular order.
std::span<const StatusEntry> StatusEntries();
std::span<const StatusEntry> DirectoryEditEntries();
std::span<const StatusEntry> ProxyEntries();
std::span<const ClassEntry> ClassEntries();

// Null for one that the catalogue does not hold.
const StatusEntry* FindStatus(std::uint64_t status);
const StatusEntry* FindDirectoryEdit(std::uint64_t status);
const StatusEntry* FindProxyStatus(std::uint64_t status);
const ClassEntry* FindClass(std::string_view exception, std::string_view message = {});

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CATALOGUE_H_
