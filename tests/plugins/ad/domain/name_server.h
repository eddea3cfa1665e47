// A name server on loopback: datagrams and connections on one port.
//
// Threads: what it knows may be changed at any time.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_NAME_SERVER_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_NAME_SERVER_H_

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "plugins/ad/domain/loopback.h"

namespace nimbrel::ad::test {

struct ServiceOptions {
    unsigned priority = 0;
    unsigned weight = 100;
    unsigned port = 389;
};

class NameServer {
 public:
    NameServer();

    std::uint16_t Port() const { return _datagrams->Port(); }

    // "_ldap._tcp.dc._msdcs.corp.test" is given by "dc1.corp.test".
    void AddService(const std::string& name, const std::string& host, const ServiceOptions& options = {});
    // Of version 4 or 6.
    void AddAddress(const std::string& host, const std::string& address);
    void Forget(const std::string& name);

    // Datagrams say that the answer is too long for them.
    std::atomic<bool> truncates = false;
    // They bring this many of the answers all the same.
    std::atomic<unsigned> keepsOfCut = 0;
    // Connections get no answer.
    std::atomic<bool> keepsConnectionsWaiting = false;
    // What answers by connection is an answer to another question.
    std::atomic<bool> confusesConnections = false;
    // Instead of an answer: a response code such as 2, "server failure".
    std::atomic<int> refusal = 0;
    // A service's host comes without its address.
    std::atomic<bool> omitsAddresses = false;
    // How many questions were asked by connection.
    std::atomic<int> connections = 0;

 private:
    std::string Answer(std::string_view question, bool byDatagram);
    void Converse(int socket);

    std::mutex _lock;                                           // guards what follows
    std::map<std::string, std::vector<std::string>> _services;  // by name: priority, weight, port and host
    std::map<std::string, std::vector<std::string>> _targets;   // by service name: the hosts
    std::map<std::string, std::vector<std::string>> _addresses;
    std::map<std::string, std::vector<std::string>> _longAddresses;
    std::unique_ptr<DatagramService> _datagrams;
    std::unique_ptr<StreamService> _streams;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_NAME_SERVER_H_
