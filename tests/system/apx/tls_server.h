// A TLS server that answers one request with whatever bytes a test wants, as no good service would.

#ifndef TESTS_SYSTEM_APX_TLS_SERVER_H_
#define TESTS_SYSTEM_APX_TLS_SERVER_H_

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "certificates.h"

namespace nimbrel::testing {

class TlsServer {
 public:
    // The certificate of a server that shows none: it offers anonymous key exchange and nothing else.
    static const Certificate kAnonymous;

    // Listens on 0.0.0.0 and `port`; answers the first connection's request with `answer`, then closes it. Without TLS
    // where `certificate` is null.
    TlsServer(std::uint16_t port, const Certificate* certificate, std::string answer);
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;
    // Waits until the connection is over.
    ~TlsServer();

    // What the client has sent. Ends the connection first.
    std::string Request();

 private:
    void Serve();
    void ServeTls(int connection);
    void ServePlain(int connection);

    const Certificate* const _certificate;
    const std::string _answer;
    int _listener;
    std::string _request;
    std::thread _thread;
};

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_APX_TLS_SERVER_H_
