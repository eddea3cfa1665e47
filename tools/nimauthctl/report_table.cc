// The report for a person at a terminal: values in one column, lists as tables.

#include <algorithm>
#include <vector>

#include "tools/nimauthctl/report_style.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr std::size_t kIndent = 2;
constexpr std::size_t kGap = 2;

// In characters, each taken to be one column wide.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string Padding(std::size_t width, const std::string& text) {
    return std::string(width - std::min(width, Width(text)), ' ');
}

std::string Heading(std::string_view name) {
    std::string heading(name);
    for (char& c : heading) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return heading;
}

// The names of the rows' details, in the order in which they are first seen. Rows need not all have the same.
std::vector<std::string> ColumnNames(const std::deque<Row>& rows) {
    std::vector<std::string> names;
    for (const Row& row : rows) {
        for (const auto& [name, value] : row.Values()) {
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        }
    }
    return names;
}

std::string Cell(const Row& row, const std::string& name) {
    for (const auto& [present, value] : row.Values()) {
        if (present == name) return ScalarAsText(value);
    }
    return "";
}

}  // namespace

class ReportTable {
 public:
    ReportTable(const Report& report, int columns, bool colors)
        : _report(report), _columns(static_cast<std::size_t>(columns)), _colors(colors) {
        for (const Report::Entry& entry : report._entries) {
            if (!IsTable(entry)) _labelWidth = std::max(_labelWidth, entry.label.size() + 1 + kGap);
        }
    }

    std::string Text() const {
        std::string text;
        bool behindTable = false;
        for (const Report::Entry& entry : _report._entries) {
            const bool isTable = IsTable(entry);
            if (!text.empty() && (isTable || behindTable)) text += '\n';
            text += isTable ? Table(entry) : Value(entry);
            behindTable = isTable;
        }
        if (behindTable && !_report._notes.empty()) text += '\n';
        for (const std::string& note : _report._notes) text += "note: " + Printable(note) + '\n';
        return text;
    }

 private:
    static bool IsTable(const Report::Entry& entry) {
        const auto* const list = std::get_if<Report::ListValue>(&entry.value);
        return list != nullptr && !list->rows.empty();
    }

    std::string Value(const Report::Entry& entry) const {
        const std::string label = entry.label + ':';
        return label + Padding(_labelWidth, label) + entry.AsText() + StaleMark(entry.stale, _colors) + '\n';
    }

    std::string Table(const Report::Entry& entry) const {
        const std::deque<Row>& rows = std::get<Report::ListValue>(entry.value).rows;
        const std::vector<std::string> names = ColumnNames(rows);
        std::vector<std::size_t> widths;
        std::size_t width = kIndent;
        for (const std::string& name : names) {
            std::size_t widest = Width(Heading(name));
            for (const Row& row : rows) widest = std::max(widest, Width(Cell(row, name)));
            widths.push_back(widest + kGap);
            width += widest + kGap;
        }
        const std::string title = entry.label + ':' + StaleMark(entry.stale, _colors) + '\n';
        return title + (width <= _columns + kGap ? Grid(rows, names, widths) : Records(rows));
    }

    std::string Grid(const std::deque<Row>& rows, const std::vector<std::string>& names,
                     const std::vector<std::size_t>& widths) const {
        // One column needs no heading.
        std::string text =
            names.size() > 1 ? Line(names, widths, [](const std::string& name) { return Heading(name); }) : "";
        for (const Row& row : rows) {
            text += Line(names, widths, [&](const std::string& name) { return Cell(row, name); });
            if (!row.IsStale()) continue;
            text.pop_back();
            text += StaleMark(true, _colors) + '\n';
        }
        return text;
    }

    template <typename TextOf>
    std::string Line(const std::vector<std::string>& names, const std::vector<std::size_t>& widths,
                     TextOf textOf) const {
        std::string line(kIndent, ' ');
        std::string padding;
        for (std::size_t at = 0; at < names.size(); ++at) {
            const std::string cell = textOf(names[at]);
            if (cell.empty()) {
                padding += std::string(widths[at], ' ');
                continue;
            }
            line += padding + Painted(cell, names[at], _colors);
            padding = Padding(widths[at], cell);
        }
        return line + '\n';
    }

    // Too wide for a table: the details of each row below it.
    std::string Records(const std::deque<Row>& rows) const {
        std::string text;
        for (const Row& row : rows) {
            const auto& values = row.Values();
            text += std::string(kIndent, ' ') + ScalarAsText(values.front().second) +
                    StaleMark(row.IsStale(), _colors) + '\n';
            for (auto value = values.begin() + 1; value != values.end(); ++value) {
                const std::string label = value->first + ':';
                text += std::string(2 * kIndent, ' ') + label + ' ' +
                        Painted(ScalarAsText(value->second), value->first, _colors) + '\n';
            }
        }
        return text;
    }

    const Report& _report;
    const std::size_t _columns;
    const bool _colors;
    std::size_t _labelWidth = 0;
};

std::string Report::AsTable(int columns, bool colors) const { return ReportTable(*this, columns, colors).Text(); }

}  // namespace nimbrel::nimauthctl
