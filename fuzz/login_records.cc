// The journal of changes to the login files. Any text of a record or a state that is taken is written and read the same
// again, and every file that a record names has a whole path.

#include "fuzz.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/record_text.h"

namespace {

using fuzzing::Require;
using namespace nimbrel::logins;

void CheckRecord(const std::string& text) try {
    const Record record = ParseRecord(text);
    const std::string written = RecordText(record);
    const Record again = ParseRecord(written);
    Require(RecordText(again) == written, "a record is written the same again");
    Require(again.action == record.action && again.mechanism == record.mechanism && again.undoes == record.undoes &&
                again.pamModule == record.pamModule && again.nssService == record.nssService &&
                again.services == record.services && again.started == record.started && again.bootId == record.bootId &&
                again.deadline == record.deadline && again.changes == record.changes,
            "a record reads the same again");
    for (const Change& change : record.changes) Require(change.path.starts_with('/'), "a path is a whole one");
} catch (const LoginsError& error) {
    Require(error.Reason() == LoginsError::Kind::System, "a damaged record is a failure of the system");
}

void CheckState(const std::string& text) try {
    Entry entry;
    ParseState(text, entry);
    const std::string written = StateText(entry.progress, entry.reason);
    Entry again;
    ParseState(written, again);
    Require(again.progress == entry.progress && again.reason == entry.reason, "a state reads the same again");
} catch (const LoginsError& error) {
    Require(error.Reason() == LoginsError::Kind::System, "a damaged state is a failure of the system");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzzing::Input(data, size).Rest();
    CheckRecord(text);
    CheckState(text);
    return 0;
}
