// The journal of changes to the login files: /var/lib/nimbrel/logins, for root only.
//
//     lock                        held by whoever changes anything
//     7/record                    what change 7 is, and which files it concerns
//     7/state                     how far it has come
//     7/before/etc/nsswitch.conf  each file as it was, with its mode, owner and attributes; not there if it was absent
//     7/after/etc/nsswitch.conf   each file as it shall be
//
// The copies may have further names (a backup that links, a de-duplicator).
//
// An administrator without this tool goes back with
//     cd /var/lib/nimbrel/logins/7/before && find . ! -type d -exec cp -a {} /{} ';'
//
// Every step is durable before the next one begins, so that a crash at any point leaves what `Recover` can finish. Until a
// change is confirmed, what the files were before lies beside each of them as well (".nsswitch.conf.nimauth-7-before~"):
// going back then only renames, and so works on a full disk.
//
// Errors: `LoginsError`. Threads: one object belongs to one thread; processes take turns by `Lock`.

#ifndef NIMBREL_LOGINS_JOURNAL_H_
#define NIMBREL_LOGINS_JOURNAL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "pluginkit/descriptor.h"
#include "tools/loginfiles/file_state.h"

namespace nimbrel::logins {

inline constexpr char kJournalFolder[] = "/var/lib/nimbrel/logins";

// One file of a change.
struct Change {
    std::string path;
    FileState before;
    FileState after;

    bool operator==(const Change&) const = default;
};

// How far a change has come.
enum class Progress {
    Applying,   // files are being replaced
    Applied,    // all are; waits for a confirmation until the deadline
    Confirmed,  // stays
    Restoring,  // files are being put back
    Restored,   // all are back: the change failed, or nobody confirmed it
    Undone,     // a later change took it back
};
const char* Name(Progress progress);

struct Record {
    int id = 0;          // given by the journal
    std::string action;  // "enable", "disable", "undo"
    std::string mechanism = {};
    std::string pamModule = {};
    std::string nssService = {};
    std::vector<std::string> services = {};  // empty: all
    std::int64_t started = 0;                // seconds since 1970
    std::string bootId = {};                 // of the deadline
    std::int64_t deadline = 0;               // milliseconds since boot; 0: needs no confirmation
    int undoes = 0;                          // the change that this one takes back
    std::vector<Change> changes = {};
};

struct Entry {
    Record record;
    Progress progress = Progress::Applying;
    std::string reason = {};  // of Restoring and Restored
};

// An entry that cannot be read.
struct Damage {
    int id = 0;
    std::string reason;
    bool isOver = false;  // its state is readable and says that nothing waits
};

class Journal {
 public:
    // Touches nothing yet.
    explicit Journal(std::string folder = kJournalFolder);
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Makes the folder if need be and waits until no other process changes anything. Held until destruction.
    void Lock();

    // From the oldest to the newest. A journal that is not there is empty. `Entries` throws (kind System) if one of them
    // cannot be read; `ReadableEntries` leaves it out, for what must work in spite of it.
    std::vector<Entry> Entries() const;
    std::vector<Entry> ReadableEntries() const;
    std::vector<Damage> Damages() const;
    // Throws what `Entries` does for this one.
    [[noreturn]] void Refuse(const Damage& damage) const;
    std::optional<Entry> Find(int id) const;
    // The change that waits for a confirmation, as far as it can be read.
    std::optional<Entry> Waiting() const;

    // Makes all changes or none. Under the lock:
    //   1. checks that every file still is as `before` says (kind Changed otherwise),
    //   2. records the change, with the progress Applying,
    //   3. calls `armed` with the change's number, which may still refuse by throwing,
    //   4. prepares every file beside its place, and what goes back there, checks it once more and puts it in place,
    //   5. sets the progress Applied or, without a deadline, Confirmed.
    // SIGHUP, SIGINT and SIGTERM wait from 4 on until all is done, so that none of them ends the process half-way.
    // A failure from 3 on puts every file back and leaves as the exception it was. Returns the change's number.
    int Apply(Record record, const std::function<void(int)>& armed);

    // Finishes what a crash, a power cut or a missing confirmation left behind: puts the files of such changes back as
    // they were. A file whose content somebody else has changed since, or that is no file any more, is left alone and
    // named in the reason; one that cannot be written does not keep the others from being put back, and is thrown in the
    // end. Entries that cannot be read are passed by. Returns the changes concerned, newest first.
    std::vector<Entry> Recover();

    void Confirm(int id);

    // A new folder for a trial; `Recover` removes those that were left.
    std::string MakeCandidateFolder() const;
    std::string EntryFolder(int id) const;

    // What the present moment is worth as a deadline.
    static std::string BootId();
    static std::int64_t MillisecondsSinceBoot();

 private:
    std::vector<int> Ids() const;
    int NextId() const;
    void Create(Record& record);
    void SetProgress(int id, Progress progress, const std::string& reason = "");
    void ReplaceAll(const Record& record);
    void Compensate(const Record& record, const std::string& reason);
    std::string PutAllBack(const Record& record, const std::string& reason);
    bool PutBack(const Change& change, int id);
    void MarkUndone();
    void SetProgressIfPossible(int id, Progress progress, const std::string& reason) noexcept;
    void RemoveLeftovers();
    void Prune();

    std::string _folder;
    kit::Descriptor _lock;
};

// True once the deadline is over, or belongs to a time before the last boot.
bool IsOverdue(const Record& record);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_JOURNAL_H_
