// A controller's answer of any bytes reads as a plain, recursive reader of its names does; the same names written
// without compression read the same again.

#include <array>
#include <optional>
#include <regex>
#include <vector>

#include "fuzz.h"
#include "names.h"
#include "netlogon_reply.h"

namespace {

using fuzzing::Require;
using nimbrel::ad::NetlogonReply;
using Labels = std::vector<std::string>;

// Adds the labels of the name at `at`, of which the pointers lead to places before `limit` only; unset if there is
// none. Returns where the name ends.
std::optional<std::size_t> LiteralName(const std::string& bytes, std::size_t at, std::size_t limit, Labels& labels) {
    if (at >= bytes.size()) return std::nullopt;
    const auto length = static_cast<unsigned char>(bytes[at]);
    if (length == 0) return at + 1;
    if (length >= 0xc0) {
        if (at + 1 >= bytes.size()) return std::nullopt;
        const std::size_t target = (length & 0x3fU) * 256U + static_cast<unsigned char>(bytes[at + 1]);
        if (target >= limit || !LiteralName(bytes, target, target, labels)) return std::nullopt;
        return at + 2;
    }
    if (length > 63 || at + 1 + length > bytes.size()) return std::nullopt;
    labels.push_back(bytes.substr(at + 1, length));
    return LiteralName(bytes, at + 1 + length, limit, labels);
}

std::string Joined(const Labels& labels) {
    std::string name;
    for (const std::string& label : labels) name += (name.empty() ? "" : ".") + label;
    return name;
}

// The eight names; unset where the answer is to be refused for its form.
std::optional<Labels> LiteralNames(const std::string& bytes) {
    Labels names;
    std::size_t at = 24;
    for (int i = 0; i < 8; ++i) {
        Labels labels;
        const auto end = LiteralName(bytes, at, at, labels);
        std::size_t length = 0;
        for (const std::string& label : labels) length += label.size() + 1;
        names.push_back(Joined(labels));
        if (!end || length > 256 || fuzzing::HasControlCharacters(names.back())) return std::nullopt;
        if (!nimbrel::ad::IsUtf8(names.back())) return std::nullopt;
        at = *end;
    }
    return names;
}

// Letters, digits, "-" and "_" with dots between them; a "-" stands between two others of a part.
bool IsHostName(const std::string& name) {
    static const std::regex kName(
        "[A-Za-z0-9_]([A-Za-z0-9_-]{0,61}[A-Za-z0-9_])?"
        "(\\.[A-Za-z0-9_]([A-Za-z0-9_-]{0,61}[A-Za-z0-9_])?)*");
    return name.size() <= 253 && std::regex_match(name, kName);
}

// Empty for a name that has no form of its own: one with empty parts.
std::string WrittenName(const std::string& name) {
    std::string bytes;
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t dot = std::min(name.find('.', at), name.size());
        if (dot == at || dot - at > 63 || dot + 1 == name.size()) return "";
        bytes += static_cast<char>(dot - at) + name.substr(at, dot - at);
        at = dot + 1;
    }
    return bytes + '\0';
}

bool Same(const NetlogonReply& a, const NetlogonReply& b) {
    return a.flags == b.flags && a.isPaused == b.isPaused && a.forest == b.forest && a.domain == b.domain &&
           a.controller == b.controller && a.netbiosDomain == b.netbiosDomain && a.serverSite == b.serverSite &&
           a.clientSite == b.clientSite;
}

void CheckWrittenAgain(const NetlogonReply& reply, const std::string& header) {
    std::string bytes = header;
    for (const std::string& name : {reply.forest, reply.domain, reply.controller, reply.netbiosDomain, std::string(),
                                    std::string(), reply.serverSite, reply.clientSite}) {
        const std::string written = WrittenName(name);
        if (written.empty()) return;
        bytes += written;
    }
    const auto again = nimbrel::ad::ParseNetlogonReply(bytes);
    Require(again && Same(*again, reply), "names without compression read the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes = fuzzing::Input(data, size).Rest();
    const auto reply = nimbrel::ad::ParseNetlogonReply(bytes);
    const bool kind = bytes.size() > 24 && (bytes[0] == 23 || bytes[0] == 24) && bytes[1] == 0;
    const auto names = kind ? LiteralNames(bytes) : std::nullopt;
    const bool named = names && IsHostName((*names)[1]) && IsHostName((*names)[2]) && !(*names)[3].empty();
    Require(reply.has_value() == named, "the same answers are taken");
    if (!reply) return 0;
    Require(reply->forest == (*names)[0] && reply->domain == nimbrel::ad::LowerCase((*names)[1]) &&
                reply->controller == nimbrel::ad::LowerCase((*names)[2]) && reply->netbiosDomain == (*names)[3] &&
                reply->serverSite == (*names)[6] && reply->clientSite == (*names)[7],
            "library and literal reader agree");
    CheckWrittenAgain(*reply, bytes.substr(0, 24));
    return 0;
}
