// Whose keys a keytab holds, without Kerberos and without touching the keys.

#ifndef NIMAUTHCTL_CHECKS_KEYTAB_H_
#define NIMAUTHCTL_CHECKS_KEYTAB_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::nimauthctl {

// The principals, "host/node01.corp.test@CORP.TEST", each once, in the file's order; unset if the bytes are no keytab of
// the format's version 2.
//
//     05 02                             version
//     00 00 00 2a                       the entry's length; negative for a hole of that length
//     00 01                             parts of the principal's name
//     00 09 CORP.TEST 00 07 NODE01$     realm, parts, each with its length
//     ...                               name type, time, key version and key
std::optional<std::vector<std::string>> KeytabPrincipals(std::string_view bytes);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_KEYTAB_H_
