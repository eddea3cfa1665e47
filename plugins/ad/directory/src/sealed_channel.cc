#include "sealed_channel.h"

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "addirectory/ad_error.h"

namespace nimbrel::ad {
namespace {

// The mechanism's name in a token, DER: 1.2.840.113554.1.2.2.
constexpr std::string_view kMechanism("\x06\x09\x2a\x86\x48\x86\xf7\x12\x01\x02\x02", 11);
constexpr std::string_view kRequestToken("\x01\x00", 2);
constexpr std::string_view kReplyToken("\x02\x00", 2);

constexpr krb5_cksumtype kGssChecksum = 0x8003;
// No channel bindings; mutual authentication, replay and sequence detection, confidentiality, integrity.
constexpr std::string_view kGssChecksumData("\x10\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x3e\0\0\0", 24);

constexpr std::size_t kHeaderSize = 16;
constexpr unsigned char kSentByAcceptor = 0x01;
constexpr unsigned char kSealed = 0x02;
constexpr unsigned char kAcceptorsKey = 0x04;
constexpr krb5_keyusage kUsageOfAcceptor = 22;
constexpr krb5_keyusage kUsageOfInitiator = 24;

[[noreturn]] void FailChannel(const std::string& reason) {
    throw AdError(kStatusNoSuchDomain, "The controller's side of the sealed connection is not valid: " + reason);
}

void Check(krb5_error_code error, const char* step) {
    if (error != 0) {
        FailChannel(std::string(step) + ", Kerberos error " + std::to_string(error));
    }
}

krb5_data Data(std::string_view text) {
    krb5_data data = {};
    data.length = static_cast<unsigned>(text.size());
    data.data = const_cast<char*>(text.data());
    return data;
}

std::string DerLength(std::size_t length) {
    if (length < 0x80) {
        return {static_cast<char>(length)};
    }
    std::string bytes;
    for (; length > 0; length >>= 8) {
        bytes.insert(bytes.begin(), static_cast<char>(length & 0xff));
    }
    return static_cast<char>(0x80 | bytes.size()) + bytes;
}

std::string Frame(std::string_view kind, std::string_view message) {
    const std::size_t size = kMechanism.size() + kind.size() + message.size();
    return '`' + DerLength(size) + std::string(kMechanism) + std::string(kind) + std::string(message);
}

std::string_view Unframe(std::string_view framed, std::string_view kind) {
    if (framed.size() < 2 || framed[0] != '\x60') {
        FailChannel("not a token");
    }
    const auto first = static_cast<unsigned char>(framed[1]);
    const std::size_t lengthBytes = first < 0x80 ? 0 : first & 0x7fU;
    const std::size_t start = 2 + lengthBytes;
    const std::string expected = std::string(kMechanism) + std::string(kind);
    if (framed.size() < start + expected.size() || framed.substr(start, expected.size()) != expected) {
        FailChannel("another kind of token");
    }
    return framed.substr(start + expected.size());
}

void PutBigEndian(std::string& header, std::size_t at, std::uint64_t value, std::size_t size) {
    for (std::size_t i = size; i-- > 0; value >>= 8) {
        header[at + i] = static_cast<char>(value & 0xff);
    }
}

std::uint64_t BigEndian(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

// Both kinds of protection cover the message followed by the header.
kit::Secret Joined(std::string_view message, std::string_view header) {
    std::vector<char> bytes;
    bytes.reserve(message.size() + header.size());
    bytes.insert(bytes.end(), message.begin(), message.end());
    bytes.insert(bytes.end(), header.begin(), header.end());
    kit::Secret joined(std::string_view(bytes.data(), bytes.size()));
    kit::Wipe(bytes.data(), bytes.size());
    return joined;
}

krb5_cksumtype ChecksumType(krb5_context context, krb5_key key) {
    switch (krb5_k_key_enctype(context, key)) {
        case ENCTYPE_AES256_CTS_HMAC_SHA1_96:
            return CKSUMTYPE_HMAC_SHA1_96_AES256;
        case ENCTYPE_AES128_CTS_HMAC_SHA1_96:
            return CKSUMTYPE_HMAC_SHA1_96_AES128;
        default:
            FailChannel("no AES key");
    }
}

}  // namespace

SealedChannel::SealedChannel(krb5_context context, krb5_creds* ticket) : _context(context), _ticket(ticket) {
    Check(krb5_auth_con_init(_context, &_exchange), "no memory");
    krb5_auth_con_setflags(_context, _exchange, KRB5_AUTH_CONTEXT_DO_SEQUENCE);
    krb5_auth_con_set_req_cksumtype(_context, _exchange, kGssChecksum);
}

SealedChannel::~SealedChannel() {
    krb5_k_free_key(_context, _key);
    krb5_auth_con_free(_context, _exchange);
}

std::string SealedChannel::Request() {
    krb5_data checksumData = Data(kGssChecksumData);
    krb5_data request = {};
    Check(krb5_mk_req_extended(_context, &_exchange, AP_OPTS_MUTUAL_REQUIRED | AP_OPTS_USE_SUBKEY, &checksumData,
                               _ticket, &request),
          "the request");
    std::string token = Frame(kRequestToken, {request.data, request.length});
    krb5_free_data_contents(_context, &request);
    krb5_int32 sequence = 0;
    Check(krb5_auth_con_getlocalseqnumber(_context, _exchange, &sequence), "the request");
    _sent = static_cast<std::uint32_t>(sequence);
    return token;
}

void SealedChannel::Accept(std::string_view reply) {
    krb5_data message = Data(Unframe(reply, kReplyToken));
    krb5_ap_rep_enc_part* answer = nullptr;
    Check(krb5_rd_rep(_context, _exchange, &message, &answer), "its proof");
    _received = static_cast<std::uint32_t>(answer->seq_number);
    _keyIsAcceptors = answer->subkey != nullptr;
    krb5_free_ap_rep_enc_part(_context, answer);
    Check(krb5_auth_con_getrecvsubkey_k(_context, _exchange, &_key), "its key");
    if (!_key) {
        FailChannel("no key");
    }
    ChecksumType(_context, _key);
}

std::string SealedChannel::Header(unsigned char flags, std::uint16_t extraCount) {
    std::string header(kHeaderSize, '\0');
    header[0] = 0x05;
    header[1] = 0x04;
    header[2] = static_cast<char>(flags | (_keyIsAcceptors ? kAcceptorsKey : 0));
    header[3] = '\xff';
    PutBigEndian(header, 4, extraCount, 2);
    PutBigEndian(header, 8, _sent, 8);
    return header;
}

std::string SealedChannel::Seal(std::string_view message) {
    const std::string header = Header(kSealed, 0);
    const kit::Secret plain = Joined(message, header);
    std::size_t size = 0;
    Check(krb5_c_encrypt_length(_context, krb5_k_key_enctype(_context, _key), plain.View().size(), &size), "sealing");
    std::string token(kHeaderSize + size, '\0');
    token.replace(0, kHeaderSize, header);
    const krb5_data input = Data(plain.View());
    krb5_enc_data output = {};
    output.ciphertext = Data(std::string_view(token).substr(kHeaderSize));
    Check(krb5_k_encrypt(_context, _key, kUsageOfInitiator, nullptr, &input, &output), "sealing");
    ++_sent;
    return token;
}

std::string SealedChannel::Sign(std::string_view message) {
    const kit::Secret covered = Joined(message, Header(0, 0));
    const krb5_data input = Data(covered.View());
    krb5_checksum checksum = {};
    Check(krb5_k_make_checksum(_context, ChecksumType(_context, _key), _key, kUsageOfInitiator, &input, &checksum),
          "signing");
    std::string token = Header(0, static_cast<std::uint16_t>(checksum.length)) + std::string(message);
    token.append(reinterpret_cast<const char*>(checksum.contents), checksum.length);
    krb5_free_checksum_contents(_context, &checksum);
    ++_sent;
    return token;
}

kit::Secret SealedChannel::Open(std::string_view token, bool sealed) {
    if (token.size() < kHeaderSize || token[0] != 0x05 || token[1] != 0x04 || token[3] != '\xff') {
        FailChannel("not a sealed message");
    }
    const auto flags = static_cast<unsigned char>(token[2]);
    const auto expected =
        static_cast<unsigned char>(kSentByAcceptor | (sealed ? kSealed : 0) | (_keyIsAcceptors ? kAcceptorsKey : 0));
    if ((flags & (kSentByAcceptor | kSealed | kAcceptorsKey)) != expected) {
        FailChannel("another kind of message");
    }
    if (BigEndian(token, 8, 8) != _received) {
        FailChannel("a message is missing or repeated");
    }
    ++_received;
    std::string body(token.substr(kHeaderSize));
    const std::size_t rotation = body.empty() ? 0 : BigEndian(token, 6, 2) % body.size();
    std::rotate(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(rotation), body.end());
    const std::size_t extraCount = BigEndian(token, 4, 2);
    return sealed ? OpenSealed(token.substr(0, kHeaderSize), body, extraCount)
                  : OpenSigned(token.substr(0, kHeaderSize), body, extraCount);
}

// The decrypted text is the message, `extraCount` filling bytes, and the header with its rotation taken out.
kit::Secret SealedChannel::OpenSealed(std::string_view header, std::string_view body, std::size_t extraCount) {
    krb5_enc_data input = {};
    input.enctype = krb5_k_key_enctype(_context, _key);
    input.ciphertext = Data(body);
    std::vector<char> plain(body.size());
    krb5_data output = Data({plain.data(), plain.size()});
    Check(krb5_k_decrypt(_context, _key, kUsageOfAcceptor, nullptr, &input, &output), "its seal");
    std::string inner(header);
    PutBigEndian(inner, 6, 0, 2);
    const std::string_view text(plain.data(), output.length);
    if (text.size() < kHeaderSize + extraCount || text.substr(text.size() - kHeaderSize) != inner) {
        kit::Wipe(plain.data(), plain.size());
        FailChannel("its header");
    }
    kit::Secret message(text.substr(0, text.size() - kHeaderSize - extraCount));
    kit::Wipe(plain.data(), plain.size());
    return message;
}

kit::Secret SealedChannel::OpenSigned(std::string_view header, std::string_view body, std::size_t checksumSize) {
    if (body.size() < checksumSize) {
        FailChannel("its signature");
    }
    std::string covering(header);
    PutBigEndian(covering, 4, 0, 4);
    const std::string_view message = body.substr(0, body.size() - checksumSize);
    const kit::Secret covered = Joined(message, covering);
    const krb5_data input = Data(covered.View());
    krb5_checksum checksum = {};
    checksum.checksum_type = ChecksumType(_context, _key);
    checksum.length = static_cast<unsigned>(checksumSize);
    std::vector<krb5_octet> bytes(body.end() - static_cast<std::ptrdiff_t>(checksumSize), body.end());
    checksum.contents = bytes.data();
    krb5_boolean valid = 0;
    Check(krb5_k_verify_checksum(_context, _key, kUsageOfAcceptor, &input, &checksum, &valid), "its signature");
    if (!valid) {
        FailChannel("its signature");
    }
    return kit::Secret(message);
}

}  // namespace nimbrel::ad
