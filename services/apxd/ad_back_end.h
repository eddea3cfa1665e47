// The back end over Active Directory, with a keytab of the service's own account.

#ifndef NIMBREL_APXD_AD_BACK_END_H_
#define NIMBREL_APXD_AD_BACK_END_H_

#include <memory>
#include <string>

#include "services/apxd/back_end.h"

namespace nimbrel::apxd {

// `principal` is the account's name, as "apxd" or "APX01$". How controllers are found and how long they may take is read
// from /etc/nimbrel/nimauth/ad.conf, if there is one. Throws `Refusal` 1610 for a malformed one,
// and for a keytab that cannot be read or has no AES key of the account. Asks no controller.
std::unique_ptr<BackEnd> MakeAdBackEnd(const std::string& domain, const std::string& principal,
                                       const std::string& keytab);

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_AD_BACK_END_H_
