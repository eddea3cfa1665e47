// Any configuration of the proxy service that is taken has every value in its range; a comment changes nothing; a
// setting that may stand once only is refused a second time.

#include <sstream>

#include "fuzz.h"
#include "services/apxd/config.h"

namespace {

using fuzzing::Require;
using namespace nimbrel::apxd;

bool Parses(const std::string& text, Config* config = nullptr) {
    try {
        const Config parsed = ParseConfig(text, "F");
        if (config != nullptr) *config = parsed;
        return true;
    } catch (const ConfigError& error) {
        Require(std::string(error.what()).starts_with("F:"), "the file and the line are named");
        return false;
    }
}

bool Within(std::uint32_t value, std::uint32_t least, std::uint32_t most) { return value >= least && value <= most; }

void CheckNumbers(const Config& config) {
    Require(config.port <= 65535, "the port is in its range");
    Require(Within(config.requestsPerMinute, 1, 1000000) && Within(config.burst, 1, 1000000), "so are the rates");
    Require(Within(config.connections, 1, 4096) && Within(config.connectionsPerClient, 1, 4096), "and connections");
    Require(Within(config.requestSeconds, 1, 600) && Within(config.stopSeconds, 1, 600), "and times");
    Require(config.retrySeconds <= 31536000, "and that of a retry");
}

void CheckTexts(const Config& config) {
    Require(Address::Parse(config.address).has_value(), "the service listens at an address");
    for (const std::string& file : {config.certificateFile, config.keyFile, config.ledgerFile, config.directoryFile}) {
        Require(file.starts_with('/') && file.find('\n') == std::string::npos, "a file is named by its whole path");
    }
    for (const std::string& name : config.preStaged)
        Require(nimbrel::kit::IsComputerName(name), "a pre-staged account is a name");
    Require(!config.allowed.empty(), "somebody may ask");
    Require(
        config.domain.find_first_of(" \t\xff,;\"") == std::string::npos && config.domain.find('.') != std::string::npos,
        "the domain is a name");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzzing::Input(data, size).Rest();
    Config config;
    const bool good = Parses(text, &config);
    if (good) {
        CheckNumbers(config);
        CheckTexts(config);
    }
    Require(Parses("# a comment\n \t\n" + text) == good, "a comment changes nothing");
    std::istringstream lines(text);
    for (std::string line; good && std::getline(lines, line);) {
        const std::size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        const bool repeatable = line.compare(first, 5, "allow") == 0 || line.compare(first, 10, "pre-staged") == 0;
        Require(Parses(text + '\n' + line) == repeatable, "a setting stands once");
    }
    return 0;
}
