// What the service must remember over its own end: which account it was about to hand out, to whom, under which mark.
//
// A line is on the disk before the account exists. If the service is killed before it could answer, the client's next
// request finds the line, and the mark in it proves to the directory that the account is the service's own and unused.
// No secret is ever written.
//
//     nimbrel-apxd ledger 1
//     H NODE01 192.0.2.10 0123456789abcdef0123456789abcdef 1767225600      created for this client
//     T NODE07 192.0.2.17 89abcdef0123456789abcdef01234567 1767225600      pre-staged, taken over by this client
//     F NODE01 192.0.2.10                                                  not so after all
//
// A last line without its end is left over from a crash and not read; the service never acted on it. The file is of mode
// 0600. One process at a time may have it open; a file beside it, ".lock", sees to that. The next one waits a second for it.
//
// Threads: any. Errors: `std::system_error`, and `std::runtime_error` for a file that is no ledger or a lock
// that is refused.

#ifndef NIMBREL_APXD_LEDGER_H_
#define NIMBREL_APXD_LEDGER_H_

#include <condition_variable>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "pluginkit/descriptor.h"
#include "pluginkit/owner_lock.h"

namespace nimbrel::apxd {

class Ledger {
 public:
    struct Entry {
        std::string mark;
        std::int64_t time = 0;  // seconds since 1970
        bool takenOver = false;
    };

    // Creates the file if it is missing, not its folder.
    explicit Ledger(const std::string& path);
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    std::optional<Entry> Find(const std::string& name, const std::string& client) const;
    // The client that has taken over the pre-staged account, or the empty text.
    std::string TakenOverBy(const std::string& name) const;

    // These three are on the disk when they return. If they throw, the ledger is as before.
    //
    // Where the file has grown long it is written anew, without those accounts created for somebody that are from before
    // `oldest`.
    void Note(const std::string& name, const std::string& client, const Entry& entry,
              std::int64_t oldest = std::numeric_limits<std::int64_t>::min());
    void Forget(const std::string& name, const std::string& client);

    // Drops entries from before `oldest`, and those of pre-staged accounts that are not in `preStaged` any more, and
    // writes the file anew.
    void Prune(std::int64_t oldest, const std::set<std::string>& preStaged);

    // Only one thread at a time works on an account; others wait in the constructor.
    class Turn {
     public:
        Turn(Ledger& ledger, const std::string& name);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

     private:
        Ledger& _ledger;
        const std::string _name;
    };

 private:
    using Key = std::pair<std::string, std::string>;  // name, client
    using Entries = std::map<Key, Entry>;

    void ReadAll();
    void ReadLine(const std::string& line);
    void Append(const std::string& line);
    void Rewrite(const Entries& entries);
    void Shorten(std::int64_t oldest);

    const std::string _path;
    kit::OwnerLock _lock;
    kit::Descriptor _file;
    mutable std::mutex _mutex;  // guards all below and the file; never held while a directory is asked
    Entries _entries;
    std::size_t _kept = 0;      // entries when the file was written anew
    std::size_t _appended = 0;  // lines since then
    std::set<std::string> _busy;
    std::condition_variable _freed;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_LEDGER_H_
