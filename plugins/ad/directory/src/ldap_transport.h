// The byte stream under libldap: a non-blocking socket, plain or sealed, whose writes end with a deadline.

#ifndef NIMBREL_AD_LDAP_TRANSPORT_H_
#define NIMBREL_AD_LDAP_TRANSPORT_H_

#include <lber.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "deadline.h"
#include "sealed_channel.h"
#include "sockets.h"

namespace nimbrel::ad {

// Counts the messages in a stream of BER, in whatever pieces it comes. Bytes that are no BER give some number.
class MessageCounter {
 public:
    void Take(std::string_view bytes);
    // Those that have begun, once their length is known.
    std::size_t Count() const { return _count; }

 private:
    std::string _header;    // as far as it has come
    std::size_t _rest = 0;  // of the message under way
    std::size_t _count = 0;
};

class LdapTransport {
 public:
    LdapTransport(kit::Descriptor socket, const Deadline& deadline) : _socket(std::move(socket)), _deadline(deadline) {}
    LdapTransport(const LdapTransport&) = delete;
    LdapTransport& operator=(const LdapTransport&) = delete;
    ~LdapTransport() { ForgetPlain(); }

    // Puts itself below `buffer`, which must not outlive it, and above everything else what wipes.
    void Attach(Sockbuf* buffer);
    // From the next byte on everything is sealed; the peer takes messages of `maximumMessage` bytes at most.
    void Seal(std::unique_ptr<SealedChannel> channel, std::size_t maximumMessage);

    int Socket() const { return _socket.Number(); }
    void SetDeadline(const Deadline& deadline) { _deadline = deadline; }
    const Deadline& CurrentDeadline() const { return _deadline; }
    // What is written from now on is wiped in the writer's own buffer, also where TLS lies between.
    void SetWiping(bool wiping) { _wiping = wiping; }
    bool IsWiping() const { return _wiping; }
    // True if `Read` would return bytes without the socket.
    bool HasPlain() const { return _plainAt < _plain.View().size(); }
    // How many bytes and messages libldap has been given so far.
    std::size_t Received() const { return _received; }
    std::size_t ReceivedMessages() const { return _messages.Count(); }
    // Why the last read or write failed, where it was more than the end of the connection.
    const std::string& Fault() const { return _fault; }

    // As read(2) and write(2) on a non-blocking socket; a write waits for room until the deadline.
    ber_slen_t Read(void* bytes, std::size_t size) noexcept;
    ber_slen_t Write(void* bytes, std::size_t size) noexcept;

 private:
    enum class Progress { Waiting, Complete, Closed };

    ber_slen_t ReadSealed(char* bytes, std::size_t size);
    Progress ReadToken();
    void WriteSealed(std::string_view bytes);
    void ForgetPlain();

    kit::Descriptor _socket;
    Deadline _deadline;
    std::unique_ptr<SealedChannel> _channel;
    std::size_t _maximumMessage = 0;
    std::string _token;  // as far as it has come, its four bytes of length first
    kit::Secret _plain;  // opened, and read from `_plainAt` on
    std::size_t _plainAt = 0;
    bool _wiping = false;
    std::string _fault;
    std::size_t _received = 0;
    MessageCounter _messages;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_LDAP_TRANSPORT_H_
