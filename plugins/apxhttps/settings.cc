#include "settings.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace nimbrel::apxhttps {
namespace {

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Quotes around a value are optional.
std::string Unquoted(std::string_view value) {
    const bool quoted = value.size() >= 2 && value.front() == '"' && value.back() == '"';
    return std::string(quoted ? value.substr(1, value.size() - 2) : value);
}

long Number(const std::string& value, long most) {
    long number = 0;
    const char* const end = value.data() + value.size();
    const auto [rest, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc() || rest != end || number < 1 || number > most) {
        throw std::runtime_error("the value must be a number from 1 to " + std::to_string(most));
    }
    return number;
}

void Set(Settings& settings, const std::string& key, const std::string& value) {
    if (key == "port") {
        settings.port = Number(value, 65535);
    } else if (key == "connect-seconds") {
        settings.connectSeconds = Number(value, 3600);
    } else if (key == "total-seconds") {
        settings.totalSeconds = Number(value, 3600);
    } else if (key == "client-certificate") {
        settings.clientCertificate = value;
    } else if (key == "client-key") {
        settings.clientKey = value;
    } else {
        throw std::runtime_error("unknown key '" + key + "'");
    }
}

void ReadLine(Settings& settings, std::string_view line) {
    const std::string_view text = Trimmed(line);
    if (text.empty() || text.front() == '#') return;
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) throw std::runtime_error("the line is not KEY = \"VALUE\"");
    Set(settings, std::string(Trimmed(text.substr(0, equals))), Unquoted(Trimmed(text.substr(equals + 1))));
}

}  // namespace

Settings ParseSettings(const std::string& text, const std::string& file) {
    Settings settings;
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        try {
            ReadLine(settings, line);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(file + ':' + std::to_string(number) + ": " + error.what());
        }
    }
    return settings;
}

Settings ReadSettings(const std::string& file) {
    const auto fail = [&](int error) {
        throw std::runtime_error(file + ":0: " + std::generic_category().message(error));
    };
    const std::unique_ptr<FILE, int (*)(FILE*)> opened(std::fopen(file.c_str(), "rbe"), std::fclose);
    if (opened == nullptr && errno == ENOENT) return {};
    if (opened == nullptr) fail(errno);
    std::string text;
    char buffer[4096];
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, opened.get())) > 0;) {
        text.append(buffer, count);
    }
    if (std::ferror(opened.get()) != 0) fail(errno);
    return ParseSettings(text, file);
}

}  // namespace nimbrel::apxhttps
