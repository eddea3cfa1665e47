// Log-ins of domain users on this host: what SSSD must know about the joined domain, kept in files of its own.
//
//     LogIns logIns;
//     logIns.Enable({.dnsName = "corp.test", .realm = "CORP.TEST", .netbiosName = "CORP",
//                    .hostName = "node01.corp.test", .machineAccount = "NODE01$", .keytab = "/etc/krb5.keytab"});
//     logIns.SetPreferredControllers({"dc2.corp.test"});
//     logIns.Disable();
//
// writes, and takes away again,
//
//     /etc/sssd/conf.d/50-nimauth-domain.conf         the domain, and one section for each trusted forest
//     /etc/sssd/conf.d/55-nimauth-controllers.conf    the preferred controllers, if there are any
//     /etc/sssd/conf.d/60-nimauth-smartcard.conf      services with smart-card log-in, once they have been set
//     /var/lib/nimbrel/ad-log-ins.conf                what was done and set: the record that `Disable` goes by
//
// all of them root's, mode 0600 under any umask. The administrator's own SSSD files are read at most. After a change
// SSSD is restarted (or started), because it reads its configuration at no other time. Where SSSD is not installed the
// files are written all the same, and log-ins begin to work when it is. The name-service and PAM files are somebody
// else's.
//
// A change is all or nothing: a call that throws leaves the files as they were, and a process that is killed in the
// middle leaves each file either old or new, and the next call completes the change. The record is what counts, so
// settings that were made before a join are kept for it.
//
// Threads and processes: any number; changes take turns (a lock file beside the record). Nothing is cached.
//
// Errors: `StatusError` if nothing was changed: 5 not permitted, 87 malformed input, 2 the keytab is missing, 170 another
// process is changing the same for too long, 112 the disk is full, 1359 anything else.
//
// Time: a change may take about 24 seconds: 10 to take its turn, 2 to ask whether SSSD runs, 5 to stop it, and 2 and 5 to
// start it. An SSSD that does not obey in that time is reported to the system log and otherwise not waited for: a join
// does not fail because of it. Questions read files only.

#ifndef NIMBREL_AD_LOG_INS_H_
#define NIMBREL_AD_LOG_INS_H_

#include <string>
#include <vector>

#include "pluginkit/status_error.h"

namespace nimbrel::ad {

// The host's membership as SSSD needs it.
struct DomainLogIns {
    std::string dnsName;                           // "corp.test"
    std::string realm;                             // "CORP.TEST"
    std::string netbiosName;                       // "CORP"
    std::string hostName;                          // the host's full name: "node01.corp.test"
    std::string machineAccount;                    // "NODE01$"
    std::string keytab;                            // "/etc/krb5.keytab"; has to exist, or SSSD would not start at all
    std::vector<std::string> trustedForests = {};  // DNS names of forests whose users may log in too; those that SSSD
                                                   // does not take are left out, and the log says so
};

// How domain users appear on the host: the administrator's choice.
struct LogInOptions {
    std::string shell = "/bin/bash";   // log_in_shell: for users without one in the directory
    std::string home = "/home/%u@%d";  // log_in_home: the same; %u is the user's name, %d the domain's
    bool fullNames = true;      // log_in_full_names: "user@corp.test", so that no domain user passes for a local one
    std::string access = "ad";  // log_in_access: "ad" (accounts that are not disabled or expired), "simple"
                                // (the administrator's simple_allow_users and simple_allow_groups), or "deny"
};

class LogIns {
 public:
    // `root` is put before every path, the paths of programs included.
    explicit LogIns(std::string root = "", LogInOptions options = {});

    // Lets users of the domain log in. The keytab must be there already. Settings made before are kept. Enabling the same
    // again changes nothing but starts an SSSD that does not run; another domain takes the place of the old one.
    void Enable(const DomainLogIns& domain);

    // Takes everything away: the files above, SSSD's cached data of the domain (without which a cached password would
    // still log in), the credential caches of its users. SSSD is stopped, and started again if there is something else
    // for it to serve. Does nothing on a host where nothing was enabled or set. The keytab is the caller's; home
    // directories stay. Cached data that cannot be removed is thrown once everything else is gone, and calling again
    // tries again.
    void Disable();
    // The same but for what was set before a join, which is kept for the next one: takes a join back.
    void DisableDomain();

    // Controllers that SSSD asks first, in this order, before those that DNS names. Empty clears the setting.
    void SetPreferredControllers(const std::vector<std::string>& controllers);
    std::vector<std::string> PreferredControllers() const;

    // PAM services where a smart card is accepted; empty for none, which also switches the cards off. Repeated names
    // count once. A set that was never set reads as empty, and leaves SSSD's own default alone.
    void SetSmartCardServices(const std::vector<std::string>& services);
    std::vector<std::string> SmartCardServices() const;

 private:
    std::string _root;
    LogInOptions _options;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_LOG_INS_H_
