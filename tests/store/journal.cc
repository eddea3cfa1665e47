#include "store/journal.h"

#include <syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <iterator>
#include <mutex>
#include <utility>

namespace nimbrel::authentication::test {
namespace {

struct Book {
    std::mutex turn;   // one entry after the other; held while the observer runs
    std::mutex mutex;  // guards all below; never held while the observer runs
    std::vector<std::string> entries;
    std::function<void(const std::string&)> observer;
    std::deque<unsigned int> rests;
};

Book& TheBook() {
    static Book book;
    return book;
}

// The priority exactly: a facility or another level shows as its number.
std::string PriorityName(int priority) {
    switch (priority) {
        case LOG_ERR:
            return "error";
        case LOG_WARNING:
            return "warning";
        case LOG_INFO:
            return "info";
        case LOG_DEBUG:
            return "debug";
        default:
            return "priority " + std::to_string(priority);
    }
}

bool IsLogged(const std::string& entry) {
    const std::string word = entry.substr(0, entry.find(": "));
    return word == "error" || word == "warning" || word == "info" || word == "debug" || word.find("priority ") == 0;
}

}  // namespace

void Journal::Add(const std::string& entry) {
    Book& book = TheBook();
    const std::lock_guard turn(book.turn);
    std::unique_lock lock(book.mutex);
    book.entries.push_back(entry);
    const auto observer = book.observer;
    lock.unlock();
    if (observer) observer(entry);
}

std::vector<std::string> Journal::Entries() {
    const std::lock_guard lock(TheBook().mutex);
    return TheBook().entries;
}

std::vector<std::string> Journal::Logged() {
    std::vector<std::string> logged;
    const std::vector<std::string> entries = Entries();
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(logged), IsLogged);
    return logged;
}

void Journal::Clear() {
    Book& book = TheBook();
    const std::lock_guard lock(book.mutex);
    book.entries.clear();
    book.observer = nullptr;
    book.rests.clear();
}

void Journal::WhenAdded(std::function<void(const std::string& entry)> observer) {
    const std::lock_guard lock(TheBook().mutex);
    TheBook().observer = std::move(observer);
}

void Journal::Interrupt(std::vector<unsigned int> rests) {
    const std::lock_guard lock(TheBook().mutex);
    TheBook().rests.assign(rests.begin(), rests.end());
}

extern "C" unsigned int __wrap_sleep(unsigned int seconds) {
    Journal::Add("sleep " + std::to_string(seconds));
    const std::lock_guard lock(TheBook().mutex);
    if (TheBook().rests.empty()) return 0;
    const unsigned int rest = TheBook().rests.front();
    TheBook().rests.pop_front();
    return rest;
}

extern "C" __attribute__((format(printf, 2, 3))) void __wrap_syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char line[4096];
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    Journal::Add(PriorityName(priority) + ": " + line);
}

}  // namespace nimbrel::authentication::test
