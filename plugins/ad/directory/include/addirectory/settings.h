// The provider's settings: /etc/nimbrel/nimauth/ad.conf, which need not exist.
//
//     1  # a site without name-server entries of its own
//     2  query_seconds = 5
//     3  name_servers = "10.99.0.1 10.99.0.2"
//     4  certificate_authority = "/etc/ssl/corp-ca.pem"
//
// Line 1 is a comment, empty lines are skipped, every other line is a key, "=", and a value with or without double
// quotes. The reader is strict, because a setting that is silently ignored is worse than an error: an unknown or
// repeated key, a number out of its range, a relative path or a control character in a value ends with status 1610 and
// the line's number.
//
// Plain values; read anew for each operation, so that a change counts for the next one. A log-in that a process keeps
// open for up to ten seconds stays as it was made, unless the change names another membership file or keytab.

#ifndef NIMBREL_AD_SETTINGS_H_
#define NIMBREL_AD_SETTINGS_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::ad {

inline constexpr char kDefaultSettingsPath[] = "/etc/nimbrel/nimauth/ad.conf";

struct Settings {
    // How long an operation may take as a whole. What a failed join has to take back is not counted in its budget.
    std::chrono::milliseconds joinBudget{60'000};      // join_seconds, 1 to 600
    std::chrono::milliseconds leaveBudget{30'000};     // leave_seconds, 1 to 600
    std::chrono::milliseconds queryBudget{15'000};     // query_seconds, 1 to 600
    std::chrono::milliseconds rollBackBudget{10'000};  // roll_back_seconds, 1 to 600

    // How long one controller has for each answer while another one may be tried.
    std::chrono::milliseconds controllerBudget{2'000};  // controller_seconds, 1 to 60
    // How long the name servers have for one question.
    std::chrono::milliseconds nameBudget{4'000};  // name_seconds, 1 to 60
    // How long a controller that did not answer is asked last.
    std::chrono::seconds avoidance{60};  // avoid_seconds, 0 to 3600

    std::vector<std::string> nameServers;  // name_servers: addresses; empty for those of /etc/resolv.conf
    std::string site;                      // site; empty to be told by a controller
    std::uint16_t kerberosPort = 88;       // kerberos_port
    std::uint16_t ldapPort = 389;          // ldap_port
    std::uint16_t ldapsPort = 636;         // ldaps_port
    std::uint16_t nameServerPort = 53;     // name_server_port

    // Authorities (PEM) that may have signed a controller's certificate. With them a refused log-in can be told apart
    // into disabled, expired and locked; empty for none. (certificate_authority)
    std::string certificateAuthority;

    std::string keytab = "/etc/krb5.keytab";                    // keytab
    std::string membership = "/var/lib/nimbrel/ad/membership";  // membership

    // How domain users appear on the host, as the log-in software takes them (log_in_shell, log_in_home,
    // log_in_full_names, log_in_access).
    std::string logInShell = "/bin/bash";
    std::string logInHome = "/home/%u@%d";
    bool logInFullNames = true;
    std::string logInAccess = "ad";

    // The defaults when the file does not exist. Throws `AdError`: 1610 for a malformed file, 5 for one that cannot be
    // read or that others than its owner may write.
    static Settings Load(const std::string& path = kDefaultSettingsPath);
    static Settings Parse(std::string_view text);
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_SETTINGS_H_
