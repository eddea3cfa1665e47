// The text of a journal's record and state.
//
//     1  nimauth-logins 1
//     2  action enable
//     3  mechanism pam-auth-update
//     4  service sshd
//     5  path /etc/nsswitch.conf
//
// Line 1 names the format and its version; every other line is a key, a blank and a value up to the line's end. A key of
// a list (4, 5) may be repeated. The files' states lie beside the record as files.

#ifndef NIMBREL_LOGINS_RECORD_TEXT_H_
#define NIMBREL_LOGINS_RECORD_TEXT_H_

#include <string>

#include "tools/loginfiles/journal.h"

namespace nimbrel::logins {

// Throws (kind Refused) for a value with a line end.
std::string RecordText(const Record& record);
// The states of the changes are left empty. Throws (kind System) for a text that is not a record.
Record ParseRecord(const std::string& text);

std::string StateText(Progress progress, const std::string& reason);
void ParseState(const std::string& text, Entry& entry);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_RECORD_TEXT_H_
