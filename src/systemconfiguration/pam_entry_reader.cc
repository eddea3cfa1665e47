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

}  // namespace

void PAMEntryReader::ReadWords(std::istream& stream, PAMEntry& entry) {
    entry._control = ReadControl(stream);
    stream >> entry._module;
    std::string rest;
    std::getline(stream, rest);
    if (!rest.empty()) AppendWords(rest, entry._parameters);
}

bool PAMEntryReader::SetControl(std::string_view text, PAMControl& control) {
    if (IsBracketed(text)) {
        control._value = PAMControl::Bracketed;
        control._text = text;
        return true;
    }
    const auto* const name = FindName(kControlNames, text);
    if (name == nullptr) return false;
    control._value = name->value;
    return true;
}

bool PAMEntryReader::ReadLine(std::string_view line, PAMEntry& entry) {
    Words words(line);
    std::string_view control = words.Next();
    if (control.empty()) return false;
    if (OpensBracketOnly(control)) {
        std::string joined(control);
        do {
            control = words.Next();
            if (control.empty()) return false;
            joined.append(1, ' ').append(control);
        } while (control.back() != ']');
        if (!SetControl(joined, entry._control)) return false;
    } else if (!SetControl(control, entry._control)) {
        return false;
    }

    const std::string_view module = words.Next();
    if (module.empty()) return false;
    entry._module = module;
    for (std::string_view word = words.Next(); !word.empty(); word = words.Next()) entry._parameters.emplace_back(word);
    return true;
}

}  // namespace SystemConfiguration
