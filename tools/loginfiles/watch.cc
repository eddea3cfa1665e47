#include "tools/loginfiles/watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <optional>

#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/run.h"

namespace nimbrel::logins {
namespace {

constexpr char kSystemdRun[] = "/usr/bin/systemd-run";
// A failed attempt to put files back is repeated: whatever is in the way may go.
constexpr int kRetryMilliseconds = 5000;

bool SystemdRuns() { return access("/run/systemd/system", F_OK) == 0 && access(kSystemdRun, X_OK) == 0; }

bool StartTimer(int id, long milliseconds) {
    const std::string number = std::to_string(id);
    return Run({kSystemdRun, "--quiet", "--collect", "--unit=nimauth-logins-" + number,
                "--on-active=" + std::to_string(milliseconds) + "ms", "--timer-property=AccuracySec=100ms", kHelper,
                "watch-over", number})
               .status == 0;
}

bool StillWaits(int id) {
    const std::optional<Entry> entry = Journal().Find(id);
    return entry && (entry->progress == Progress::Applying || entry->progress == Progress::Applied ||
                     entry->progress == Progress::Restoring);
}

// A journal that cannot be read at the moment decides nothing.
bool MayStillWait(int id) {
    try {
        return StillWaits(id);
    } catch (const std::exception&) {
        return true;
    }
}

// A change of the entry's folder wakes the watcher early.
void AwaitDeadline(const Record& record, int changes) {
    while (MayStillWait(record.id)) {
        const std::int64_t left = record.deadline - Journal::MillisecondsSinceBoot();
        if (left <= 0) return;
        struct pollfd wait = {changes, POLLIN, 0};
        // Time that the machine sleeps counts, so it is looked at again now and then.
        poll(&wait, 1, static_cast<int>(std::min<std::int64_t>(left, 10'000)));
        std::array<char, 4096> events{};
        if (wait.revents != 0 && read(changes, events.data(), events.size()) < 0) return;
    }
}

void TakeBackWhatIsOver() {
    for (const Entry& entry : Journal().Recover()) {
        syslog(LOG_WARNING, "logins: change %d has been taken back: %s", entry.record.id, entry.reason.c_str());
    }
}

void TakeBackInTheEnd(int id) {
    openlog("nimauthctl", LOG_PID, LOG_AUTHPRIV);
    for (;;) {
        try {
            if (!StillWaits(id)) return;
            TakeBackWhatIsOver();
        } catch (const std::exception& error) {
            syslog(LOG_ERR, "logins: change %d cannot be taken back yet: %s", id, error.what());
            poll(nullptr, 0, kRetryMilliseconds);
        }
    }
}

// The tool waits for the end of its pipe.
void LetGoOfStandardStreams() {
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (nothing < 0 || dup2(nothing, number) < 0) close(number);
    }
}

}  // namespace

void StartWatcher(int id, long milliseconds) {
    if (SystemdRuns() && StartTimer(id, milliseconds)) return;
    const RunResult result = Run({kHelper, "watch", std::to_string(id)});
    if (result.status == 0) return;
    throw LoginsError(LoginsError::Kind::System,
                      "the watcher that would take the change back cannot be started: " + result.output,
                      "see that " + std::string(kHelper) + " is installed, or use --confirm-within 0");
}

int Watch(int id, bool now) {
    const std::optional<Entry> entry = Journal().Find(id);
    if (!entry) return 1;
    if (!now) {
        const int changes = inotify_init1(IN_CLOEXEC);
        const std::string folder = Journal().EntryFolder(id);
        if (changes < 0 || inotify_add_watch(changes, folder.c_str(), IN_MOVED_TO) < 0) return 1;
        const pid_t child = fork();
        if (child != 0) return child < 0 ? 1 : 0;
        LetGoOfStandardStreams();
        AwaitDeadline(entry->record, changes);
    }
    AwaitDeadline(entry->record, -1);  // a timer may be a little early
    TakeBackInTheEnd(id);
    return 0;
}

}  // namespace nimbrel::logins
