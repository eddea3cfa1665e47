// Which names may go into SSSD's configuration.
//
// That configuration is made of lines, so every name is checked before it is written: nothing that could end a line,
// open a section or add an element to a list passes. Each function throws `StatusError` 87 that names the offender.

#ifndef NIMBREL_AD_LOGINS_NAMES_H_
#define NIMBREL_AD_LOGINS_NAMES_H_

#include <string>
#include <string_view>
#include <vector>

#include "adlogins/log_ins.h"
#include "pluginkit/directory_names.h"

namespace nimbrel::ad::logins {

// All but the trusted forests.
void CheckDomain(const DomainLogIns& domain);
// Those that SSSD takes, 256 at most; the log tells of the others. What is wrong with one trust is no reason to keep a
// host out of its own domain.
std::vector<std::string> UsableForests(const std::vector<std::string>& forests);
void CheckOptions(const LogInOptions& options);
void CheckControllers(const std::vector<std::string>& controllers);
void CheckServices(const std::vector<std::string>& services);

// Dotted labels of letters, digits, hyphens and underscores, none of them empty, longer than 63 characters, or with a
// hyphen or underscore in front; 253 characters at most.
bool IsDnsName(std::string_view name);
// What a domain takes for one; it goes into the record alone. No blanks, and none of "*+,/:;<=>?[\]| or the quote.
bool IsNetbiosName(std::string_view name);
// A PAM service: letters, digits, ".", "_" and "-", the last not in front; 64 characters at most.
bool IsServiceName(std::string_view name);
bool IsMachineAccount(std::string_view name);
// An absolute path without control characters.
bool IsPath(std::string_view path);

using kit::LowerCase;
using kit::UpperCase;

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_NAMES_H_
