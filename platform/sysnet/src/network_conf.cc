#include "network_conf.h"

#include <cstddef>

#include "system_error.h"
#include "text_file.h"

namespace SysNet::Network {
namespace {

constexpr char kBlanks[] = " \t\v\f\r";
constexpr char kKey[] = "management-interface";

std::string Trim(const std::string& text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

// The value of the one setting that there is; empty if the line is something else.
std::string SettingOf(const std::string& line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos || Trim(line.substr(0, equals)) != kKey) return "";
    const std::string value = Trim(line.substr(equals + 1));
    return value.find_first_of(kBlanks) == std::string::npos ? value : "";
}

}  // namespace

std::optional<std::string> ParseManagementInterface(const std::string& path, std::string_view text) {
    std::optional<std::string> interface;
    int number = 0;
    for (const Line& line : SplitLines(text)) {
        ++number;
        const std::string content = Trim(line.text);
        if (content.empty() || content.front() == '#') continue;
        const std::string where = path + ", line " + std::to_string(number);
        const std::string value = SettingOf(content);
        if (value.empty()) ThrowFileError("use", where, std::string("expected '") + kKey + " = NAME'");
        if (interface) ThrowFileError("use", where, std::string("'") + kKey + "' is set twice");
        interface = value;
    }
    return interface;
}

}  // namespace SysNet::Network
