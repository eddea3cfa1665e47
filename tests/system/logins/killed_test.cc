// The tool is ended at every system call of a change: whenever that is, no file is torn, and the next call finishes.

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include "logins_host.h"
#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/plan.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using logins::Change;
using logins::FileState;
using logins::Journal;
using logins::Progress;

constexpr char kJournal[] = "/var/lib/nimbrel/logins";
constexpr char kNew[] = "/tmp/new";

// One system call of the run that is to be ended: its name and which one of that name it is.
struct Call {
    std::string name;
    int number = 0;
};

class LoginsKilledTest : public LoginsHost {
 protected:
    // The real change of the real files: as pam-auth-update makes it on a copy.
    void PlanRealChange() {
        Journal journal;
        journal.Lock();
        _changes = logins::PlanEnable(journal, {kModule, {}, "nimembedded", {}}, {}).changes;
        for (const Change& change : _changes) {
            const std::string place = kNew + change.path;
            fs::create_directories(logins::FolderOf(place));
            logins::Stage(place, 1, change.after);
            logins::Replace(place, 1, change.after);
        }
    }

    Words DriverWords() const {
        Words words = {NIMAUTH_APPLY_DRIVER, kNew};
        for (const Change& change : _changes) words.push_back(change.path);
        return words;
    }

    static ProgramResult Strace(const Words& options, const Words& command) {
        Words words = {"-qq", "-o", "/tmp/trace"};
        words.insert(words.end(), options.begin(), options.end());
        words.insert(words.end(), command.begin(), command.end());
        return RunProgram("/usr/bin/strace", {.arguments = words, .environment = {"ASAN_OPTIONS=detect_leaks=0"}});
    }

    // Every call from the lock on.
    std::vector<Call> CallsOfTheChange() {
        EXPECT_EQ(0, Strace({}, DriverWords()).exitStatus);
        std::istringstream trace(ReadFile("/tmp/trace"));
        std::map<std::string, int> counts;
        std::vector<Call> calls;
        bool begun = false;
        for (std::string line; std::getline(trace, line);) {
            const std::string name = line.substr(0, line.find('('));
            if (name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") != std::string::npos) continue;
            begun = begun || name == "flock";
            const int number = ++counts[name];
            if (begun) calls.push_back({name, number});
        }
        return calls;
    }

    void Reset() {
        PutBack(Before());
        fs::remove_all(kJournal);
    }

    static bool Is(const FileState& now, const FileState& wanted) { return now == wanted; }

    // Each file is whole, the old one or the new one.
    void ExpectNothingTorn() const {
        for (const Change& change : _changes) {
            const FileState now = logins::ReadState(change.path);
            EXPECT_TRUE(Is(now, change.before) || Is(now, change.after)) << change.path;
        }
    }
    bool AllNew() const {
        return std::all_of(_changes.begin(), _changes.end(),
                           [](const Change& change) { return Is(logins::ReadState(change.path), change.after); });
    }

    std::vector<Change> _changes;
};

TEST_F(LoginsKilledTest, AtEverySystemCallTheNextCallCompletesOrUndoes) {
    PlanRealChange();
    const std::vector<Call> calls = CallsOfTheChange();
    ASSERT_TRUE(AllNew());
    ASSERT_GT(calls.size(), 500U);
    int undone = 0;
    int completed = 0;
    for (std::size_t index = 0; index < calls.size(); ++index) {
        const Call& call = calls[index];
        Reset();
        SCOPED_TRACE(call.name + " " + std::to_string(call.number));
        const ProgramResult result =
            Strace({"-e", "trace=" + call.name, "-e",
                    "inject=" + call.name + ":signal=KILL:when=" + std::to_string(call.number)},
                   DriverWords());
        ASSERT_TRUE(result.signal == 9 || call.name == "exit_group") << result.exitStatus;
        ExpectNothingTorn();
        Journal journal;
        journal.Recover();
        if (AllNew()) {
            ++completed;
            EXPECT_EQ(Progress::Confirmed, journal.Find(1)->progress);
        } else {
            ++undone;
            ExpectUntouched();
        }
        TearDownLook();
        if (HasFailure()) break;
    }
    std::printf("killed at %d of %zu system calls: %d undone, %d completed\n", undone + completed, calls.size(), undone,
                completed);
    EXPECT_GT(undone, 400);
}

// A signal that asks the tool to end does not come between two files.
TEST_F(LoginsKilledTest, AskedToEndBetweenTwoFilesItEndsWhenAllAreReplaced) {
    PlanRealChange();
    // The fourth of the host's files; before them come the copies in the journal and the entry.
    const std::string when = std::to_string(2 * _changes.size() + 4);
    for (const auto& [name, number] : {std::pair("HUP", 1), std::pair("INT", 2), std::pair("TERM", 15)}) {
        Reset();
        const ProgramResult result = Strace(
            {"-e", "trace=rename", "-e", "inject=rename:signal=" + std::string(name) + ":when=" + when}, DriverWords());
        EXPECT_EQ(number, result.signal) << name;
        EXPECT_TRUE(AllNew()) << name;
        EXPECT_EQ("confirmed", StateOf(1)) << name;
        Journal().Recover();
        EXPECT_TRUE(AllNew()) << name;
    }
    Reset();
}

// The same while the files are being put back: taking back goes on where it was.
TEST_F(LoginsKilledTest, AtEveryRenameOfTakingBackTheNextCallFinishes) {
    PlanRealChange();
    const auto killedWhileApplying = [&] {
        Reset();
        Strace(
            {"-e", "trace=rename", "-e", "inject=rename:signal=KILL:when=" + std::to_string(2 * _changes.size() + 8)},
            DriverWords());
        EXPECT_FALSE(AllNew());
    };
    int points = 0;
    for (int number = 1;; ++number) {
        killedWhileApplying();
        const ProgramResult result =
            Strace({"-f", "-e", "trace=rename", "-e", "inject=rename:signal=KILL:when=" + std::to_string(number)},
                   {kTool, "logins", "history"});
        if (result.signal != 9) break;
        ++points;
        ExpectNothingTorn();
        Journal().Recover();
        ExpectUntouched();
        if (HasFailure()) break;
    }
    EXPECT_GE(points, 5);
}

}  // namespace
}  // namespace nimbrel::testing
