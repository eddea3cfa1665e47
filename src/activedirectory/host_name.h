// The host's own name, as the kernel and the resolver know it.

#ifndef NIMAUTH_ACTIVEDIRECTORY_HOST_NAME_H_
#define NIMAUTH_ACTIVEDIRECTORY_HOST_NAME_H_

#include <string>

namespace nimbrel::authentication {

// Throws `InvalidHostNameException` "unable to get hostname".
std::string ReadHostName();

// The resolver's official name for `hostName`. Throws `InvalidHostNameException` with the resolver's text, or "hostname
// cannot be resolved".
std::string ResolveFullName(const std::string& hostName);

// What stands before the first '.', or all of it: "node01" for "node01.corp.test".
std::string FirstLabel(const std::string& name);

// Whether both names are equal but for letter case, upper-case folding each character in the global locale.
bool EqualIgnoringCase(const std::string& one, const std::string& other);

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_ACTIVEDIRECTORY_HOST_NAME_H_
