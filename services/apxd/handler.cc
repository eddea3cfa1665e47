#include "services/apxd/handler.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace nimbrel::apxd {
namespace {

using nlohmann::json;

constexpr char kDomainPath[] = "/v1/domain";
constexpr char kComputersPath[] = "/v1/computers";
constexpr std::size_t kLongestHostName = 255;
constexpr std::size_t kLongestUnit = 1024;

// A refusal with an HTTP status of its own.
class HttpRefusal : public Refusal {
 public:
    HttpRefusal(unsigned httpStatus, std::uint32_t status, const std::string& message)
        : Refusal(status, message), _httpStatus(httpStatus) {}

    unsigned HttpStatus() const noexcept { return _httpStatus; }

 private:
    unsigned _httpStatus;
};

unsigned HttpStatusFor(std::uint32_t status) {
    switch (status) {
        case kInvalidParameter:
        case kInvalidComputerName:
        case 267:
            return 400;
        case kAccessDenied:
        case 1331:
            return 403;
        case kFileNotFound:
        case kNoSuchAccount:
            return 404;
        case kAccountExists:
            return 409;
        case kNoSuchDomain:
            return 503;
        default:
            return 500;
    }
}

// Appends in place, into room that is there already: no copy of a secret stays behind in the heap.
void AppendMember(std::string& text, std::string_view name, std::string_view value) {
    text += text.empty() ? "{\"" : ",\"";
    text.append(name).append("\":\"");
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') text += '\\';
        if (byte < 0x20) {
            text.append(byte < 0x10 ? "\\u000" : "\\u001") += "0123456789abcdef"[byte & 0xFU];
        } else {
            text += c;
        }
    }
    text += '"';
}

SecretText AccountBody(const HandOver& account) {
    std::string text;
    text.reserve(64 + 6 * (account.accountName.size() + account.oneTimeSecret.Text().size()));
    AppendMember(text, "accountName", account.accountName);
    AppendMember(text, "oneTimeSecret", account.oneTimeSecret.Text());
    text += "}\n";
    return SecretText(std::move(text));
}

SecretText DomainBody(const DomainFacts& domain) {
    std::string text;
    AppendMember(text, "netbiosName", domain.netbiosName);
    AppendMember(text, "dnsName", domain.dnsName);
    AppendMember(text, "sid", domain.sid);
    text += "}\n";
    return SecretText(std::move(text));
}

Answer Refused(unsigned httpStatus, std::uint32_t status, const std::string& message) {
    const json body = {{"status", status}, {"message", message}};
    Answer answer;
    answer.httpStatus = httpStatus;
    answer.status = status;
    answer.body = SecretText(body.dump(-1, ' ', false, json::error_handler_t::replace) + '\n');
    answer.message = message;
    return answer;
}

// The host is told no more of a fault inside than what its administrator can do about it.
Answer Failed(const std::exception& error) {
    const auto* const system = dynamic_cast<const std::system_error*>(&error);
    const bool full = system != nullptr && (system->code() == std::errc::no_space_on_device ||
                                            system->code() == std::error_code(EDQUOT, std::generic_category()));
    Answer answer = full ? Refused(500, kDiskFull, "the service's disk is full")
                         : Refused(500, kInternalError, "the service failed; its log tells more");
    answer.message = error.what();
    return answer;
}

// Whatever `step` throws becomes an answer.
template <typename Step>
Answer Guarded(const Step& step) {
    try {
        return step();
    } catch (const HttpRefusal& refusal) {
        return Refused(refusal.HttpStatus(), refusal.Status(), refusal.what());
    } catch (const Refusal& refusal) {
        return Refused(HttpStatusFor(refusal.Status()), refusal.Status(), refusal.what());
    } catch (const std::exception& error) {
        return Failed(error);
    }
}

bool IsJson(const std::string& contentType) {
    const std::string type = contentType.substr(0, contentType.find_first_of("; \t"));
    return SameName(type, "application/json");
}

void RequireKnown(const Request& request) {
    const bool domain = request.path == kDomainPath;
    if (!domain && request.path != kComputersPath) throw HttpRefusal(404, kNotSupported, "there is no such path");
    const char* const method = domain ? "GET" : "POST";
    if (request.method != method) throw HttpRefusal(405, kNotSupported, std::string("only ") + method + " is allowed");
    if (request.contentLength.value_or(0) > kLargestBody) {
        throw HttpRefusal(413, kInvalidParameter, "the body is larger than 4096 bytes");
    }
    if (!domain && !IsJson(request.contentType)) {
        throw HttpRefusal(415, kInvalidParameter, "the body must be application/json");
    }
}

[[noreturn]] void FailRequest(const std::string& what) { throw Refusal(kInvalidParameter, what); }

// Unset if the member is absent or null.
std::optional<std::string> TextMember(const json& object, const char* name, std::size_t longest) {
    const auto member = object.find(name);
    if (member == object.end() || member->is_null()) return std::nullopt;
    if (!member->is_string()) FailRequest(std::string("'") + name + "' is not a text");
    const auto& text = member->get_ref<const std::string&>();
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    if (text.size() > longest || std::any_of(text.begin(), text.end(), control)) {
        FailRequest(std::string("'") + name + "' is too long or holds control characters");
    }
    return text;
}

