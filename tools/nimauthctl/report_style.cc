#include "tools/nimauthctl/report_style.h"

#include <algorithm>

namespace nimbrel::nimauthctl {
namespace {

constexpr char kGreen[] = "\x1b[32m";
constexpr char kYellow[] = "\x1b[33m";
constexpr char kRed[] = "\x1b[31m";
constexpr char kPlain[] = "\x1b[0m";

struct ScalarText {
    std::string operator()(std::monostate) const { return "none"; }
    std::string operator()(bool value) const { return value ? "yes" : "no"; }
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(const std::string& value) const { return Printable(value); }
};

const char* ColorOf(const std::string& text, std::string_view name) {
    if (name == "stale") return text == "yes" ? kYellow : nullptr;
    if (name != "result") return nullptr;
    if (text == "pass") return kGreen;
    return text == "warn" ? kYellow : kRed;
}

const char* ColorOfDiffLine(std::string_view line) {
    if (line.starts_with("+++") || line.starts_with("---")) return nullptr;
    if (line.starts_with('+')) return kGreen;
    return line.starts_with('-') ? kRed : nullptr;
}

std::string PrintableButTabs(std::string_view line) {
    std::string shown;
    for (std::size_t tab; (tab = line.find('\t')) != std::string_view::npos; line.remove_prefix(tab + 1)) {
        shown += Printable(line.substr(0, tab)) + '\t';
    }
    return shown + Printable(line);
}

}  // namespace

std::string ScalarAsText(const Scalar& value) { return std::visit(ScalarText(), value); }

std::string StaleMark(bool stale, bool colors) {
    if (!stale) return "";
    return colors ? std::string(" ") + kYellow + "[stale]" + kPlain : " [stale]";
}

std::string Painted(const std::string& text, std::string_view name, bool colors) {
    const char* const color = colors ? ColorOf(text, name) : nullptr;
    return color == nullptr ? text : color + text + kPlain;
}

std::string VerbatimText(std::string_view text, bool colors) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        const char* const color = colors ? ColorOfDiffLine(line) : nullptr;
        shown += (color == nullptr ? "" : color) + PrintableButTabs(line) + (color == nullptr ? "" : kPlain);
        shown += text.substr(end, 1);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return shown;
}

std::string Report::Entry::AsText() const {
    if (const auto* scalar = std::get_if<Scalar>(&value)) {
        return stale && std::holds_alternative<std::monostate>(*scalar) ? "unknown" : ScalarAsText(*scalar);
    }
    if (const auto* coded = std::get_if<CodedValue>(&value)) {
        return std::to_string(coded->value) + " (" + coded->words + ')';
    }
    if (std::holds_alternative<ListValue>(value)) return stale ? "unknown" : "none";
    return "unavailable";
}

}  // namespace nimbrel::nimauthctl
