#include "ldap_transport.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "addirectory/ad_error.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kLengthBytes = 4;
constexpr std::size_t kSealOverhead = 128;
// What we take at most, and as much for what sealing adds as nobody needs.
constexpr std::size_t kMaximumToken = SealedChannel::kMaximumMessage + 1024;

LdapTransport& Self(Sockbuf_IO_Desc* descriptor) { return *static_cast<LdapTransport*>(descriptor->sbiod_pvt); }

extern "C" {

static int SetUp(Sockbuf_IO_Desc* descriptor, void* transport) {
    descriptor->sbiod_pvt = transport;
    return 0;
}

static int TakeDown(Sockbuf_IO_Desc*) { return 0; }

static int Control(Sockbuf_IO_Desc* descriptor, int option, void*) {
    return option == LBER_SB_OPT_DATA_READY && Self(descriptor).HasPlain() ? 1 : 0;
}

static ber_slen_t ReadBytes(Sockbuf_IO_Desc* descriptor, void* bytes, ber_len_t size) {
    return Self(descriptor).Read(bytes, size);
}

static ber_slen_t WriteBytes(Sockbuf_IO_Desc* descriptor, void* bytes, ber_len_t size) {
    return Self(descriptor).Write(bytes, size);
}

static int Close(Sockbuf_IO_Desc*) { return 0; }  // the transport closes its socket itself

static int ControlBelow(Sockbuf_IO_Desc* descriptor, int option, void* argument) {
    return LBER_SBIOD_CTRL_NEXT(descriptor, option, argument);
}

static ber_slen_t ReadBelow(Sockbuf_IO_Desc* descriptor, void* bytes, ber_len_t size) {
    return LBER_SBIOD_READ_NEXT(descriptor, bytes, size);
}

static ber_slen_t WriteAndWipe(Sockbuf_IO_Desc* descriptor, void* bytes, ber_len_t size) {
    const ber_slen_t written = LBER_SBIOD_WRITE_NEXT(descriptor, bytes, size);
    if (written > 0 && Self(descriptor).IsWiping()) {
        kit::Wipe(bytes, static_cast<std::size_t>(written));
    }
    return written;
}

}  // extern "C"

std::size_t TokenSize(std::string_view length) {
    std::size_t size = 0;
    for (std::size_t i = 0; i < kLengthBytes; ++i) {
        size = size << 8 | static_cast<unsigned char>(length[i]);
    }
    return size;
}

std::string Length(std::size_t size) {
    std::string bytes;
    for (std::size_t i = kLengthBytes; i-- > 0;) {
        bytes += static_cast<char>(size >> (8 * i) & 0xff);
    }
    return bytes;
}

}  // namespace

void MessageCounter::Take(std::string_view bytes) {
    while (true) {
        const std::size_t skipped = std::min(_rest, bytes.size());
        _rest -= skipped;
        bytes.remove_prefix(skipped);
        if (bytes.empty()) {
            return;
        }
        _header += bytes.front();
        bytes.remove_prefix(1);
        const auto first = _header.size() > 1 ? static_cast<unsigned char>(_header[1]) : 0U;
        const std::size_t lengthBytes = first < 0x80 ? 0 : first & 0x7fU;
        if (_header.size() > 1 && _header.size() == 2 + lengthBytes) {
            _rest = lengthBytes == 0 ? first : 0;
            for (const char byte : std::string_view(_header).substr(2)) {
                _rest = _rest << 8 | static_cast<unsigned char>(byte);
            }
            _header.clear();
            ++_count;
        }
    }
}

void LdapTransport::Attach(Sockbuf* buffer) {
    static Sockbuf_IO operations = {SetUp, TakeDown, Control, ReadBytes, WriteBytes, Close};
    static Sockbuf_IO wiping = {SetUp, TakeDown, ControlBelow, ReadBelow, WriteAndWipe, Close};
    if (ber_sockbuf_add_io(buffer, &operations, LBER_SBIOD_LEVEL_PROVIDER, this) != 0 ||
        ber_sockbuf_add_io(buffer, &wiping, LBER_SBIOD_LEVEL_APPLICATION, this) != 0) {
        throw AdError(kStatusNotEnoughMemory, "The LDAP library takes no transport");
    }
}

