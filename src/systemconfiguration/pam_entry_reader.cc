#include "systemconfiguration/pam_entry_reader.h"

#include <sstream>
#include <string>

#include "systemconfiguration/names.h"
#include "systemconfiguration/pam_names.h"

namespace SystemConfiguration {
namespace {

bool OpensBracketOnly(std::string_view word) { return word.front() == '[' && word.back() != ']'; }

// One control: a word, or the words up to one that ends in ']', joined by single blanks whatever stood between them.
std::string ReadControl(std::istream& stream) {
    std::string control;
    stream >> control;
    if (control.empty() || !OpensBracketOnly(control)) return control;
    for (;;) {
        std::string word;
        stream >> word;
        if (!stream || word.empty()) return control;
        control += ' ';
        control += word;
        if (word.back() == ']') return control;
    }
}

void AppendWords(const std::string& text, std::list<std::string>& words) {
    std::istringstream stream(text);
    stream.exceptions(std::ios_base::badbit);  // memory that runs out must not look like the end of the line
    for (std::string word; stream >> word;) words.push_back(word);
}

// The words of `text`, one blank between each two.
void JoinWords(std::string_view text, std::string& joined) {
    Words words(text);
    joined = words.Next();
    for (std::string_view word = words.Next(); !word.empty(); word = words.Next()) joined.append(1, ' ').append(word);
}

}  // namespace

void PAMEntryReader::ReadWords(std::istream& stream, PAMEntry& entry) {
    entry._control = ReadControl(stream);
    stream >> entry._module;
    std::string rest;
    std::getline(stream, rest);
    if (!rest.empty()) AppendWords(rest, entry._parameters);
}

bool PAMEntryReader::Divide(std::string_view line, RuleText& rule) {
    Words words(line);
    const std::string_view first = words.Next();
    if (first.empty()) return false;
    if (first.front() == '[') {
        const std::size_t start = words.Position() - first.size();
        for (std::string_view last = first; last.back() != ']';) {
            const std::size_t end = words.Position();
            last = words.Next();
            if (last.empty()) return false;
            if (line[end] != ' ' || words.Position() != end + 1 + last.size()) rule.isJoined = false;
        }
        rule.value = PAMControl::Bracketed;
        rule.bracket = line.substr(start, words.Position() - start);
    } else {
        const auto* const name = FindName(kControlNames, first);
        if (name == nullptr) return false;
        rule.value = name->value;
    }
    rule.module = words.Next();
    rule.parameters = line.substr(words.Position());
    return !rule.module.empty();
}

void PAMEntryReader::Fill(const RuleText& rule, PAMEntry& entry) {
    entry._control._value = rule.value;
    if (rule.isJoined) {
        entry._control._text = rule.bracket;
    } else {
        JoinWords(rule.bracket, entry._control._text);
    }
    entry._module = rule.module;
    Words words(rule.parameters);
    for (std::string_view word = words.Next(); !word.empty(); word = words.Next()) entry._parameters.emplace_back(word);
}

}  // namespace SystemConfiguration
