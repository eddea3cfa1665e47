#include "certificate.h"

#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

namespace nimbrel::ad {
namespace {

struct FreeCertificate {
    void operator()(X509* certificate) const { X509_free(certificate); }
};

// The caller's errors are its own.
class ErrorMark {
 public:
    ErrorMark() { ERR_set_mark(); }
    ErrorMark(const ErrorMark&) = delete;
    ErrorMark& operator=(const ErrorMark&) = delete;
    ~ErrorMark() { ERR_pop_to_mark(); }
};

constexpr unsigned kWholeAlternativeNames = X509_CHECK_FLAG_NO_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;

}  // namespace

bool IsCertificateOf(std::string_view der, const std::string& host) {
    const ErrorMark mark;
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
    const std::unique_ptr<X509, FreeCertificate> certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
    return certificate && !host.empty() &&
           X509_check_host(certificate.get(), host.data(), host.size(), kWholeAlternativeNames, nullptr) == 1;
}

}  // namespace nimbrel::ad
