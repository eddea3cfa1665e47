// The key-value file format, told one step after the other with iostreams.
//
// Slow and plain on purpose: it is what the library's own reader is compared with, by exhaustive tests, by the fuzzer and
// by the benchmarks. It shares no code with the library, not even its exceptions.

#ifndef NIMAUTH_TESTS_UNIT_LITERAL_CONFIGURATION_H_
#define NIMAUTH_TESTS_UNIT_LITERAL_CONFIGURATION_H_

#include <istream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

namespace literal {

using Settings = std::map<std::string, std::string>;

// A line that is no setting; `what` is the text that the library gives for it.
class Malformed : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

inline bool IsBlank(char character) { return character == ' ' || character == '\t'; }

inline bool IsBlankOnly(const std::string& text) {
    for (const char character : text) {
        if (!IsBlank(character)) return false;
    }
    return true;
}

// Of a text that holds something besides blanks.
inline std::string Trimmed(const std::string& text) {
    std::string::size_type first = 0;
    while (IsBlank(text[first])) ++first;
    std::string::size_type end = text.size();
    while (IsBlank(text[end - 1])) --end;
    return text.substr(first, end - first);
}

inline std::string CleanField(const std::string& raw, int lineNumber) {
    if (IsBlankOnly(raw)) return raw;
    const std::string text = Trimmed(raw);

    const char first = text.front();
    const bool quoted = (first == '"' || first == '\'') && text.back() == first;
    if (!quoted) return text;
    if (text.size() == 1) {
        throw Malformed("Error parsing configuration at line " + std::to_string(lineNumber) + ": invalid quoting");
    }
    return text.substr(1, text.size() - 2);
}

inline std::pair<std::string, std::string> SplitLine(const std::string& line, int lineNumber) {
    const std::string::size_type delimiter = line.find('=');
    if (delimiter == std::string::npos) {
        throw Malformed("Error parsing configuration on line " + std::to_string(lineNumber) + ": no delimiter found");
    }
    const std::string key = CleanField(line.substr(0, delimiter), lineNumber);
    const std::string value = CleanField(line.substr(delimiter + 1), lineNumber);
    return {key, value};
}

inline Settings Read(std::istream& stream) {
    Settings settings;
    std::string line;
    for (int lineNumber = 1; std::getline(stream, line); ++lineNumber) {
        if (IsBlankOnly(line)) continue;
        settings.insert(SplitLine(line, lineNumber));  // a key that is there already stays as it is
    }
    return settings;
}

}  // namespace literal

#endif  // NIMAUTH_TESTS_UNIT_LITERAL_CONFIGURATION_H_
