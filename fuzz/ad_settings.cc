// Any ad.conf that is taken has every value in its range and fit for where it goes; a comment changes nothing, and a
// line that is there twice is refused.

#include <arpa/inet.h>

#include <sstream>

#include "addirectory/ad_error.h"
#include "addirectory/settings.h"
#include "fuzz.h"

namespace {

using fuzzing::Require;
using nimbrel::ad::Settings;

bool Parses(const std::string& text, Settings* settings = nullptr) {
    try {
        const Settings parsed = Settings::Parse(text);
        if (settings != nullptr) *settings = parsed;
        return true;
    } catch (const nimbrel::ad::AdError& error) {
        Require(error.Status() == nimbrel::ad::kStatusBadConfiguration, "a malformed file is status 1610");
        Require(std::string(error.what()).starts_with("Line "), "the line is named");
        return false;
    }
}

bool IsAddress(const std::string& text) {
    in6_addr bytes = {};
    return text.find('\0') == std::string::npos &&
           (inet_pton(AF_INET, text.c_str(), &bytes) == 1 || inet_pton(AF_INET6, text.c_str(), &bytes) == 1);
}

bool IsPath(const std::string& text) { return text.starts_with('/') && !fuzzing::HasControlCharacters(text); }

template <typename Duration>
bool Within(Duration value, int minimum, int maximum) {
    return value >= std::chrono::seconds(minimum) && value <= std::chrono::seconds(maximum);
}

void CheckRanges(const Settings& settings) {
    for (const auto budget :
         {settings.joinBudget, settings.leaveBudget, settings.queryBudget, settings.rollBackBudget}) {
        Require(Within(budget, 1, 600), "an operation's time is in its range");
    }
    Require(Within(settings.controllerBudget, 1, 60) && Within(settings.nameBudget, 1, 60), "a question's time, too");
    Require(Within(settings.avoidance, 0, 3600), "and that of avoidance");
    for (const auto port : {settings.kerberosPort, settings.ldapPort, settings.ldapsPort, settings.nameServerPort}) {
        Require(port != 0, "a port is none but 0");
    }
}

void CheckTexts(const Settings& settings) {
    for (const std::string& server : settings.nameServers) Require(IsAddress(server), "a name server is an address");
    for (const std::string& path : {settings.keytab, settings.membership, settings.logInShell, settings.logInHome}) {
        Require(IsPath(path), "a path is absolute and of one line");
    }
    Require(settings.certificateAuthority.empty() || IsPath(settings.certificateAuthority), "so is the authority's");
    Require(settings.site.size() <= 63 && !fuzzing::HasControlCharacters(settings.site), "a site is a name");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzzing::Input(data, size).Rest();
    Settings settings;
    const bool good = Parses(text, &settings);
    if (good) {
        CheckRanges(settings);
        CheckTexts(settings);
    }
    Require(Parses("# a comment\n\n" + text) == good, "a comment changes nothing");
    std::istringstream lines(text);
    for (std::string line; good && std::getline(lines, line);) {
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        Require(!Parses(text + '\n' + line), "a setting stands once");
    }
    return 0;
}
