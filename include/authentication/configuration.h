// The library's settings files, for example
//
//     1  provider = "embedded"
//     2
//     3  "other key" = 'x = y'
//     4  last=one
//
// Each line holds one setting, split at its first '='. Spaces and tabs around key and value are dropped, then one pair
// of like quotes (double or single) around either. Line 2 is skipped, as is any line of spaces and tabs only. Line 3
// has the key `other key` and the value `x = y`. There are no comments: '#' is an ordinary character, and a line
// without '=' is an error. A key that occurs again is ignored. '\r' is an ordinary character: end lines with '\n' alone.
//
// A `Configuration` is read whole when it is constructed, changed in memory, and written back whole:
//
//     AuthenticationConfiguration configuration;
//     configuration["remote-authentication-store"] = "None";
//     configuration.Write();
//
// Threads: a configuration is a plain value without a lock. Several processes may rewrite one file at once; each write
// is whole, and the last one wins. A thread that is cancelled while it writes ends afterwards.

#ifndef NIMBREL_AUTHENTICATION_CONFIGURATION_H_
#define NIMBREL_AUTHENTICATION_CONFIGURATION_H_

#include <map>
#include <string>
#include <utility>

#include "authentication/export.h"

namespace nimbrel::authentication {

// The settings of one file, as an ordered map that callers may walk and extend with the map's own operations.
class NIMAUTH_EXPORT Configuration : public std::map<std::string, std::string> {
 public:
    // Reads `path`. Throws `IOError` if it cannot be opened or read, `ConfigurationError` with the line's number if a
    // line is malformed.
    explicit Configuration(const std::string& path);
    virtual ~Configuration();

    // Replaces the file with the present contents, one `key = "value"` line per entry in key order. The file's
    // permissions are kept; a file that did not exist gets mode 0600. Nothing is escaped: a value with a newline, and a
    // key with '=', a newline, outer blanks or enclosing quotes, will not read back as it was.
    //
    // Throws `IOError` if the new contents could not be written or put in place (the old file stays as it was), and
    // `FilePermissionError` if they are in place but the permissions could not be carried over.
    virtual void Write() const;

    // The value of an existing key. Throws `InvalidKeyException` if there is none; a key is never added.
    const std::string& operator[](const std::string& key) const;
    std::string& operator[](const std::string& key);

 private:
    std::string _path;
};

// Splits one line into its cleaned key and value. `lineNumber` is only used in the message of the `ConfigurationError`
// that is thrown for a line without '=' or a field that is a lone quote.
NIMAUTH_EXPORT std::pair<std::string, std::string> GetKeyValuePair(const std::string& line, int lineNumber);

// /etc/nimbrel/nimauth/authentication.conf: "remote-authentication-store" is the display name of the active store,
// "None" or "Active Directory".
class NIMAUTH_EXPORT AuthenticationConfiguration : public Configuration {
 public:
    AuthenticationConfiguration();
    ~AuthenticationConfiguration() override;
};

// /etc/nimbrel/nimauth/provider.conf: "provider" names the directory provider plug-in, "embedded" for
// /usr/libexec/nimauth/libembedded.so.
class NIMAUTH_EXPORT ProviderConfiguration : public Configuration {
 public:
    ProviderConfiguration();
    ~ProviderConfiguration() override;
};

// /etc/nimbrel/nimauth/apxprovider.conf: "provider" names the authentication-proxy plug-in.
class NIMAUTH_EXPORT APXProviderConfiguration : public Configuration {
 public:
    APXProviderConfiguration();
    ~APXProviderConfiguration() override;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_CONFIGURATION_H_
