// The report as `label: value` lines.

#include <algorithm>
#include <array>

#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kStale[] = " [stale]";

struct ScalarText {
    std::string operator()(std::monostate) const { return "none"; }
    std::string operator()(bool value) const { return value ? "yes" : "no"; }
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(const std::string& value) const { return Printable(value); }
};

std::string AsText(const Scalar& value) { return std::visit(ScalarText(), value); }

bool NeedsQuotes(const std::string& text) { return text.empty() || text.find_first_of(" \"'=") != std::string::npos; }

// A detail must stay one word, so that a line can be split at its blanks.
std::string Detail(const Scalar& value) {
    std::string text = AsText(value);
    if (!std::holds_alternative<std::string>(value) || !NeedsQuotes(text)) return text;
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string Line(std::string_view label, const std::string& value, bool stale) {
    return std::string(label) + ": " + value + (stale ? kStale : "") + '\n';
}

std::string RowLine(const Row& row, bool stale) {
    const auto& values = row.Values();
    std::string text = AsText(values.front().second);
    for (auto value = values.begin() + 1; value != values.end(); ++value) {
        text += ' ' + value->first + '=' + Detail(value->second);
    }
    return Line(values.front().first, text, stale || row.IsStale());
}

bool IsControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

// The second byte of a control character that Unicode added (U+0080 to U+009F), which terminals obey too.
bool IsAddedControl(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    return at > 0 && byte(at - 1) == 0xc2 && byte(at) >= 0x80 && byte(at) <= 0x9f;
}

std::string Escaped(unsigned char c) {
    constexpr char kDigits[] = "0123456789abcdef";
    return {'\\', 'x', kDigits[c >> 4], kDigits[c & 15]};
}

// Tabs and line ends stay.
std::string PrintableLines(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of("\t\n"), text.size());
        shown += Printable(text.substr(0, end));
        shown += text.substr(end, 1);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return shown;
}

}  // namespace

class ReportText {
 public:
    static std::string Of(const Report& report) {
        std::string text;
        for (const Report::Entry& entry : report._entries) text += Of(entry);
        for (const std::string& note : report._notes) text += Line("note", Printable(note), false);
        return text;
    }

 private:
    static std::string Of(const Report::Entry& entry) {
        if (const auto* scalar = std::get_if<Scalar>(&entry.value)) {
            const bool unknown = entry.stale && std::holds_alternative<std::monostate>(*scalar);
            return Line(entry.label, unknown ? "unknown" : AsText(*scalar), entry.stale);
        }
        if (const auto* coded = std::get_if<Report::CodedValue>(&entry.value)) {
            return Line(entry.label, std::to_string(coded->value) + " (" + coded->words + ')', entry.stale);
        }
        if (const auto* list = std::get_if<Report::ListValue>(&entry.value)) return Of(entry, *list);
        if (const auto* verbatim = std::get_if<Report::VerbatimValue>(&entry.value))
            return PrintableLines(verbatim->text);
        return Line(entry.label, "unavailable", entry.stale);
    }

    static std::string Of(const Report::Entry& entry, const Report::ListValue& list) {
        if (list.rows.empty()) return Line(entry.label, entry.stale ? "unknown" : "none", entry.stale);
        std::string text;
        for (const Row& row : list.rows) text += RowLine(row, entry.stale);
        return text;
    }
};

std::string Report::AsText() const { return ReportText::Of(*this); }

std::string FailureAsText(const Failure& failure) {
    std::string text = Line("error", Printable(failure.message), false);
    if (!failure.where.empty()) text += Line("where", Printable(failure.where), false);
    if (!failure.cause.empty()) text += Line("cause", failure.cause, false);
    if (!failure.remedy.empty()) text += Line("remedy", failure.remedy, false);
    return text;
}

std::string Printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto c = static_cast<unsigned char>(text[at]);
        if (IsControl(c) || IsAddedControl(text, at)) {
            shown += Escaped(c);
        } else {
            shown += text[at];
        }
    }
    return shown;
}

}  // namespace nimbrel::nimauthctl
