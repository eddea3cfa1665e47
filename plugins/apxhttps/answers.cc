#include "answers.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace nimbrel::apxhttps {
namespace {

using nlohmann::json;

constexpr std::size_t kLongestText = 4096;

// What is parsed may be a secret: its texts are overwritten before they are freed. What the parser itself kept of the token
// that it read is out of reach; the secret is good for one use, which follows at once.
class Parsed {
 public:
    explicit Parsed(const std::string& body) : _object(json::parse(body, nullptr, false)) {}
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;
    ~Parsed() {
        auto* const members = _object.get_ptr<json::object_t*>();
        if (members == nullptr) return;
        for (auto& [name, member] : *members) {
            if (auto* const text = member.get_ptr<json::string_t*>()) OPENSSL_cleanse(text->data(), text->size());
        }
    }

    bool IsObject() const { return _object.is_object(); }
    const json* Find(const char* name) const {
        const auto member = _object.find(name);
        return member == _object.end() ? nullptr : &*member;
    }
    // False if the member is missing or unfit.
    bool Take(const char* name, std::string& text) const {
        const json* const member = Find(name);
        if (member == nullptr || !member->is_string()) return false;
        const auto& value = member->get_ref<const std::string&>();
        const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
        if (value.empty() || value.size() > kLongestText || std::any_of(value.begin(), value.end(), control))
            return false;
        text = value;
        return true;
    }

 private:
    json _object;
};

}  // namespace

std::optional<DomainAnswer> ParseDomainAnswer(const std::string& body) {
    const Parsed parsed(body);
    DomainAnswer answer;
    const bool complete = parsed.IsObject() && parsed.Take("netbiosName", answer.netbiosName) &&
                          parsed.Take("dnsName", answer.dnsName) && parsed.Take("sid", answer.sid);
    return complete ? std::optional(std::move(answer)) : std::nullopt;
}

std::optional<AccountAnswer> ParseAccountAnswer(const std::string& body) {
    const Parsed parsed(body);
    AccountAnswer answer;
    const bool complete = parsed.IsObject() && parsed.Take("accountName", answer.accountName) &&
                          parsed.Take("oneTimeSecret", answer.oneTimeSecret);
    return complete ? std::optional(std::move(answer)) : std::nullopt;
}

std::optional<RefusalAnswer> ParseRefusal(const std::string& body) {
    const Parsed parsed(body);
    if (!parsed.IsObject()) return std::nullopt;
    const json* const status = parsed.Find("status");
    if (status == nullptr || !status->is_number_unsigned()) return std::nullopt;
    const auto number = status->get<std::uint64_t>();
    if (number == 0 || number > UINT32_MAX) return std::nullopt;
    RefusalAnswer answer;
    answer.status = static_cast<std::uint32_t>(number);
    parsed.Take("message", answer.message);
    return answer;
}

std::string AccountRequest(const std::string& accountName, const std::string& organizationalUnit) {
    json request = {{"accountName", accountName}};
    if (!organizationalUnit.empty()) request["organizationalUnit"] = organizationalUnit;
    return request.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace nimbrel::apxhttps
