#include "addirectory/settings.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "addirectory/ad_error.h"
#include "files.h"

namespace nimbrel::ad {
namespace {

using Setter = std::function<bool(Settings&, std::string_view)>;

std::optional<unsigned> Number(std::string_view text, unsigned minimum, unsigned maximum) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool fits = error == std::errc() && end == text.data() + text.size() && value >= minimum && value <= maximum;
    return fits ? std::optional(value) : std::nullopt;
}

template <class Duration>
Setter Seconds(Duration Settings::*field, unsigned minimum, unsigned maximum) {
    return [=](Settings& settings, std::string_view text) {
        const auto seconds = Number(text, minimum, maximum);
        if (seconds) {
            settings.*field = std::chrono::seconds(*seconds);
        }
        return seconds.has_value();
    };
}

Setter Port(std::uint16_t Settings::*field) {
    return [=](Settings& settings, std::string_view text) {
        const auto port = Number(text, 1, 65535);
        if (port) {
            settings.*field = static_cast<std::uint16_t>(*port);
        }
        return port.has_value();
    };
}

bool IsAbsolutePath(std::string_view text) { return text.size() > 1 && text.front() == '/' && text.back() != '/'; }

Setter Text(std::string Settings::*field, const std::function<bool(std::string_view)>& isGood) {
    return [=](Settings& settings, std::string_view text) {
        if (!isGood(text)) {
            return false;
        }
        settings.*field = text;
        return true;
    };
}

bool SetNameServers(Settings& settings, std::string_view text) {
    while (!text.empty()) {
        const auto blank = text.find(' ');
        const std::string address(text.substr(0, blank));
        text.remove_prefix(blank == std::string_view::npos ? text.size() : blank + 1);
        in6_addr binary = {};
        if (address.empty()) {
            continue;
        }
        if (inet_pton(AF_INET, address.c_str(), &binary) != 1 && inet_pton(AF_INET6, address.c_str(), &binary) != 1) {
            return false;
        }
        settings.nameServers.push_back(address);
    }
    return true;
}

bool SetFullNames(Settings& settings, std::string_view text) {
    settings.logInFullNames = text == "true";
    return text == "true" || text == "false";
}

bool IsSite(std::string_view text) {
    return !text.empty() && text.size() <= 63 && text.find_first_of(". \t/\\") == std::string_view::npos;
}

bool IsAccess(std::string_view text) { return text == "ad" || text == "simple" || text == "deny"; }

const std::map<std::string, Setter, std::less<>>& Setters() {
    static const auto* setters = new std::map<std::string, Setter, std::less<>>{
        // lives as long as the process
        {"join_seconds", Seconds(&Settings::joinBudget, 1, 600)},
        {"leave_seconds", Seconds(&Settings::leaveBudget, 1, 600)},
        {"query_seconds", Seconds(&Settings::queryBudget, 1, 600)},
        {"roll_back_seconds", Seconds(&Settings::rollBackBudget, 1, 600)},
        {"controller_seconds", Seconds(&Settings::controllerBudget, 1, 60)},
        {"name_seconds", Seconds(&Settings::nameBudget, 1, 60)},
        {"avoid_seconds", Seconds(&Settings::avoidance, 0, 3600)},
        {"name_servers", SetNameServers},
        {"name_server_port", Port(&Settings::nameServerPort)},
        {"kerberos_port", Port(&Settings::kerberosPort)},
        {"ldap_port", Port(&Settings::ldapPort)},
        {"ldaps_port", Port(&Settings::ldapsPort)},
        {"site", Text(&Settings::site, IsSite)},
        {"certificate_authority", Text(&Settings::certificateAuthority, IsAbsolutePath)},
        {"keytab", Text(&Settings::keytab, IsAbsolutePath)},
        {"membership", Text(&Settings::membership, IsAbsolutePath)},
        {"log_in_shell", Text(&Settings::logInShell, IsAbsolutePath)},
        {"log_in_home", Text(&Settings::logInHome, IsAbsolutePath)},
        {"log_in_full_names", SetFullNames},
        {"log_in_access", Text(&Settings::logInAccess, IsAccess)},
    };
    return *setters;
}

std::string_view Trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    const auto last = text.find_last_not_of(" \t\r");
    return first == std::string_view::npos ? std::string_view() : text.substr(first, last - first + 1);
}

std::string_view Unquote(std::string_view text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"' ? text.substr(1, text.size() - 2) : text;
}

[[noreturn]] void FailLine(std::size_t number, const std::string& reason) {
    throw AdError(kStatusBadConfiguration, "Line " + std::to_string(number) + " of ad.conf: " + reason);
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

void ApplyLine(Settings& settings, std::set<std::string>& seen, std::string_view line, std::size_t number) {
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) {
        FailLine(number, "no '='");
    }
    const std::string key(Trim(line.substr(0, equals)));
    const auto setter = Setters().find(key);
    if (setter == Setters().end()) {
        FailLine(number, "unknown key '" + key + "'");
    }
    if (!seen.insert(key).second) {
        FailLine(number, "'" + key + "' is set twice");
    }
    const auto value = Unquote(Trim(line.substr(equals + 1)));
    if (std::any_of(value.begin(), value.end(), IsControl) || !setter->second(settings, value)) {
        FailLine(number, "the value of '" + key + "' is not valid");
    }
}

}  // namespace

Settings Settings::Parse(std::string_view text) {
    Settings settings;
    std::set<std::string> seen;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const auto end = text.find('\n');
        const auto line = Trim(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (!line.empty() && line.front() != '#') {
            ApplyLine(settings, seen, line, number);
        }
    }
    return settings;
}

Settings Settings::Load(const std::string& path) {
    const auto text = ReadTrustedFile(path);
    return text ? Parse(text->View()) : Settings();
}

}  // namespace nimbrel::ad