void LdapTransport::Seal(std::unique_ptr<SealedChannel> channel, std::size_t maximumMessage) {
    _maximumMessage = std::clamp<std::size_t>(maximumMessage, 2 * kSealOverhead, 65536) - kSealOverhead;
    _channel = std::move(channel);
}

ber_slen_t LdapTransport::Read(void* bytes, std::size_t size) noexcept {
    try {
        const ber_slen_t got =
            _channel ? ReadSealed(static_cast<char*>(bytes), size) : recv(_socket.Number(), bytes, size, 0);
        const std::string_view taken(static_cast<const char*>(bytes), got > 0 ? static_cast<std::size_t>(got) : 0);
        _received += taken.size();
        _messages.Take(taken);
        return got;
    } catch (const std::exception& error) {
        _fault = error.what();  // translated: libldap knows error numbers only
        errno = EIO;
        return -1;
    }
}

ber_slen_t LdapTransport::Write(void* bytes, std::size_t size) noexcept {
    const std::string_view text(static_cast<const char*>(bytes), size);
    try {
        _channel ? WriteSealed(text) : SendAll(_socket.Number(), text, _deadline);
    } catch (const std::exception& error) {
        _fault = error.what();  // translated, as above
        errno = EIO;
        return -1;
    }
    return static_cast<ber_slen_t>(size);
}

// At most one message is opened, so that a controller with an endless supply of empty ones cannot keep the caller from
// looking at the time.
ber_slen_t LdapTransport::ReadSealed(char* bytes, std::size_t size) {
    if (!HasPlain()) {
        switch (ReadToken()) {
            case Progress::Waiting:
                errno = EAGAIN;
                return -1;
            case Progress::Closed:
                return 0;
            case Progress::Complete:
                break;
        }
        _plain = _channel->Open(std::string_view(_token).substr(kLengthBytes), true);
        _plainAt = 0;
        _token.clear();
    }
    if (!HasPlain()) {
        errno = EAGAIN;
        return -1;
    }
    const std::string_view rest = _plain.View().substr(_plainAt);
    const std::size_t count = std::min(size, rest.size());
    std::memcpy(bytes, rest.data(), count);
    _plainAt += count;
    if (!HasPlain()) {
        ForgetPlain();
    }
    return static_cast<ber_slen_t>(count);
}

LdapTransport::Progress LdapTransport::ReadToken() {
    while (true) {
        const bool hasLength = _token.size() >= kLengthBytes;
        const std::size_t size = hasLength ? TokenSize(_token) : 0;
        if (hasLength && (size == 0 || size > kMaximumToken)) {
            throw AdError(kStatusNoSuchDomain, "The controller's message has no sensible length");
        }
        const std::size_t missing = kLengthBytes + size - _token.size();
        if (hasLength && missing == 0) {
            return Progress::Complete;
        }
        std::array<char, 8192> piece;  // what is announced need not come
        const ssize_t got = recv(_socket.Number(), piece.data(), std::min(missing, piece.size()), 0);
        const int error = errno;
        if (got <= 0) {
            return got < 0 && (error == EAGAIN || error == EINTR) ? Progress::Waiting : Progress::Closed;
        }
        _token.append(piece.data(), static_cast<std::size_t>(got));
    }
}

void LdapTransport::WriteSealed(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto part = bytes.substr(0, _maximumMessage);
        const std::string token = _channel->Seal(part);
        SendAll(_socket.Number(), Length(token.size()) + token, _deadline);
        bytes.remove_prefix(part.size());
    }
}

void LdapTransport::ForgetPlain() {
    _plain = kit::Secret();
    _plainAt = 0;
}

}  // namespace nimbrel::ad
