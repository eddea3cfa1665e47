// The Kerberos side of a sealed connection, against a controller that knows the keys: what is sealed or signed by the
// rules opens to the same message, what was changed on the way, or comes out of turn, never opens to another one, and
// any bytes in place of a token are refused.
//
// Input: a byte, then by its lowest bit the controller's proof as raw bytes, or a series of steps, each a byte and a
// field.

#include <krb5/krb5.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "addirectory/ad_error.h"
#include "fuzz.h"
#include "kerberos.h"
#include "sealed_channel.h"

namespace {

using fuzzing::Input;
using fuzzing::Require;
using namespace nimbrel::ad;

constexpr std::uint64_t kFirstNumber = 0x1000;
constexpr char kMechanism[] = "\x06\x09\x2a\x86\x48\x86\xf7\x12\x01\x02\x02";

std::string Der(int tag, const std::string& content) {
    std::string length;
    if (content.size() < 0x80) {
        length = static_cast<char>(content.size());
    } else {
        length = {'\x82', static_cast<char>(content.size() >> 8U), static_cast<char>(content.size() & 0xffU)};
    }
    return static_cast<char>(tag) + length + content;
}

// Takes one element's content; the tag is left in `tag`.
std::string TakeDer(std::string& bytes, int& tag) {
    tag = static_cast<unsigned char>(bytes.at(0));
    std::size_t length = static_cast<unsigned char>(bytes.at(1));
    std::size_t start = 2;
    if (length >= 0x80) {
        const std::size_t count = length & 0x7fU;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) length = length * 256 + static_cast<unsigned char>(bytes.at(start++));
    }
    const std::string content = bytes.substr(start, length);
    bytes.erase(0, start + length);
    return content;
}

std::string Inside(std::string bytes) {
    int tag = 0;
    return TakeDer(bytes, tag);
}

// The elements of a sequence by their tags.
std::map<int, std::string> Elements(std::string sequence) {
    std::map<int, std::string> elements;
    while (!sequence.empty()) {
        int tag = 0;
        const std::string content = TakeDer(sequence, tag);
        elements[tag] = content;
    }
    return elements;
}

krb5_data Data(const std::string& text) {
    krb5_data data = {};
    data.length = static_cast<unsigned>(text.size());
    data.data = const_cast<char*>(text.data());
    return data;
}

// The controller, and the ticket that the host has for it.
class Controller {
 public:
    Controller() : _context(MakeKerberosContext("CORP.TEST")) {
        _ticketText = Ticket();
        krb5_parse_name(Context(), "NODE01$@CORP.TEST", &_ticket.client);
        krb5_parse_name(Context(), "ldap/dc1.corp.test@CORP.TEST", &_ticket.server);
        _ticket.keyblock = KeyBlock(_sessionKey);
        _ticket.times.endtime = 0x7fffffff;
        _ticket.ticket = Data(_ticketText);
    }
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;
    ~Controller() {
        krb5_free_principal(Context(), _ticket.client);
        krb5_free_principal(Context(), _ticket.server);
    }

    krb5_context Context() const { return _context.get(); }
    krb5_creds* HostsTicket() { return &_ticket; }

    // The proof that answers a request by the rules, with a key of the controller's own.
    std::string Proof(const std::string& request) const {
        const auto elements = Elements(Inside(Inside(Inside(request).substr(13))));
        const auto encrypted = Elements(Inside(elements.at(0xa4)));
        const std::string authenticator = Decrypted(_sessionKey, 11, Inside(encrypted.at(0xa2)));
        const auto told = Elements(Inside(Inside(authenticator)));
        const std::string key = Der(0x30, Der(0xa0, Der(2, "\x12")) + Der(0xa1, Der(4, _ownKey)));
        const std::string number = {static_cast<char>(kFirstNumber >> 8U), static_cast<char>(kFirstNumber & 0xffU)};
        const std::string answer = Der(0x7b, Der(0x30, Der(0xa0, told.at(0xa5)) + Der(0xa1, told.at(0xa4)) +
                                                           Der(0xa2, key) + Der(0xa3, Der(2, number))));
        const std::string sealed = Encrypted(_sessionKey, 12, answer);
        return Framed(
            Der(0x6f, Der(0x30, Der(0xa0, Der(2, "\x05")) + Der(0xa1, Der(2, "\x0f")) +
                                    Der(0xa2, Der(0x30, Der(0xa0, Der(2, "\x12")) + Der(0xa2, Der(4, sealed)))))));
    }

    static std::string Framed(const std::string& message) {
        return Der(0x60, std::string(kMechanism) + std::string("\x02\0", 2) + message);
    }

    std::string Sealed(const std::string& message, std::uint64_t number, unsigned filling, unsigned rotation) const {
        const std::string inner = Header(0x07, filling, 0, number);
        std::string body = Encrypted(_ownKey, 22, message + std::string(filling, 'f') + inner);
        const auto turns = static_cast<std::ptrdiff_t>(rotation % body.size());
        std::rotate(body.begin(), body.end() - turns, body.end());
        return Header(0x07, filling, rotation, number) + body;
    }

    std::string Signed(const std::string& message, std::uint64_t number) const {
        const krb5_keyblock key = KeyBlock(_ownKey);
        const std::string covered = message + Header(0x05, 0, 0, number);
        const krb5_data input = Data(covered);
        krb5_checksum checksum = {};
        Require(krb5_c_make_checksum(Context(), CKSUMTYPE_HMAC_SHA1_96_AES256, &key, 22, &input, &checksum) == 0,
                "signed");
        const std::string sum(reinterpret_cast<const char*>(checksum.contents), checksum.length);
        krb5_free_checksum_contents(Context(), &checksum);
        return Header(0x05, static_cast<unsigned>(sum.size()), 0, number) + message + sum;
    }

