// Whose certificate a peer has shown.
//
//     if (!IsCertificateOf(der, "corp.test")) ...   // also for one of "*.test", or with the name as common name only
//
// TLS libraries take "*.corp.test" for every host of the domain; a certificate that a web server's administrator gets
// is no proof of a controller.
//
// Threads: any. No errors: what cannot be read is nobody's.

#ifndef NIMBREL_AD_CERTIFICATE_H_
#define NIMBREL_AD_CERTIFICATE_H_

#include <string>
#include <string_view>

namespace nimbrel::ad {

// Whether `host` stands among the DNS names of its subject alternative names, as a whole and whatever the case of its
// letters. `der` is the certificate's encoded form; who signed it was looked at before.
bool IsCertificateOf(std::string_view der, const std::string& host);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_CERTIFICATE_H_
