// The network side: TLS and HTTP, one request per connection, one thread per connection.
//
// A client has `request-seconds` to send its request, the handshake included, and as long again to take the answer; then
// its connection is cut, however busily it trickles. The time that the directory takes does not count.
//
//     Server server(config, handler, TlsFiles::Read(config), std::make_shared<Listener>(config));
//     ...
//     server.Retire();      // takes no more requests
//     server.Drain();       // and ends those that are under way
//
// Threads: one, besides its own.

#ifndef NIMBREL_APXD_SERVER_H_
#define NIMBREL_APXD_SERVER_H_

#include <memory>
#include <string>

#include "services/apxd/config.h"
#include "services/apxd/handler.h"
#include "services/apxd/listener.h"
#include "services/apxd/tls_files.h"

namespace nimbrel::apxd {

class Server {
 public:
    // Answers from now on. Config and handler must outlive the object. Throws `std::runtime_error`.
    Server(const Config& config, Handler& handler, const TlsFiles& files, std::shared_ptr<Listener> listener);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    // Cuts what is still under way. A request that the directory has not answered yet is waited for.
    ~Server();

    // Leaves the listening socket to others.
    void Retire();

    // Waits up to `stop-seconds` for requests under way, after `Retire`. False if some have outlasted it.
    bool Drain();

 private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_SERVER_H_
