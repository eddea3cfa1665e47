// A TLS client that sends whatever bytes a test wants, as no good plug-in would.

#ifndef TESTS_SYSTEM_APX_TLS_CLIENT_H_
#define TESTS_SYSTEM_APX_TLS_CLIENT_H_

#include <chrono>
#include <memory>
#include <string>

namespace nimbrel::testing {

class TlsClient {
 public:
    // Connects to port 8443 of "127.0.0.1" or "::1" and shakes hands, with this version of the protocol at most. Whatever
    // certificate is presented will do.
    explicit TlsClient(const std::string& address, int mostVersion = 0);
    TlsClient(const TlsClient&) = delete;
    TlsClient& operator=(const TlsClient&) = delete;
    ~TlsClient();

    bool IsConnected() const;
    // False if the connection is over.
    bool Send(const std::string& text);
    // Whether something has come, the end of the connection included.
    bool WaitForAnswer(std::chrono::milliseconds time) const;
    // All that comes until the connection ends.
    std::string Answer();

 private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_APX_TLS_CLIENT_H_
