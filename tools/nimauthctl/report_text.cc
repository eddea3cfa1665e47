// The report as `label: value` lines.

#include "tools/nimauthctl/report_style.h"

namespace nimbrel::nimauthctl {
namespace {

bool NeedsQuotes(const std::string& text) { return text.empty() || text.find_first_of(" \"'=") != std::string::npos; }

// A detail must stay one word, so that a line can be split at its blanks.
std::string Detail(const Scalar& value) {
    std::string text = ScalarAsText(value);
    if (!std::holds_alternative<std::string>(value) || !NeedsQuotes(text)) return text;
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string Line(std::string_view label, const std::string& value, bool stale, bool colors) {
    return std::string(label) + ": " + value + StaleMark(stale, colors) + '\n';
}

std::string RowLine(const Row& row, bool stale, bool colors) {
    const auto& values = row.Values();
    std::string text = ScalarAsText(values.front().second);
    for (auto value = values.begin() + 1; value != values.end(); ++value) {
        text += ' ' + value->first + '=' + Painted(Detail(value->second), value->first, colors);
    }
    return Line(values.front().first, text, stale || row.IsStale(), colors);
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

}  // namespace

class ReportText {
 public:
    static std::string Of(const Report& report, bool colors) {
        std::string text;
        for (const Report::Entry& entry : report._entries) text += Of(entry, colors);
        for (const std::string& note : report._notes) text += Line("note", Printable(note), false, colors);
        return text;
    }

 private:
    static std::string Of(const Report::Entry& entry, bool colors) {
        if (const auto* list = std::get_if<Report::ListValue>(&entry.value); list != nullptr && !list->rows.empty()) {
            std::string text;
            for (const Row& row : list->rows) text += RowLine(row, entry.stale, colors);
            return text;
        }
        if (const auto* verbatim = std::get_if<Report::VerbatimValue>(&entry.value)) {
            return VerbatimText(verbatim->text, colors);
        }
        return Line(entry.label, entry.AsText(), entry.stale, colors);
    }
};

std::string Report::AsText(bool colors) const { return ReportText::Of(*this, colors); }

std::string FailureAsText(const Failure& failure, bool colors) {
    const std::string error = colors ? "\x1b[31merror\x1b[0m" : "error";
    std::string text = Line(error, Printable(failure.message), false, colors);
    if (!failure.where.empty()) text += Line("where", Printable(failure.where), false, colors);
    if (!failure.cause.empty()) text += Line("cause", failure.cause, false, colors);
    if (!failure.remedy.empty()) text += Line("remedy", failure.remedy, false, colors);
    if (!failure.log.empty()) text += Line("log", failure.log, false, colors);
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
