// Reads PAM rules: the literal way, one word after the other, or whole lines at once where that gives the same.

#ifndef NIMAUTH_SYSTEMCONFIGURATION_PAM_ENTRY_READER_H_
#define NIMAUTH_SYSTEMCONFIGURATION_PAM_ENTRY_READER_H_

#include <istream>
#include <string_view>

#include "systemconfiguration/pam_policy.h"

namespace SystemConfiguration {

class PAMEntryReader {
 public:
    // Control, module and parameters, as `operator>>` of an entry tells.
    static void ReadWords(std::istream& stream, PAMEntry& entry);

    // The same from `line`, which starts at the control and ends before its '\n', into a fresh entry. False, and the
    // entry unspecified, if the line alone does not make a whole rule; the words must be read one by one then.
    static bool ReadLine(std::string_view line, PAMEntry& entry);

 private:
    static bool SetControl(std::string_view text, PAMControl& control);
};

}  // namespace SystemConfiguration

#endif  // NIMAUTH_SYSTEMCONFIGURATION_PAM_ENTRY_READER_H_
