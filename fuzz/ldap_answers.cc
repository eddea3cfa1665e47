// A controller that answers a search with any bytes: the connection ends with entries or with an error of its own kind,
// and never waits beyond its time.

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

#include "fuzz.h"
#include "ldap_connection.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NIMAUTH_HAS_LEAK_CHECK 1
#include <sanitizer/lsan_interface.h>
#endif
#endif

namespace {

using fuzzing::Require;
using namespace nimbrel::ad;

class Listener {
 public:
    Listener() : _socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        const bool listens = bind(_socket.Number(), any, size) == 0 && listen(_socket.Number(), 4) == 0 &&
                             getsockname(_socket.Number(), any, &size) == 0;
        Require(listens, "this host lets a program listen on its loopback address");
        _port = ntohs(address.sin_port);
    }

    Endpoint Place() const { return *Endpoint::FromText("127.0.0.1", _port); }

    // Takes the waiting connection, answers it, and says no more.
    nimbrel::kit::Descriptor Answer(const std::string& bytes) const {
        nimbrel::kit::Descriptor peer(accept4(_socket.Number(), nullptr, nullptr, SOCK_CLOEXEC));
        Require(peer.Number() >= 0, "the connection is there");
        static_cast<void>(send(peer.Number(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
        shutdown(peer.Number(), SHUT_WR);
        return peer;
    }

 private:
    nimbrel::kit::Descriptor _socket;
    std::uint16_t _port = 0;
};

// libldap 2.5 loses the request of an answer that it cannot decode, and the bytes of a notice of disconnection: a few
// kilobytes for a connection that is given up then. So nothing is told of leaks while it works.
class LeaksOfTheLibrary {
 public:
#ifdef NIMAUTH_HAS_LEAK_CHECK
    LeaksOfTheLibrary() { __lsan_disable(); }
    ~LeaksOfTheLibrary() { __lsan_enable(); }
#else
    LeaksOfTheLibrary() {}
    ~LeaksOfTheLibrary() {}
#endif
    LeaksOfTheLibrary(const LeaksOfTheLibrary&) = delete;
    LeaksOfTheLibrary& operator=(const LeaksOfTheLibrary&) = delete;
};

void CheckEntry(const LdapEntry& entry) {
    for (const auto& [name, values] : entry.attributes) {
        const auto upper = [](char c) { return c >= 'A' && c <= 'Z'; };
        Require(std::none_of(name.begin(), name.end(), upper), "an attribute's name is in lower case");
        Require(!values.empty(), "an attribute has a value");
        Require(entry.Text(name) == values.front() && entry.Values(name) == values, "its values are told");
        static_cast<void>(entry.Number(name));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Listener listener;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const LeaksOfTheLibrary ignored;
    const auto start = std::chrono::steady_clock::now();
    try {
        LdapConnection connection(listener.Place(), "dc1.corp.test", Deadline::After(std::chrono::seconds(2)));
        const nimbrel::kit::Descriptor peer = listener.Answer(bytes);
        for (const LdapEntry& entry : connection.Search({})) CheckEntry(entry);
    } catch (const AdError& error) {
        Require(error.Status() != 0, "an error has a status");
    }
    Require(std::chrono::steady_clock::now() - start < std::chrono::seconds(15), "no wait is longer than its limit");
    return 0;
}