    // What the host has sealed.
    std::string Opened(const std::string& token) const {
        const std::string text = Decrypted(_ownKey, 24, token.substr(16));
        return text.substr(0, text.size() - 16);
    }

 private:
    static krb5_keyblock KeyBlock(const std::string& key) {
        krb5_keyblock block = {};
        block.enctype = ENCTYPE_AES256_CTS_HMAC_SHA1_96;
        block.length = static_cast<unsigned>(key.size());
        block.contents = reinterpret_cast<krb5_octet*>(const_cast<char*>(key.data()));
        return block;
    }

    static std::string Ticket() {
        const std::string service = Der(0x30, Der(0x1b, "ldap") + Der(0x1b, "dc1.corp.test"));
        const std::string name = Der(0x30, Der(0xa0, Der(2, "\x02")) + Der(0xa1, service));
        const std::string sealed =
            Der(0x30, Der(0xa0, Der(2, "\x12")) + Der(0xa2, Der(4, "only the controller reads this")));
        return Der(0x61, Der(0x30, Der(0xa0, Der(2, "\x05")) + Der(0xa1, Der(0x1b, "CORP.TEST")) + Der(0xa2, name) +
                                       Der(0xa3, sealed)));
    }

    static std::string Header(unsigned flags, unsigned extra, unsigned rotation, std::uint64_t number) {
        std::string header = {'\x05', '\x04', static_cast<char>(flags), '\xff'};
        for (const unsigned value : {extra, rotation}) {
            header += static_cast<char>(value >> 8U & 0xffU);
            header += static_cast<char>(value & 0xffU);
        }
        for (int shift = 56; shift >= 0; shift -= 8)
            header += static_cast<char>(number >> static_cast<unsigned>(shift) & 0xffU);
        return header;
    }

    std::string Encrypted(const std::string& key, int usage, const std::string& text) const {
        const krb5_keyblock block = KeyBlock(key);
        std::size_t size = 0;
        krb5_c_encrypt_length(Context(), block.enctype, text.size(), &size);
        std::string sealed(size, '\0');
        const krb5_data input = Data(text);
        krb5_enc_data output = {};
        output.ciphertext = Data(sealed);
        Require(krb5_c_encrypt(Context(), &block, usage, nullptr, &input, &output) == 0, "encrypted");
        return sealed;
    }

    std::string Decrypted(const std::string& key, int usage, const std::string& sealed) const {
        const krb5_keyblock block = KeyBlock(key);
        std::string text(sealed.size(), '\0');
        krb5_enc_data input = {};
        input.enctype = block.enctype;
        input.ciphertext = Data(sealed);
        krb5_data output = Data(text);
        Require(krb5_c_decrypt(Context(), &block, usage, nullptr, &input, &output) == 0,
                "the host encrypts by the rules");
        text.resize(output.length);
        return text;
    }

    KerberosContext _context;
    const std::string _sessionKey = std::string(32, 's');
    const std::string _ownKey = std::string(32, 'c');
    std::string _ticketText;
    krb5_creds _ticket = {};
};

// Whether the token opens, and then to what.
bool Opens(SealedChannel& channel, const std::string& token, bool sealed, std::string& message) {
    try {
        message = channel.Open(token, sealed).View();
        return true;
    } catch (const AdError& error) {
        Require(error.Status() == kStatusNoSuchDomain, "a bad token is status 1355");
        return false;
    }
}

// One step; false when the connection is of no use any more.
bool Step(const Controller& controller, SealedChannel& channel, std::uint64_t& number, Input& input) {
    const unsigned kind = input.Byte();
    const unsigned detail = input.Byte();
    const unsigned more = input.Byte();
    const std::string text = input.Field();
    const bool sealed = (kind & 0x10U) != 0;
    std::string token = sealed ? controller.Sealed(text, number, detail, more * 7) : controller.Signed(text, number);
    std::string message;
    switch (kind % 5) {
        case 0:
            return Opens(channel, text, sealed, message);
        case 1:
            Require(Opens(channel, token, sealed, message) && message == text, "a good token opens to its message");
            ++number;
            return true;
        case 2: {
            const std::size_t at = (detail * 256U + more) % token.size();
            token[at] = static_cast<char>(token[at] ^ (kind >> 5U | 1U));
            Require(!Opens(channel, token, sealed, message) || message == text,
                    "a changed token opens to no other message");
            return false;
        }
        case 3:
            token = sealed ? controller.Sealed(text, number + 1 + detail, 0, 0)
                           : controller.Signed(text, number - 1 - detail);
            Require(!Opens(channel, token, sealed, message), "a token out of turn does not open");
            return false;
        default:
            Require(controller.Opened(channel.Seal(text)) == text, "the controller opens what the host sealed");
            return true;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Controller controller;
    Input input(data, size);
    const bool raw = (input.Byte() & 1U) != 0;
    SealedChannel channel(controller.Context(), controller.HostsTicket());
    const std::string request = channel.Request();
    if (raw) {
        const std::string proof = input.Rest();
        for (const std::string& token : {proof, Controller::Framed(proof)}) {
            try {
                channel.Accept(token);
                Require(false, "nobody without the key proves himself");
            } catch (const AdError&) {
                continue;  // as it must be
            }
        }
        return 0;
    }
    channel.Accept(controller.Proof(request));
    std::uint64_t number = kFirstNumber;
    while (!input.AtEnd() && Step(controller, channel, number, input)) continue;
    return 0;
}
