// The spelling of directory names: which are well formed, and how two are compared. Pure functions; they never throw
// but `std::bad_alloc`, since each provider has statuses of its own.

#ifndef NIMBREL_PLUGINKIT_DIRECTORY_NAMES_H_
#define NIMBREL_PLUGINKIT_DIRECTORY_NAMES_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::kit {

// ASCII letters only, whatever the locale, which belongs to the process; anything else is compared byte for byte.
std::string LowerCase(std::string_view text);
std::string UpperCase(std::string_view text);
bool SameName(std::string_view left, std::string_view right);

// RFC 3629. The size of the well-formed sequence that `text`, which is not empty, begins with; 0 for none.
std::size_t Utf8SequenceSize(std::string_view text);
bool IsUtf8(std::string_view text);
bool HasControlCharacters(std::string_view text);

// 1 to 63 letters, digits, hyphens and underscores, with no hyphen at either end.
bool IsLabel(std::string_view label);
// Labels with dots between them, 253 characters at most. A final dot is malformed: see `WithoutFinalDot`.
bool IsDnsName(std::string_view name);
std::string_view WithoutFinalDot(std::string_view name);

// The name of a computer account without "$": at most 15 letters, digits and hyphens, not digits alone.
bool IsComputerName(std::string_view name);
// "node01.corp.test" and "NODE01$" -> "node01" and "NODE01".
std::string_view BareComputerName(std::string_view name);
// "NODE01", "corp.test" -> "host/node01.corp.test@CORP.TEST".
std::string HostPrincipalName(const std::string& computer, const std::string& domain);

// True if an organizational unit is given as a distinguished name: "OU=Hosts,DC=corp,DC=test", not "Hosts/Sub".
bool LooksLikeDistinguishedName(std::string_view unit);
// "Hosts/Sub" -> its names from the outermost to the innermost. A slash or backslash inside a name is written "\/", "\\".
std::vector<std::string> SplitUnitPath(std::string_view path);

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_DIRECTORY_NAMES_H_
