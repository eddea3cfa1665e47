// Changes of the log-in files, through their journal, in an empty folder of the program's own.

#include <filesystem>

#include "crash/files.h"
#include "crash/operation.h"
#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::crash {
namespace {

using logins::Change;
using logins::Journal;
using logins::ReadState;

constexpr char kRoot[] = "/srv";
constexpr char kJournal[] = "/srv/var/lib/nimbrel/logins";
constexpr const char* kFiles[] = {"/srv/etc/pam.d/first", "/srv/etc/pam.d/second", "/srv/etc/nsswitch.conf",
                                  "/srv/etc/new/one"};

void PutFiles() {
    for (const char* const path : kFiles) {
        if (path != kFiles[3]) WriteFile(path, "old\n", 0600);
    }
    WriteFile("/srv/var/lib/nimbrel/other", "", 0600);
}

// Every file gets this content, or none.
void Apply(const std::string& content) {
    logins::Record record;
    record.action = "enable";
    for (const char* const path : kFiles) {
        const logins::FileState now = ReadState(path);
        if (now.content == content) continue;
        logins::FileState after = now.With(content);
        after.mode = 0600;  // so that its copies in the journal are its owner's alone
        record.changes.push_back({path, now, after});
    }
    Journal(kJournal).Apply(std::move(record), [](int) {});
}

Operation OnTheFiles(const char* name, std::function<void()> prepare, std::function<void()> run) {
    Operation operation;
    operation.name = name;
    operation.folders = {kRoot};
    operation.prepare = std::move(prepare);
    operation.run = std::move(run);
    // The tool finishes what was begun before it looks at anything.
    operation.read = [] {
        Journal(kJournal).Recover();
        Parts parts;
        for (const char* const path : kFiles) parts[path] = ReadFile(path);
        return parts;
    };
    operation.isDocumented = IsOneOf<logins::LoginsError>;
    operation.failureStride = 5;
    operation.powerStride = 3;
    // What was tried is remembered, with its files, and so are folders that were made for new files.
    operation.mayStay = [](const std::string& path) { return path.rfind(kJournal, 0) == 0 || path == "/srv/etc/new"; };
    return operation;
}

Operation ChangeFiles() {
    return OnTheFiles("log-in files", PutFiles, [] { Apply("new\n"); });
}

Operation UndoChange() {
    const auto prepare = [] {
        PutFiles();
        Apply("new\n");
    };
    return OnTheFiles("log-in files, undone", prepare, [] {
        Journal journal(kJournal);
        logins::Record record = journal.Find(1).value().record;
        record.action = "undo";
        record.undoes = 1;
        for (Change& change : record.changes) std::swap(change.before, change.after);
        if (ReadState(kFiles[0]) == record.changes[0].before) journal.Apply(std::move(record), [](int) {});
    });
}

}  // namespace

std::vector<Operation> Operations() {
    CoverFolder(kRoot);
    return {ChangeFiles(), UndoChange()};
}

}  // namespace nimbrel::crash
