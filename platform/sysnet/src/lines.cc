#include <cstddef>
#include <utility>

#include "text_file.h"

namespace SysNet::Network {

std::vector<Line> SplitLines(std::string_view content) {
    std::vector<Line> lines;
    while (!content.empty()) {
        const std::size_t newline = content.find('\n');
        const std::size_t length = newline == std::string_view::npos ? content.size() : newline + 1;
        std::string_view text = content.substr(0, length);
        if (newline != std::string_view::npos) text.remove_suffix(1);
        if (newline != std::string_view::npos && !text.empty() && text.back() == '\r') text.remove_suffix(1);
        lines.push_back({std::string(text), std::string(content.substr(text.size(), length - text.size()))});
        content.remove_prefix(length);
    }
    return lines;
}

std::string JoinLines(const std::vector<Line>& lines) {
    std::string content;
    for (const Line& line : lines) content += line.text + line.end;
    return content;
}

std::string LineEndOf(const std::vector<Line>& lines) {
    std::string end = "\n";
    for (const Line& line : lines) {
        if (!line.end.empty()) end = line.end;
    }
    return end;
}

void AppendLine(std::vector<Line>& lines, std::string text) {
    const std::string end = LineEndOf(lines);
    if (!lines.empty() && lines.back().end.empty()) lines.back().end = end;
    lines.push_back({std::move(text), end});
}

}  // namespace SysNet::Network
