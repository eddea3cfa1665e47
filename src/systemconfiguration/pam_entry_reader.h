// Reads PAM rules: the literal way, one word after the other, or whole lines at once where that gives the same.

#ifndef NIMAUTH_SYSTEMCONFIGURATION_PAM_ENTRY_READER_H_
#define NIMAUTH_SYSTEMCONFIGURATION_PAM_ENTRY_READER_H_

#include <istream>
#include <string_view>

#include "systemconfiguration/pam_policy.h"

namespace SystemConfiguration {

// The parts of a rule as they stand in its line.
struct RuleText {
    PAMControl::Control value = PAMControl::Unset;
    std::string_view bracket;  // of a bracketed control
    bool isJoined = true;      // its words are separated by one blank each
    std::string_view module;
    std::string_view parameters;
};

class PAMEntryReader {
 public:
    // Control, module and parameters, as `operator>>` of an entry tells.
    static void ReadWords(std::istream& stream, PAMEntry& entry);

    // The same from `line`, which starts at the control and ends before its '\n'. False if the line alone does not make
    // a whole rule; the words must be read one by one then.
    static bool Divide(std::string_view line, RuleText& rule);

    // Into a fresh entry.
    static void Fill(const RuleText& rule, PAMEntry& entry);
};

}  // namespace SystemConfiguration

#endif  // NIMAUTH_SYSTEMCONFIGURATION_PAM_ENTRY_READER_H_
