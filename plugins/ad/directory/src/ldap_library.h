// The LDAP library's one-time start, bounded.
//
// When it is first used in a process, libldap looks up the host's own full name with the C library, which on a host
// whose name is not in /etc/hosts asks the name servers and may wait for them for half a minute. It does so on a thread
// of its own here; whoever needs the library waits for it until a deadline. A fork waits for it, too, two seconds at the
// longest: in a child that is made in the middle of it the library's own locks are held for ever, by a thread that the
// child has not got. Such a child has to exec before it can use the provider.
//
// Threads: any.

#ifndef NIMBREL_AD_LDAP_LIBRARY_H_
#define NIMBREL_AD_LDAP_LIBRARY_H_

#include "deadline.h"

namespace nimbrel::ad {

// Returns when the library can be used; throws `AdError`: 1355 if the deadline passes before, 1359 in a child that has to
// exec.
void AwaitLdapLibrary(const Deadline& deadline);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_LDAP_LIBRARY_H_
