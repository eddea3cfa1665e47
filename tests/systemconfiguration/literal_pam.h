// The PAM policy text, read and written one step after the other with iostreams.
//
// Slow and plain on purpose: it is what the library's own reader and writer are compared with, by exhaustive tests, by
// the fuzzer and by the benchmarks. It shares no code with the library, not even its exceptions or its tables.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_LITERAL_PAM_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_LITERAL_PAM_H_

#include <cctype>
#include <cstddef>
#include <deque>
#include <istream>
#include <list>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace literal_pam {

class InvalidFacility : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

class InvalidControl : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

constexpr int kBracketed = 7;

struct Control {
    int value = 0;
    std::string text;  // of a bracket
};

struct Entry {
    Control control;
    std::string module;
    std::list<std::string> parameters;
};

using Policy = std::map<int, std::deque<Entry>>;  // by facility

struct Name {
    int value;
    std::string name;
};

inline const Name kFacilities[] = {{1, "account"}, {2, "auth"}, {3, "password"}, {4, "session"}};
inline const Name kControls[] = {{1, "required"}, {2, "requisite"}, {3, "sufficient"},
                                 {4, "optional"}, {5, "include"},   {6, "substack"}};

// The text from its `value`-th character on; nothing where it has none.
inline std::string StartingAt(const std::string& text, int value) {
    if (value < 0 || static_cast<std::size_t>(value) > text.size()) return "";
    return text.substr(static_cast<std::size_t>(value));
}

inline int ParseFacility(const std::string& name) {
    for (const Name& row : kFacilities) {
        if (row.name.size() == name.size() && row.name == name) return row.value;
    }
    throw InvalidFacility("Invalid Facility: " + name);
}

inline std::string FacilityName(int value) {
    for (const Name& row : kFacilities) {
        if (row.value == value) return row.name;
    }
    throw InvalidFacility(StartingAt("Invalid Facility: ", value));
}

inline void ParseControl(const std::string& text, Control& control) {
    if (!text.empty() && text[0] == '[' && text[text.size() - 1] == ']') {
        control.value = kBracketed;
        control.text = text;
        return;
    }
    for (const Name& row : kControls) {
        if (row.name.size() == text.size() && row.name == text) {
            control.value = row.value;
            return;
        }
    }
    throw InvalidControl("Invalid Control: " + text);
}

inline std::string ControlText(const Control& control) {
    if (control.value == kBracketed) return control.text;
    for (const Name& row : kControls) {
        if (row.value == control.value) return row.name;
    }
    throw InvalidControl(StartingAt("Invalid Control: ", control.value));
}

inline void ReadEntry(std::istream& in, Entry& entry) {
    std::string token;
    in >> token;
    std::string control = token;
    if (!token.empty() && token[0] == '[' && token[token.size() - 1] != ']') {
        for (;;) {
            std::string next;
            in >> next;
            if (in.fail()) break;
            if (next.empty()) break;
            control = control + " " + next;
            if (next[next.size() - 1] == ']') break;
        }
    }
    ParseControl(control, entry.control);
    in >> entry.module;
    std::string rest;
    std::getline(in, rest);
    if (!rest.empty()) {
        std::istringstream words(rest);
        std::string word;
        while (words >> word) {
            if (!word.empty()) entry.parameters.push_back(word);
        }
    }
}

inline void ReadPolicy(std::istream& in, Policy& policy) {
    while (!in.fail()) {
        while (std::isspace(in.peek())) in.get();
        if (in.peek() == '#') {
            std::string comment;
            std::getline(in, comment);
        } else if (in.peek() == std::char_traits<char>::eof()) {
            return;
        } else {
            std::string word;
            in >> word;
            const int facility = ParseFacility(word);
            Entry entry;
            ReadEntry(in, entry);
            policy[facility].push_back(entry);
        }
    }
}

inline void WriteEntry(std::ostream& out, const Entry& entry) {
    out << ControlText(entry.control);
    out << '\t';
    out << entry.module;
    out << '\t';
    for (const std::string& parameter : entry.parameters) {
        out << parameter;
        out << ' ';
    }
}

inline void WriteStack(std::ostream& out, int facility, const std::deque<Entry>& entries) {
    for (const Entry& entry : entries) {
        out << FacilityName(facility);
        out << '\t';
        WriteEntry(out, entry);
        out << std::endl;
    }
}

inline void WritePolicy(std::ostream& out, const Policy& policy) {
    out << "#%PAM-1.0";
    out << std::endl;
    out << std::endl;
    for (const auto& [facility, entries] : policy) {
        WriteStack(out, facility, entries);
        out << std::endl;
    }
}

}  // namespace literal_pam

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_LITERAL_PAM_H_
