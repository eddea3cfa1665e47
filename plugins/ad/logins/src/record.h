// What was set up for log-ins on this host, as `leave` will need it: /var/lib/nimbrel/ad-log-ins.conf.
//
//     1  # Written by nimauth: what was set up for log-ins of domain users, so that a leave can take it away.
//     2  domain corp.test
//     3  realm CORP.TEST
//     4  netbios CORP
//     5  host node01.corp.test
//     6  account NODE01$
//     7  keytab /etc/krb5.keytab
//     8  trusted trust.test
//     9  controller dc2.corp.test
//    10  smart-cards set
//    11  smart-card sshd
//    12  sssd-ran
//
// Lines 2 to 7 are there on a joined host, 8 and 9 once for each name, in order. Line 10 says that smart-card services
// were set; without a line 11 then, to none. Line 12 says that SSSD ran already when the host joined. A line that is none
// of these, or whose value is malformed, counts as absent: a leave must be possible with a damaged record.

#ifndef NIMBREL_AD_LOGINS_RECORD_H_
#define NIMBREL_AD_LOGINS_RECORD_H_

#include <optional>
#include <string>
#include <vector>

#include "adlogins/log_ins.h"

namespace nimbrel::ad::logins {

struct Record {
    std::optional<DomainLogIns> domain;  // only if lines 2 to 7 are all there
    std::vector<std::string> controllers;
    std::optional<std::vector<std::string>> smartCardServices;
    bool sssdRan = false;
};

Record ParseRecord(const std::string& text);
std::string FormatRecord(const Record& record);

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_RECORD_H_
