// The answer of a command: named values, lists of rows, and remarks, in the order in which they were added. One report
// is shown either as text or as a JSON object, so that both always say the same.
//
//     report.Text("domain", "corp.test");                         domain: corp.test
//     report.Coded("trust state", 1, "healthy");                  trust state: 1 (healthy)
//     report.AddRow("user", "users", "alice").Flag("locked", false);     user: alice locked=no
//
//     {"schema": 1, "domain": "corp.test", "trustState": 1, "trustStateText": "healthy",
//      "users": [{"user": "alice", "locked": false}]}
//
// Labels are lower-case words; a JSON name is its label in camel case. In text, control characters of values are shown
// as \xNN, so that a value cannot play with the terminal or pass for another line. In JSON, bytes that are not UTF-8
// are replaced.
//
// Threads: belongs to one thread.

#ifndef NIMAUTHCTL_REPORT_H_
#define NIMAUTHCTL_REPORT_H_

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {

// A value; `std::monostate` is null in JSON and "none" in text, or "unknown" where it is stale.
using Scalar = std::variant<std::monostate, bool, std::int64_t, std::string>;

// One entry of a list: what it is, then its details as name=value.
class Row {
 public:
    Row& Text(std::string_view name, std::string_view value) { return Add(name, std::string(value)); }
    Row& Number(std::string_view name, std::int64_t value) { return Add(name, value); }
    Row& Flag(std::string_view name, bool value) { return Add(name, value); }
    Row& None(std::string_view name) { return Add(name, std::monostate()); }
    // Marks this row's details as last known.
    Row& Stale();

    const std::vector<std::pair<std::string, Scalar>>& Values() const { return _values; }
    bool IsStale() const { return _stale; }

 private:
    Row& Add(std::string_view name, Scalar value);

    std::vector<std::pair<std::string, Scalar>> _values;
    bool _stale = false;
};

class Report {
 public:
    void Text(std::string_view label, std::string_view value) { Add(label, std::string(value)); }
    void Number(std::string_view label, std::int64_t value) { Add(label, value); }
    void Flag(std::string_view label, bool value) { Add(label, value); }  // yes or no
    void None(std::string_view label) { Add(label, std::monostate()); }
    // The value, or none for an empty one.
    void TextOrNone(std::string_view label, std::string_view value);
    // A number with its meaning in words.
    void Coded(std::string_view label, std::int64_t value, std::string_view words);

    // Opens an empty list, for "[]" and "none" (stale: null and "unknown") if no row follows.
    void List(std::string_view rowLabel, std::string_view label);
    // Adds to the list, which is opened if need be. The reference holds until the report is destroyed.
    Row& AddRow(std::string_view rowLabel, std::string_view label, std::string_view headline);

    // Text of several lines, shown as it is: a diff. Nothing is shown for an empty one.
    void Verbatim(std::string_view label, std::string_view text);

    // Marks a value or list that was added as the last known one: a time-out struck.
    void MarkStale(std::string_view label);

    // What the reader should know besides: "note: ...".
    void Note(std::string_view text) { _notes.emplace_back(text); }

    // An answer that could not be had: "<label>: unavailable" here, and the failure itself is told once, however many
    // answers it took.
    void Unavailable(std::string_view label, const Failure& failure);
    // A failure that leaves the answers as they are.
    void AddFailure(const Failure& failure);

    const std::vector<Failure>& Failures() const { return _failures; }
    bool HasStale() const;

    // Lines, each with its line end; failures are not among them. `colors` marks what is stale, good or bad.
    std::string AsText(bool colors = false) const;
    // The same for a person at a terminal of so many columns: values in a column, lists as tables. A list that is wider
    // has its long texts wrapped, or else each row's details below it.
    std::string AsTable(int columns, bool colors) const;
    // One object with a line end.
    std::string AsJson() const;

 private:
    struct ListValue {
        std::string rowLabel;
        std::deque<Row> rows;
    };
    struct UnavailableValue {};
    struct VerbatimValue {
        std::string text;
    };
    struct CodedValue {
        std::int64_t value;
        std::string words;
    };
    struct Entry {
        std::string label;
        std::variant<Scalar, CodedValue, ListValue, UnavailableValue, VerbatimValue> value;
        bool stale = false;

        // The value in one line, but for its staleness; of a list, what stands for an empty one.
        std::string AsText() const;
    };
    friend class ReportText;
    friend class ReportTable;
    friend class ReportJson;

    void Add(std::string_view label, Scalar value);
    Entry* Find(std::string_view label);

    std::deque<Entry> _entries;
    std::vector<std::string> _notes;
    std::vector<Failure> _failures;
};

// A failure as lines: "error: ...", then "where: ...", "cause: ...", "remedy: ..." and "log: ..." as far as they are
// known.
std::string FailureAsText(const Failure& failure, bool colors = false);
// The whole output of a command that failed: {"schema": 1, "error": {...}}.
std::string FailureAsJson(const Failure& failure);

// A text as a JSON string with its quotes; bytes that are not UTF-8 are replaced.
std::string JsonText(std::string_view text);

// "trusted domains" -> "trustedDomains", "may-join" -> "mayJoin".
std::string JsonName(std::string_view label);

// The text with each control character as \xNN. For the eye: a backslash of the text itself stays single.
std::string Printable(std::string_view text);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_REPORT_H_
