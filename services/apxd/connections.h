// The open connections and their deadlines.
//
// A connection that outlasts its deadline is shut down, however busily it trickles; whoever serves it then notices. The
// socket stays open until `Close`, so that its number cannot be another connection's.
//
//     connections.Open(socket, "192.0.2.10");
//     connections.Suspend(socket);       // the request is there: the directory may take its time
//     connections.Resume(socket);        // the client has as long again to take the answer
//     connections.Close(socket);
//
// Threads: any, besides its own.

#ifndef NIMBREL_APXD_CONNECTIONS_H_
#define NIMBREL_APXD_CONNECTIONS_H_

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace nimbrel::apxd {

class Connections {
 public:
    explicit Connections(std::chrono::seconds patience);
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;
    ~Connections();

    // Throws `std::bad_alloc`.
    void Open(int socket, const std::string& client);
    void Close(int socket);
    void Suspend(int socket);
    void Resume(int socket);

    // False if some are still open when the time is over.
    bool WaitForNone(std::chrono::seconds time);

 private:
    using Clock = std::chrono::steady_clock;

    struct Connection {
        Clock::time_point deadline;
        std::string client;
    };

    void SetDeadline(int socket, Clock::time_point deadline);
    void Watch();
    Clock::time_point CutOverdue();

    const std::chrono::seconds _patience;
    std::mutex _lock;  // guards all below
    std::condition_variable _changed;
    std::map<int, Connection> _open;
    bool _ending = false;
    std::thread _watch;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_CONNECTIONS_H_
