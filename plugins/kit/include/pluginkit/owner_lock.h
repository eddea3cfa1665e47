// Taking turns, between threads and processes, in a way that nobody without the rights of those who do can hold up.

#ifndef NIMBREL_PLUGINKIT_OWNER_LOCK_H_
#define NIMBREL_PLUGINKIT_OWNER_LOCK_H_

#include <chrono>
#include <string>

#include "pluginkit/descriptor.h"

namespace nimbrel::kit {

// A lock (flock(2)) on a file of its own, of mode 0600 under any umask, as whoever can open a file can lock it.
//
//     OwnerLock lock("/var/lib/nimbrel/.ad-log-ins.lock", OwnerLock::File::GoesWithTheLock);
//     if (!lock.Try()) return false;
//     ...
//
// Threads: one object belongs to one thread. A child that is forked meanwhile does not keep the lock.
// Errors: `StatusError`, 5 for a link, a file with further names, or one that others may open; see `ThrowFileError`.
class OwnerLock {
 public:
    enum class File {
        Stays,            // for ever, once it is made
        GoesWithTheLock,  // what a killed process left of it is taken over
    };

    // Takes no lock yet. The folder has to be there by the first `Try`.
    OwnerLock(std::string path, File file);
    OwnerLock(const OwnerLock&) = delete;
    OwnerLock& operator=(const OwnerLock&) = delete;
    ~OwnerLock();

    // False if another has it.
    bool Try();
    // False if another has it all that time; pauses of 20 ms.
    bool TryFor(std::chrono::milliseconds most);
    // False if the file is to go and stays. Without a lock it does nothing.
    bool Release() noexcept;

 private:
    Descriptor Open() const;

    std::string _path;
    File _kind;
    Descriptor _file;
};

// The pause between two tries.
inline constexpr std::chrono::milliseconds kLockPause{20};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_OWNER_LOCK_H_