struct ComputerRequest {
    std::string hostName;
    std::string organizationalUnit;
};

ComputerRequest ParseComputerRequest(const std::string& body) {
    const json object = json::parse(body, nullptr, false);
    if (!object.is_object()) FailRequest("the body is not a JSON object");
    auto hostName = TextMember(object, "accountName", kLongestHostName);
    if (!hostName) FailRequest("'accountName' is missing");
    return {std::move(*hostName), TextMember(object, "organizationalUnit", kLongestUnit).value_or("")};
}

const char* Word(Accounts::Way way) {
    switch (way) {
        case Accounts::Way::Created:
            return "created";
        case Accounts::Way::Renewed:
            return "renewed";
        case Accounts::Way::TakenOver:
            return "taken-over";
    }
    return "";
}

// The same host again: its address and, if it has one, its certificate.
std::string ClientIdentity(const Request& request) {
    const std::string address = TextOf(request.client);
    return request.certificate.empty() ? address : address + '+' + request.certificate;
}

}  // namespace

Handler::Handler(const Config& config, BackEnd& backEnd, Ledger& ledger)
    : _config(config),
      _backEnd(backEnd),
      _accounts(backEnd, ledger, config.preStaged, config.retrySeconds,
                [] { return static_cast<std::int64_t>(std::time(nullptr)); }),
      _limiter(config.requestsPerMinute, config.burst) {}

bool Handler::IsAllowed(const std::optional<Address>& client) const {
    const auto contains = [&](const Network& network) { return network.Contains(*client); };
    return client && std::any_of(_config.allowed.begin(), _config.allowed.end(), contains);
}

void Handler::RequireAllowed(const Request& request, Time now) {
    if (!IsAllowed(request.client)) throw Refusal(kAccessDenied, "this address may not ask");
    if (!_limiter.Admit(*request.client, now))
        throw HttpRefusal(429, kRetryLater, "too many requests; try again later");
    if (!_config.clientCaFile.empty() && request.certificate.empty()) {
        throw Refusal(kAccessDenied, "a certificate of an allowed client is needed");
    }
    if (request.certificateFault != nullptr) throw Refusal(kAccessDenied, request.certificateFault);
}

std::optional<Answer> Handler::Admit(const Request& request, Time now) {
    Answer answer = Guarded([&] {
        RequireAllowed(request, now);
        RequireKnown(request);
        return Answer();
    });
    return answer.status == 0 ? std::nullopt : std::optional(std::move(answer));
}

Answer Handler::TurnedAway(const char* why) { return Refused(429, kRetryLater, why); }

Answer Handler::LengthRequired() { return Refused(411, kInvalidParameter, "the body's length is not given"); }

Answer Handler::Handle(const Request& request) {
    return request.path == kDomainPath ? GiveDomain() : GiveAccount(request);
}

Answer Handler::GiveDomain() {
    return Guarded([this] {
        Answer answer;
        answer.body = DomainBody(_backEnd.Domain());
        return answer;
    });
}

void Handler::RequireUnit(const std::string& unit) const {
    const auto& allowed = _config.allowedUnits;
    if (unit.empty() || SameName(unit, _config.defaultUnit) || allowed.empty()) return;
    const auto same = [&](const std::string& one) { return SameName(one, unit); };
    if (std::none_of(allowed.begin(), allowed.end(), same)) {
        throw Refusal(kAccessDenied, "hosts may not choose this organizational unit");
    }
}

void Handler::RequireOwnName(const Request& request, const std::string& account) const {
    if (_config.clientCaFile.empty() || _config.anyClientName) return;
    const auto& names = request.certificateNames;
    const auto same = [&](const std::string& name) {
        const std::size_t dot = name.find('.');
        const bool ours = dot == std::string::npos || SameName(name.substr(dot + 1), _config.domain);
        return ours && SameName(name.substr(0, dot), account);
    };
    if (std::none_of(names.begin(), names.end(), same)) {
        throw Refusal(kAccessDenied, "the client's certificate is in another name than the account");
    }
}

Answer Handler::GiveAccount(const Request& request) {
    std::string account;
    std::string unit;
    Answer answer = Guarded([&] {
        if (request.body.size() > kLargestBody) {
            throw HttpRefusal(413, kInvalidParameter, "the body is larger than 4096 bytes");
        }
        const ComputerRequest wanted = ParseComputerRequest(request.body);
        unit = wanted.organizationalUnit;
        account = wanted.hostName;
        account = AccountName(wanted.hostName, _config.domain);
        RequireOwnName(request, account);
        RequireUnit(unit);
        const Accounts::Result result =
            _accounts.HandOut({account, unit.empty() ? _config.defaultUnit : unit, ClientIdentity(request)});
        Answer granted;
        granted.httpStatus = result.way == Accounts::Way::Created ? 201 : 200;
        granted.body = AccountBody(result.account);
        granted.way = Word(result.way);
        return granted;
    });
    answer.account = std::move(account);
    answer.organizationalUnit = std::move(unit);
    return answer;
}

}  // namespace nimbrel::apxd
