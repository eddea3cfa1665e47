// The Kerberos side of a sealed LDAP connection: the two tokens by which host and controller prove who they are to each
// other, and the wrapping of every message after that (RFC 4121, with AES keys).
//
// It stands on a service ticket and a private Kerberos context, so that no setting of /etc/krb5.conf, no name look-up
// and no process-wide credential cache has a say in it.
//
// One object belongs to one connection and one thread at a time. Errors: `AdError` with 1355 for a peer that does not
// prove itself or whose message was altered, dropped or repeated; the connection is useless then.

#ifndef NIMBREL_AD_SEALED_CHANNEL_H_
#define NIMBREL_AD_SEALED_CHANNEL_H_

#include <krb5/krb5.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "pluginkit/secret.h"

namespace nimbrel::ad {

class SealedChannel {
 public:
    // How large a sealed message of the controller's we say that we take.
    static constexpr std::size_t kMaximumMessage = 0xffff;

    // `ticket` is a service ticket with an AES session key, used until `Request` has returned. The context must outlive the
    // object.
    SealedChannel(krb5_context context, krb5_creds* ticket);
    SealedChannel(const SealedChannel&) = delete;
    SealedChannel& operator=(const SealedChannel&) = delete;
    ~SealedChannel();

    // The token that opens the exchange.
    std::string Request();
    // Takes the controller's answer to it; both sides hold the same key then.
    void Accept(std::string_view reply);

    // Sealed: encrypted, and protected against change and repetition. Signed: the latter only.
    std::string Seal(std::string_view message);
    std::string Sign(std::string_view message);
    // The message of a token of either kind; `sealed` says which it must be.
    kit::Secret Open(std::string_view token, bool sealed);

 private:
    std::string Header(unsigned char flags, std::uint16_t extraCount);
    kit::Secret OpenSealed(std::string_view header, std::string_view body, std::size_t extraCount);
    kit::Secret OpenSigned(std::string_view header, std::string_view body, std::size_t checksumSize);

    krb5_context _context;
    krb5_creds* _ticket;
    krb5_auth_context _exchange = nullptr;
    krb5_key _key = nullptr;
    bool _keyIsAcceptors = false;
    std::uint64_t _sent = 0;
    std::uint64_t _received = 0;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_SEALED_CHANNEL_H_
