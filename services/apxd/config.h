// The service's configuration file, /etc/nimbrel/apxd.conf:
//
//     # who may ask                                                 1
//     allow = 192.0.2.0/24                                          2
//     allow = 2001:db8:1::/64                                       3
//     domain = corp.test                                            4
//                                                                   5
//     certificate = /etc/nimbrel/apxd/certificate.pem               6
//
// Lines 1 and 5 say nothing. Each other line is a key, "=", and a value that goes to the end of the line, blanks around it
// dropped; nothing is quoted. `allow`, `allow-unit` and `pre-staged` may be repeated, every other key stands once.
// docs/formats/apxd-configuration.md lists the keys.

#ifndef NIMBREL_APXD_CONFIG_H_
#define NIMBREL_APXD_CONFIG_H_

#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "services/apxd/names.h"

namespace nimbrel::apxd {

inline constexpr char kDefaultConfigFile[] = "/etc/nimbrel/apxd.conf";

struct Config {
    std::string address = "0.0.0.0";
    std::uint32_t port = 8443;
    std::string certificateFile;  // PEM, with the certificates of its issuers behind it, if any
    std::string keyFile;          // PEM
    std::string clientCaFile;     // PEM; empty if clients need no certificate
    std::string clientCrlFile;    // PEM; empty if no certificate is revoked
    bool anyClientName = false;   // a client's certificate is good for accounts that it does not name, too

    std::vector<Network> allowed;
    std::uint32_t requestsPerMinute = 120;  // of one client
    std::uint32_t burst = 60;
    std::uint32_t connections = 256;
    std::uint32_t connectionsPerClient = 16;
    std::uint32_t requestSeconds = 10;  // for a client to send its request, and again to take the answer
    std::uint32_t stopSeconds = 20;     // for requests under way when the service is told to stop

    std::string domain;                                           // DNS name
    std::string backEnd = "embedded";                             // or "ad"
    std::string directoryFile = "/var/lib/nimbrel/directory.db";  // of the embedded directory
    std::string keytab;                                           // of the back end "ad"
    std::string principal;

    std::string defaultUnit;                // empty: the directory's own default place
    std::vector<std::string> allowedUnits;  // empty: any that the service's own account may write
    std::set<std::string> preStaged;        // account names in upper case

    std::string ledgerFile = "/var/lib/nimbrel-apxd/ledger";
    std::uint32_t retrySeconds = 86400;  // how long a client whose answer was lost may ask again
};

// "FILE:LINE: what is wrong"; line 0 for something that is missing.
class ConfigError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// Throws `ConfigError`. `file` stands in its messages only.
Config ParseConfig(const std::string& text, const std::string& file);

// Throws `ConfigError` too if the file cannot be read.
Config ReadConfig(const std::string& file);

// The contents of a file that the configuration names. Throws `ConfigError`, also if it is larger than so many bytes.
std::string ReadTextFile(const std::string& path, std::size_t largest = 1024UL * 1024);

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_CONFIG_H_
