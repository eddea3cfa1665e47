#include "services/apxd/config.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "pluginkit/whole_file.h"

namespace nimbrel::apxd {
namespace {

// What is wrong with a value; the caller knows where it stands.
class ValueError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

using Setter = std::function<void(Config&, const std::string&)>;

struct Key {
    Setter set;
    bool repeatable = false;
};

Setter Text(std::string Config::*member) {
    return [member](Config& config, const std::string& value) { config.*member = value; };
}

Setter File(std::string Config::*member) {
    return [member](Config& config, const std::string& value) {
        if (value.front() != '/') throw ValueError("the path must begin with '/'");
        config.*member = value;
    };
}

std::uint32_t ParseNumber(const std::string& value, std::uint32_t least, std::uint32_t most) {
    std::uint32_t number = 0;
    const char* const end = value.data() + value.size();
    const auto [rest, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc() || rest != end || number < least || number > most) {
        throw ValueError("the value must be a number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number;
}

Setter Number(std::uint32_t Config::*member, std::uint32_t least, std::uint32_t most) {
    return [=](Config& config, const std::string& value) { config.*member = ParseNumber(value, least, most); };
}

// "0.0.0.0:8443", "[::]:8443", or an address alone.
void SetListen(Config& config, const std::string& value) {
    const bool bracketed = value.front() == '[';
    const std::size_t close = bracketed ? value.find(']') : 0;
    const std::size_t colon = value.find(':', close);
    const bool hasMore = bracketed && close != std::string::npos && close + 1 != std::min(colon, value.size());
    config.address = bracketed ? value.substr(1, close - 1) : value.substr(0, colon);
    if (close == std::string::npos || hasMore || !Address::Parse(config.address)) {
        throw ValueError("the value must be ADDRESS or ADDRESS:PORT, an IPv6 address in brackets");
    }
    if (colon != std::string::npos) config.port = ParseNumber(value.substr(colon + 1), 0, 65535);
}

void AddNetwork(Config& config, const std::string& value) {
    const auto network = Network::Parse(value);
    if (!network) throw ValueError("the value must be an address or a network as 192.0.2.0/24");
    config.allowed.push_back(*network);
}

void AddPreStaged(Config& config, const std::string& value) {
    if (!kit::IsComputerName(value)) throw ValueError("the value must be an account's name, as NODE07");
    config.preStaged.insert(UpperCase(value));
}

bool IsLabel(std::string_view label) {
    const auto fits = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    };
    return !label.empty() && label.size() <= 63 && std::all_of(label.begin(), label.end(), fits);
}

// What a name looks like; that it has a dot is looked at in the end.
void SetDomain(Config& config, const std::string& value) {
    config.domain = value;
    for (std::string_view rest = value;;) {
        const std::size_t dot = rest.find('.');
        if (!IsLabel(rest.substr(0, dot))) throw ValueError("the value must be the domain's DNS name");
        if (dot == std::string_view::npos) return;
        rest.remove_prefix(dot + 1);
    }
}

void SetBackEnd(Config& config, const std::string& value) {
    if (value != "embedded" && value != "ad") throw ValueError("the value must be 'embedded' or 'ad'");
    config.backEnd = value;
}

void SetClientNames(Config& config, const std::string& value) {
    if (value != "account" && value != "any") throw ValueError("the value must be 'account' or 'any'");
    config.anyClientName = value == "any";
}

const std::map<std::string, Key, std::less<>>& Keys() {
    static const auto& keys = *new std::map<std::string, Key, std::less<>>{
        {"listen", {SetListen}},
        {"certificate", {File(&Config::certificateFile)}},
        {"key", {File(&Config::keyFile)}},
        {"client-ca", {File(&Config::clientCaFile)}},
        {"client-crl", {File(&Config::clientCrlFile)}},
        {"client-names", {SetClientNames}},
        {"allow", {AddNetwork, true}},
        {"requests-per-minute", {Number(&Config::requestsPerMinute, 1, 1000000)}},
        {"burst", {Number(&Config::burst, 1, 1000000)}},
        {"connections", {Number(&Config::connections, 1, 4096)}},
        {"connections-per-client", {Number(&Config::connectionsPerClient, 1, 4096)}},
        {"request-seconds", {Number(&Config::requestSeconds, 1, 600)}},
        {"stop-seconds", {Number(&Config::stopSeconds, 1, 600)}},
        {"domain", {SetDomain}},
        {"back-end", {SetBackEnd}},
        {"directory", {File(&Config::directoryFile)}},
        {"keytab", {File(&Config::keytab)}},
        {"principal", {Text(&Config::principal)}},
        {"unit", {Text(&Config::defaultUnit)}},
        {"allow-unit", {[](Config& config, const std::string& value) { config.allowedUnits.push_back(value); }, true}},
        {"pre-staged", {AddPreStaged, true}},
        {"ledger", {File(&Config::ledgerFile)}},
        {"retry-seconds", {Number(&Config::retrySeconds, 0, 31536000)}},
    };
    return keys;
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

class Reader {
 public:
    explicit Reader(const std::string& file) : _file(file) {}

    Config Read(const std::string& text);

 private:
    void ReadLine(std::string_view line);
    void Set(const std::string& name, const std::string& value);
    void CheckComplete();
    [[noreturn]] void Fail(const std::string& what) const {
        throw ConfigError(_file + ':' + std::to_string(_line) + ": " + what);
    }

    const std::string& _file;
    std::size_t _line = 0;
    std::map<std::string, std::size_t> _seen;  // keys and their lines
    Config _config;
};

void Reader::Set(const std::string& name, const std::string& value) {
    const auto key = Keys().find(name);
    if (key == Keys().end()) Fail("unknown key '" + name + "'");
    if (value.empty()) Fail("'" + name + "' has no value");
    const auto [earlier, first] = _seen.emplace(name, _line);
    if (!first && !key->second.repeatable) {
        Fail("'" + name + "' stands in line " + std::to_string(earlier->second) + " already");
    }
    try {
        key->second.set(_config, value);
    } catch (const ValueError& error) {
        Fail("'" + name + "': " + error.what());
    }
}

void Reader::ReadLine(std::string_view line) {
    const auto control = [](char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f; };
    if (std::any_of(line.begin(), line.end(), control)) Fail("the line holds a control character");
    const std::string_view text = Trimmed(line);
    if (text.empty() || text.front() == '#') return;
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) Fail("the line is not KEY = VALUE");
    Set(std::string(Trimmed(text.substr(0, equals))), std::string(Trimmed(text.substr(equals + 1))));
}

void Reader::CheckComplete() {
    _line = 0;
    for (const char* const name : {"certificate", "key", "domain", "allow"}) {
        if (!_seen.contains(name)) Fail("'" + std::string(name) + "' is missing");
    }
    if (_config.backEnd == "ad" && _config.keytab.empty())
        Fail("'keytab' is missing: the back end 'ad' logs on with it");
    if (_config.backEnd == "ad" && _config.principal.empty()) Fail("'principal' is missing: the service's own account");
    for (const char* const name : {"client-names", "client-crl"}) {
        if (_seen.contains(name) && _config.clientCaFile.empty()) {
            Fail("'client-ca' is missing: '" + std::string(name) + "' is about the certificates that it asks for");
        }
    }
    if (_config.domain.find('.') == std::string::npos) Fail("'domain' is not a DNS name");
}

Config Reader::Read(const std::string& text) {
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(lines, line);) {
        ++_line;
        ReadLine(line);
    }
    CheckComplete();
    return std::move(_config);
}

}  // namespace

Config ParseConfig(const std::string& text, const std::string& file) { return Reader(file).Read(text); }

std::string ReadTextFile(const std::string& path, std::size_t largest) {
    std::optional<std::string> text = kit::ReadWholeFile(path, largest);
    const int error = errno;
    if (text) return std::move(*text);
    throw ConfigError(path +
                      ":0: " + (error == EFBIG ? "the file is too large" : std::generic_category().message(error)));
}

Config ReadConfig(const std::string& file) { return ParseConfig(ReadTextFile(file), file); }

}  // namespace nimbrel::apxd
