#include "services/apxd/service_log.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace nimbrel::apxd {
namespace {

constexpr std::size_t kLongestValue = 256;

bool IsPlain(char c) { return c > ' ' && c < 0x7f && c != '"' && c != '\\' && c != '='; }

std::string Quoted(std::string_view value) {
    std::string text = "\"";
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && c != '"' && c != '\\') {
            text += c;
        } else {
            text.append("\\x") += "0123456789abcdef"[byte >> 4U];
            text += "0123456789abcdef"[byte & 0xFU];
        }
    }
    return text + '"';
}

}  // namespace

LogLine& LogLine::Add(std::string_view name, std::string_view value) {
    std::string shown(value.substr(0, kLongestValue));
    if (shown.size() < value.size()) shown += "...";
    const bool plain = !shown.empty() && std::all_of(shown.begin(), shown.end(), IsPlain);
    _text.append(" ").append(name).append("=") += plain ? shown : Quoted(shown);
    return *this;
}

void LogLine::Write() const {
    const std::string line = _text + '\n';
    static_cast<void>(!write(STDERR_FILENO, line.data(), line.size()));
}

std::optional<std::uint64_t> LogBudget::Take(Time now) {
    const std::lock_guard<std::mutex> lock(_lock);
    const std::chrono::duration<double> passed = now - _filled;
    _lines = std::min(kLinesAtOnce, _lines + passed.count());
    _filled = now;
    if (_lines < 1) {
        ++_leftOut;
        return std::nullopt;
    }
    _lines -= 1;
    return std::exchange(_leftOut, 0);
}

void LogBudget::Write(LogLine& line, Time now) {
    const auto leftOut = Take(now);
    if (!leftOut) return;
    if (*leftOut > 0) line.Add("left-out", *leftOut);
    line.Write();
}

}  // namespace nimbrel::apxd
