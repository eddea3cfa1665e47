// The open connections: how many there may be, and their deadlines.
//
// Clients that may ask share one number, and each has a smaller one. A few others are let in, to be told that they may not
// ask, and a few of those that are beyond one of these numbers, to be told that: they have numbers of their own, so that
// nobody who is not served takes a place from somebody who is.
//
// A connection that outlasts its deadline is shut down, however busily it trickles; whoever serves it then notices. The
// socket stays open until `Close`, so that its number cannot be another connection's.
//
//     if (const char* why = connections.Refusal(visitor)) ...
//     connections.Open(socket, visitor);
//     connections.Suspend(socket);       // the request is there: the directory may take its time
//     connections.Resume(socket);        // the client has as long again to take the answer
//     connections.Close(socket);
//
// Threads: any, besides its own.

#ifndef NIMBREL_APXD_CONNECTIONS_H_
#define NIMBREL_APXD_CONNECTIONS_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "services/apxd/names.h"
#include "services/apxd/service_log.h"

namespace nimbrel::apxd {

// Who is at the other end.
struct Visitor {
    std::optional<Address> address;
    bool allowed = false;  // may ask
};

struct ConnectionLimits {
    std::size_t all = 256;  // of clients that may ask
    std::size_t ofOneClient = 16;
};

class Connections {
 public:
    static constexpr std::size_t kOutsiders = 16;
    static constexpr std::size_t kOfOneOutsider = 4;
    static constexpr std::size_t kTurnedAway = 16;

    Connections(std::chrono::seconds patience, ConnectionLimits limits);
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;
    ~Connections();

    // Why another connection of this visitor is not taken; null if it is.
    const char* Refusal(const Visitor& visitor);

    // Throws `std::bad_alloc`.
    void Open(int socket, const Visitor& visitor);
    void Close(int socket);
    // Beyond which number this connection is, and so to be turned away; null if it may be served.
    const char* TurnedAway(int socket);
    void Suspend(int socket);
    void Resume(int socket);

    // False if some are still open when the time is over.
    bool WaitForNone(std::chrono::seconds time);

 private:
    using Clock = std::chrono::steady_clock;

    struct Connection {
        Clock::time_point deadline;
        Visitor visitor;
        const char* turnedAway;
    };

    const char* Beyond(const Visitor& visitor) const;

    void SetDeadline(int socket, Clock::time_point deadline);
    void Watch();
    Clock::time_point CutOverdue();
    void LogCut(const Visitor& visitor);

    const std::chrono::seconds _patience;
    const ConnectionLimits _limits;
    std::mutex _lock;  // guards all below
    std::condition_variable _changed;
    std::map<int, Connection> _open;
    bool _ending = false;
    LogBudget _outsiders;  // that are cut
    std::thread _watch;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_CONNECTIONS_H_
