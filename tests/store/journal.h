// What happened, in order: provider calls, pauses and lines in the system log, one text each.
//
//     join(corp.test, null, administrator, secret)
//     sleep 30
//     error: Failed to store domain details to Config Store: disk full.Leaving Domain...
//
// A program that wraps them has stand-ins for `sleep`, which returns at once, and `syslog`, which writes nowhere else.
//
// Threads: everything may be called from any thread.

#ifndef TESTS_STORE_JOURNAL_H_
#define TESTS_STORE_JOURNAL_H_

#include <functional>
#include <string>
#include <vector>

namespace nimbrel::authentication::test {

class Journal {
 public:
    static void Add(const std::string& entry);

    static std::vector<std::string> Entries();

    // The entries of the system log alone: "error: ...", "warning: ...", "info: ...", "debug: ...".
    static std::vector<std::string> Logged();

    // Forgets all entries, `WhenAdded` and `Interrupt`.
    static void Clear();

    // Runs `observer` whenever an entry is added, in the thread that adds it, one after the other. It must add none.
    static void WhenAdded(std::function<void(const std::string& entry)> observer);

    // The next pauses end early, with these seconds left.
    static void Interrupt(std::vector<unsigned int> rests);
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_STORE_JOURNAL_H_
