#include "netlogon_reply.h"

#include "names.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kNamesStart = 24;
constexpr unsigned kAnswerExtended = 23;
constexpr unsigned kAnswerPausedExtended = 24;
constexpr std::size_t kMaximumName = 255;

// Reads the names. Every jump goes backwards, so that reading ends whatever the bytes are.
class NameReader {
 public:
    explicit NameReader(std::string_view bytes) : _bytes(bytes), _at(kNamesStart) {}

    bool Read(std::string& name) {
        std::size_t at = _at;
        std::size_t limit = _at;
        bool jumped = false;
        name.clear();
        while (true) {
            if (at >= _bytes.size()) {
                return false;
            }
            const std::size_t length = Byte(at);
            if (length >= 0xc0) {
                if (at + 1 >= _bytes.size()) {
                    return false;
                }
                const std::size_t target = (length & 0x3f) << 8 | Byte(at + 1);
                if (target >= limit) {
                    return false;
                }
                Advance(at + 2, jumped);
                jumped = true;
                at = limit = target;
            } else if (length == 0) {
                Advance(at + 1, jumped);
                return true;
            } else if (!TakeLabel(at, length, name)) {
                return false;
            } else {
                at += 1 + length;
            }
        }
    }

 private:
    std::size_t Byte(std::size_t at) const { return static_cast<unsigned char>(_bytes[at]); }

    void Advance(std::size_t to, bool jumped) {
        if (!jumped) {
            _at = to;
        }
    }

    bool TakeLabel(std::size_t at, std::size_t length, std::string& name) const {
        if (length > 63 || at + 1 + length > _bytes.size() || name.size() + length + 1 > kMaximumName) {
            return false;
        }
        name += name.empty() ? "" : ".";
        name += _bytes.substr(at + 1, length);
        return true;
    }

    std::string_view _bytes;
    std::size_t _at;
};

std::uint32_t LittleEndian(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

bool IsPlain(const std::string& name) { return IsUtf8(name) && !HasControlCharacters(name); }

}  // namespace

std::optional<NetlogonReply> ParseNetlogonReply(std::string_view bytes) {
    if (bytes.size() <= kNamesStart) {
        return std::nullopt;
    }
    const auto operation = LittleEndian(bytes, 0, 2);
    if (operation != kAnswerExtended && operation != kAnswerPausedExtended) {
        return std::nullopt;
    }
    NetlogonReply reply;
    reply.flags = LittleEndian(bytes, 4, 4);
    reply.isPaused = operation == kAnswerPausedExtended;
    std::string netbiosHost;
    std::string user;
    NameReader names(bytes);
    for (std::string* name : {&reply.forest, &reply.domain, &reply.controller, &reply.netbiosDomain, &netbiosHost,
                              &user, &reply.serverSite, &reply.clientSite}) {
        if (!names.Read(*name) || !IsPlain(*name)) {
            return std::nullopt;
        }
    }
    reply.domain = LowerCase(reply.domain);
    reply.controller = LowerCase(reply.controller);
    // They become parts of a Kerberos name, in which "@" and "/" have a meaning.
    const bool named = kit::IsDnsName(reply.domain) && kit::IsDnsName(reply.controller) && !reply.netbiosDomain.empty();
    return named ? std::optional(reply) : std::nullopt;
}

}  // namespace nimbrel::ad
