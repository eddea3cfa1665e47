#include "sssd_settings.h"

#include <sstream>
#include <string_view>

#include "files.h"

namespace nimbrel::ad::logins {
namespace {

constexpr std::string_view kDomainPrefix = "domain/";
constexpr std::string_view kEnding = ".conf";
constexpr char kBlanks[] = " \t\r";

std::string_view Trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::vector<std::string> Elements(std::string_view list) {
    std::vector<std::string> elements;
    while (!list.empty()) {
        const auto comma = list.find(',');
        const auto element = Trimmed(list.substr(0, comma));
        if (!element.empty()) elements.emplace_back(element);
        if (comma == std::string_view::npos) break;
        list.remove_prefix(comma + 1);
    }
    return elements;
}

bool EndsWith(std::string_view text, std::string_view ending) {
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

}  // namespace

void AddSssdSettings(const std::string& text, SssdSettings& settings) {
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::string section;
    for (std::string whole; std::getline(lines, whole);) {
        const std::string_view line = Trimmed(whole);
        if (line.size() > 2 && line.front() == '[' && line.back() == ']') {
            section = Trimmed(line.substr(1, line.size() - 2));
            if (section.compare(0, kDomainPrefix.size(), kDomainPrefix) == 0) {
                settings.domains.push_back(section.substr(kDomainPrefix.size()));
            }
        }
        const auto equals = line.find('=');
        if (section == "sssd" && equals != std::string_view::npos && Trimmed(line.substr(0, equals)) == "services") {
            settings.services = Elements(line.substr(equals + 1));
        }
    }
}

bool IsOwnSnippet(const std::string& name) {
    return name == "50-nimauth-domain.conf" || name == "55-nimauth-controllers.conf" ||
           name == "60-nimauth-smartcard.conf";
}

SssdSettings ReadForeignSssdSettings(const std::string& root) {
    SssdSettings settings;
    AddSssdSettings(ReadFileIfPossible(root + kSssdFile).value_or(""), settings);
    for (const auto& name : FileNames(root + kSssdFolder)) {
        if (name.front() == '.' || !EndsWith(name, kEnding) || IsOwnSnippet(name)) continue;
        AddSssdSettings(ReadFileIfPossible(root + kSssdFolder + '/' + name).value_or(""), settings);
    }
    return settings;
}

}  // namespace nimbrel::ad::logins
