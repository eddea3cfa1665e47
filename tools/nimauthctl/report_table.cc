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

constexpr std::size_t kLongestWord = 24;  // what is longer, and has blanks, may be wrapped
constexpr std::size_t kLeastProse = 30;   // columns that wrapped text needs, to be worth it

// In lines of at most `width` columns, broken at blanks. A longer word keeps a line of its own.
std::vector<std::string> Wrapped(const std::string& text, std::size_t width) {
    std::vector<std::string> lines(1);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (!lines.back().empty() && Width(lines.back()) + 1 + Width(word) > width) lines.emplace_back();
        lines.back() += (lines.back().empty() ? "" : " ") + word;
        at = end + 1;
    }
    return lines;
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
            if (!IsBlock(entry)) _labelWidth = std::max(_labelWidth, entry.label.size() + 1 + kGap);
        }
    }

    std::string Text() const {
        std::string text;
        bool behindBlock = false;
        for (const Report::Entry& entry : _report._entries) {
            const bool isBlock = IsBlock(entry);
            if (!text.empty() && (isBlock || behindBlock)) text += '\n';
            text += isBlock ? Block(entry) : Value(entry);
            behindBlock = isBlock;
        }
        if (behindBlock && !_report._notes.empty()) text += '\n';
        for (const std::string& note : _report._notes) text += Note(note);
        return text;
    }

 private:
    // Whether it takes lines of its own: a list that is not empty, or text of several lines.
    static bool IsBlock(const Report::Entry& entry) {
        const auto* const list = std::get_if<Report::ListValue>(&entry.value);
        return list != nullptr ? !list->rows.empty() : std::holds_alternative<Report::VerbatimValue>(entry.value);
    }

    std::string Block(const Report::Entry& entry) const {
        const auto* const verbatim = std::get_if<Report::VerbatimValue>(&entry.value);
        return verbatim == nullptr ? Table(entry) : VerbatimText(verbatim->text, _colors);
    }

    std::string Note(const std::string& note) const {
        const std::string label = "note: ";
        std::string text;
        for (const std::string& line : Wrapped(Printable(note), _columns - std::min(_columns, label.size()))) {
            text += (text.empty() ? label : std::string(label.size(), ' ')) + line + '\n';
        }
        return text;
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
        if (width <= _columns + kGap) return title + Grid(rows, names, widths);
        const std::string wrapped = WrappedGrid(rows, names, widths);
        return title + (wrapped.empty() ? Records(rows) : wrapped);
    }

    static bool IsProse(const std::deque<Row>& rows, const std::string& name) {
        return std::any_of(rows.begin(), rows.end(), [&](const Row& row) {
            const std::string cell = Cell(row, name);
            return Width(cell) > kLongestWord && cell.find(' ') != std::string::npos;
        });
    }

    // Columns of words, and one of wrapped text in which a row's further texts follow under their names:
    //
    //     CHECK         RESULT  FOUND
    //     default name  fail    'linux' is a default name, which a join refuses
    //                           remedy: give the host a name of its own
    //
    // Empty if there is no such text, or no room for it.
    std::string WrappedGrid(const std::deque<Row>& rows, const std::vector<std::string>& names,
                            const std::vector<std::size_t>& widths) const {
        std::vector<std::string> words;
        std::vector<std::string> texts;
        std::vector<std::size_t> wordWidths;
        std::size_t left = kIndent;
        for (std::size_t at = 0; at < names.size(); ++at) {
            if (IsProse(rows, names[at])) {
                texts.push_back(names[at]);
                continue;
            }
            words.push_back(names[at]);
            wordWidths.push_back(widths[at]);
            left += widths[at];
        }
        if (texts.empty() || left + kLeastProse > _columns) return "";
        words.push_back(texts.front());
        wordWidths.push_back(0);
        std::string grid = Line(words, wordWidths, [](const std::string& name) { return Heading(name); });
        for (const Row& row : rows) {
            const std::vector<std::string> lines = TextLines(row, texts, _columns - left);
            grid += Line(words, wordWidths, [&](const std::string& name) {
                return name == texts.front() ? lines.front() : Cell(row, name);
            });
            for (auto line = lines.begin() + 1; line != lines.end(); ++line) {
                grid += std::string(left, ' ') + *line + '\n';
            }
            MarkStaleRow(row, grid);
        }
        return grid;
    }

    static std::vector<std::string> TextLines(const Row& row, const std::vector<std::string>& texts,
                                              std::size_t width) {
        std::vector<std::string> lines = Wrapped(Cell(row, texts.front()), width);
        for (auto name = texts.begin() + 1; name != texts.end(); ++name) {
            if (Cell(row, *name).empty()) continue;
            for (std::string& line : Wrapped(*name + ": " + Cell(row, *name), width)) lines.push_back(std::move(line));
        }
        return lines;
    }

    void MarkStaleRow(const Row& row, std::string& text) const {
        if (!row.IsStale()) return;
        text.pop_back();
        text += StaleMark(true, _colors) + '\n';
    }

    std::string Grid(const std::deque<Row>& rows, const std::vector<std::string>& names,
                     const std::vector<std::size_t>& widths) const {
        // One column needs no heading.
        std::string text =
            names.size() > 1 ? Line(names, widths, [](const std::string& name) { return Heading(name); }) : "";
        for (const Row& row : rows) {
            text += Line(names, widths, [&](const std::string& name) { return Cell(row, name); });
            MarkStaleRow(row, text);
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
            text += std::string(kIndent, ' ') + ScalarAsText(row.Values().front().second) +
                    StaleMark(row.IsStale(), _colors) + '\n' + Details(row);
        }
        return text;
    }

    // "    domain: corp.test, locked: no", in as many lines as it takes. What is empty is left out.
    std::string Details(const Row& row) const {
        const std::string margin(2 * kIndent, ' ');
        const std::size_t room = _columns - std::min(_columns, margin.size());
        std::string text;
        std::size_t column = 0;
        for (auto value = row.Values().begin() + 1; value != row.Values().end(); ++value) {
            const std::string cell = ScalarAsText(value->second);
            if (cell.empty()) continue;
            const std::size_t width = Width(value->first) + 2 + Width(cell);
            if (column > 0) text += column + 2 + width < room ? ", " : ",\n";
            column = column > 0 && column + 2 + width < room ? column + 2 + width : width;
            if (text.empty() || text.back() == '\n') text += margin;
            text += value->first + ": ";
            text += width > room ? Folded(cell, room - std::min(room, value->first.size() + 2), margin)
                                 : Painted(cell, value->first, _colors);
        }
        return text.empty() ? text : text + '\n';
    }

    // Lines behind the first begin with the margin.
    static std::string Folded(const std::string& cell, std::size_t width, const std::string& margin) {
        std::string text;
        for (const std::string& line : Wrapped(cell, width)) text += (text.empty() ? "" : '\n' + margin) + line;
        return text;
    }

    const Report& _report;
    const std::size_t _columns;
    const bool _colors;
    std::size_t _labelWidth = 0;
};

std::string Report::AsTable(int columns, bool colors) const { return ReportTable(*this, columns, colors).Text(); }

}  // namespace nimbrel::nimauthctl
