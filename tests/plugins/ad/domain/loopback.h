// Services on loopback for the time of a test.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_LOOPBACK_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_LOOPBACK_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace nimbrel::ad::test {

// False when the peer, or the end of the service, closes the connection first.
bool ReadExactly(int socket, void* bytes, std::size_t size);
void WriteAll(int socket, std::string_view bytes);

// Takes connections; each has a thread of its own, which calls `converse` once. The destructor closes them all.
class StreamService {
 public:
    using Converse = std::function<void(int socket)>;

    // Port 0 is one that is free, and that no connection is given.
    StreamService(const std::string& address, std::uint16_t port, Converse converse);
    StreamService(const StreamService&) = delete;
    StreamService& operator=(const StreamService&) = delete;
    ~StreamService();

    std::uint16_t Port() const { return _port; }

 private:
    void TakeConnections();

    int _listener;
    std::uint16_t _port;
    Converse _converse;
    std::mutex _lock;  // guards what follows
    bool _ending = false;
    std::vector<int> _sockets;
    std::vector<std::thread> _conversations;
    std::thread _thread;
};

// Answers datagrams; an empty answer is none.
class DatagramService {
 public:
    using Answer = std::function<std::string(std::string_view request)>;

    DatagramService(const std::string& address, std::uint16_t port, Answer answer);
    DatagramService(const DatagramService&) = delete;
    DatagramService& operator=(const DatagramService&) = delete;
    ~DatagramService();

    std::uint16_t Port() const { return _port; }

 private:
    void TakeDatagrams();

    int _socket;
    std::uint16_t _port;
    Answer _answer;
    std::atomic<bool> _ending = false;
    std::thread _thread;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_LOOPBACK_H_
