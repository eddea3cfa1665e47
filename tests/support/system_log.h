// The system log of a private root, for assertions.
//
// A `SystemLog` binds /dev/log and keeps what syslog(3) sends there, from this process and from those it starts:
//
//     SystemLog log;
//     store.UpdateCache(std::nullopt);
//     EXPECT_THAT(log.Take(), ElementsAre(LogRecord{LOG_DEBUG, "AD cache updated in 0 ms"}));
//
// What a thread has logged before `Take` is called is in its result: syslog(3) hands its record to the socket before it
// returns, and `Take` waits for a mark that it sends through the same queue.
//
// Threads: any thread may log; one thread at a time calls `Take`. Make one `SystemLog` at a time, and only in a private root: /dev/log is
// replaced.

#ifndef TESTS_SUPPORT_SYSTEM_LOG_H_
#define TESTS_SUPPORT_SYSTEM_LOG_H_

#include <syslog.h>

#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace nimbrel::authentication::test {

// One line of the log: its priority without the facility, and the text as it was logged.
struct LogRecord {
    int priority;
    std::string text;

    friend bool operator==(const LogRecord&, const LogRecord&) = default;
};

std::ostream& operator<<(std::ostream& stream, const LogRecord& record);

class SystemLog {
 public:
    // Throws `std::system_error` if /dev/log cannot be bound.
    SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;
    ~SystemLog();

    // The records logged so far, oldest first. They are forgotten: the next call returns only later ones.
    std::vector<LogRecord> Take();

    // Returns when a record whose text begins with `start` is among those that `Take` would return; false if there is
    // none for half a minute.
    bool Await(const std::string& start);

 private:
    void Read();
    void Keep(std::string_view datagram);
    void SendMark(std::string_view mark);

    int _socket;
    std::mutex _mutex;  // guards the two below; never held while reading the socket
    std::condition_variable _grown;
    std::vector<LogRecord> _records;
    int _marksSeen = 0;
    int _marksSent = 0;
    std::thread _reader;
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_SUPPORT_SYSTEM_LOG_H_
