// Whether the library and the literal reader make the same of a text, however it is put before them.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_SAME_READING_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_SAME_READING_H_

#include <ostream>
#include <sstream>
#include <string>

#include "systemconfiguration/outcome.h"

// What a reader's model is written as, as far as it was read.
template <typename Reader>
std::string Rewritten(const std::string& text) {
    std::istringstream in(text);
    std::ostringstream out;
    Reader reader;
    try {
        reader.Read(in);
    } catch (const std::exception&) {
        // outcomes are compared by themselves
    }
    reader.Write(out);
    return out.str();
}

// Whole, in slices, and with a read error in the middle. Says on `log` what differs.
template <typename Library, typename Literal>
bool SameReading(const std::string& text, std::ostream& log) {
    const Source sources[] = {{text},     {text, kNever, kNever, false},  {text, 1}, {text, 7},
                              {text, 64}, {text, kNever, text.size() / 2}};
    for (const Source& source : sources) {
        const Outcome actual = OutcomeOf<Library>(source);
        const Outcome expected = OutcomeOf<Literal>(source);
        if (actual == expected) continue;
        log << source << "\nliteral " << expected << "\nlibrary " << actual << '\n';
        return false;
    }
    const std::string actual = Rewritten<Library>(text);
    const std::string expected = Rewritten<Literal>(text);
    if (actual == expected) return true;
    log << '"' << Shown(text) << "\"\nliteral writes \"" << Shown(expected) << "\"\nlibrary writes \"" << Shown(actual)
        << "\"\n";
    return false;
}

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_SAME_READING_H_
