// Any network.conf reads as a plain reader reads it: to the same name, or to an error about the same line.

#include <sstream>

#include "fuzz.h"
#include "hostmgmt/exceptions.h"
#include "network_conf.h"

namespace {

constexpr char kBlanks[] = " \t\v\f\r";

// The name behind '='; nothing for none; "line N" for what is wrong.
std::string Literal(const std::string& text) {
    std::string found;
    int number = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string failure = "line " + std::to_string(++number);
        while (!line.empty() && std::string_view(kBlanks).find(line.back()) != std::string_view::npos) line.pop_back();
        const std::size_t key = line.find_first_not_of(kBlanks);
        if (key == std::string::npos || line[key] == '#') continue;
        static constexpr std::string_view kKey = "management-interface";
        if (line.compare(key, kKey.size(), kKey) != 0) return failure;
        const std::size_t equals = line.find_first_not_of(kBlanks, key + kKey.size());
        if (equals == std::string::npos || line[equals] != '=') return failure;
        const std::size_t value = line.find_first_not_of(kBlanks, equals + 1);
        if (value == std::string::npos || line.find_first_of(kBlanks, value) != std::string::npos) return failure;
        if (!found.empty()) return failure;
        found = '=' + line.substr(value);
    }
    return found;
}

std::string Library(const std::string& text) {
    try {
        const auto name = SysNet::Network::ParseManagementInterface("F", text);
        return name ? '=' + *name : "";
    } catch (const HostMgmt::Lib::HostMgmtException& error) {
        const std::string message = error.what();
        const std::size_t line = message.find("line ");
        return message.substr(line, message.find(':', line) - line);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzzing::Input(data, size).Rest();
    fuzzing::Require(Library(text) == Literal(text), "library and literal reader agree");
    return 0;
}
