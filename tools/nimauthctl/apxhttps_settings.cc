#include "tools/nimauthctl/apxhttps_settings.h"

#include <sstream>

namespace nimbrel::nimauthctl {
namespace {

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string_view Unquoted(std::string_view value) {
    const bool quoted = value.size() >= 2 && value.front() == '"' && value.back() == '"';
    return quoted ? value.substr(1, value.size() - 2) : value;
}

}  // namespace

std::string ApxhttpsSetting(const std::string& text, std::string_view key) {
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        const std::string_view trimmed = Trimmed(line);
        const std::size_t equals = trimmed.find('=');
        if (equals == std::string_view::npos || Trimmed(trimmed.substr(0, equals)) != key) continue;
        found = Unquoted(Trimmed(trimmed.substr(equals + 1)));
    }
    return found;
}

}  // namespace nimbrel::nimauthctl
