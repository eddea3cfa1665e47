// A domain controller on loopback: LDAP with Kerberos log-ins and sealed messages, and a key distribution centre.
//
// Threads: what it does may be changed at any time.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_CONTROLLER_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_CONTROLLER_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "plugins/ad/domain/entries.h"
#include "plugins/ad/domain/key_centre.h"
#include "plugins/ad/domain/loopback.h"

namespace nimbrel::ad::test {

struct ControllerAddress {
    std::string address = "127.0.0.1";
    std::uint16_t ldapPort = 0;
    std::uint16_t kerberosPort = 0;
};

// What it tells about itself.
struct ControllerFacts {
    std::string host = "dc1.corp.test";
    std::string domain = "corp.test";
    std::string netbiosName = "CORP";
    std::string serverSite = "Default-First-Site-Name";
    std::string clientSite = "Default-First-Site-Name";
    std::uint32_t flags = 0x80;  // closest
    bool isMember = false;       // a member of the domain that poses as a controller
};

enum class Behaviour {
    Answers,
    HangsUp,     // instead of the answer
    KeepsQuiet,  // instead of the answer
    Vanishes,    // hangs up and does nothing
};

class Conversation;

class TestController {
 public:
    TestController(Entries& entries, KeyCentre& keys, ControllerFacts facts, const ControllerAddress& at = {});
    TestController(const TestController&) = delete;
    TestController& operator=(const TestController&) = delete;

    std::uint16_t LdapPort() const { return _ldap->Port(); }
    std::uint16_t KerberosPort() const { return _kerberos->Port(); }
    const ControllerFacts& Facts() const { return _facts; }

    // Looked at before each request: "add", "modify", "delete", "search", "bind" or "ping", and the entry's name. A result
    // is answered instead of doing anything.
    using Refuse = std::function<std::optional<Result>(const std::string& operation, const std::string& name)>;
    void SetRefuse(Refuse refuse);
    // As above, for what it does instead of answering. A request that is not answered is carried out,
    // but by one that vanishes.
    using Behave = std::function<Behaviour(const std::string& operation, const std::string& name)>;
    void SetBehave(Behave behave);

    // How far its clock is ahead.
    std::atomic<int> clockOffset = 0;
    // The protection that it offers for a connection; 4 is sealing.
    std::atomic<int> layers = 4;
    // How large a sealed message may be; it hangs up at a larger one. And how large the largest was.
    std::atomic<unsigned> maximumMessage = 0xffffff;
    std::atomic<std::size_t> largestMessage = 0;
    // The next key exchanges end without an answer.
    std::atomic<int> hangUpsOfKerberos = 0;
    std::atomic<bool> takesNoTickets = false;
    // Sealed messages are changed on their way, are sent byte by byte, or are announced with this length.
    std::atomic<bool> damagesMessages = false;
    std::atomic<bool> dribblesMessages = false;
    std::atomic<long> announcedLength = -1;
    // Makes another answer to pings of the one that it is given.
    using ChangePing = std::function<std::string(const std::string& reply)>;
    void SetChangePing(ChangePing change);

    // What has been asked, in order: "search CN=Computers,...".
    std::vector<std::string> Requests();

 private:
    friend class Conversation;

    std::optional<Result> Refused(const std::string& operation, const std::string& name);
    Behaviour BehaviourAt(const std::string& operation, const std::string& name);
    std::string Ping();
    Entry Root() const;
    void ConverseKerberos(int socket);

    Entries& _entries;
    KeyCentre& _keys;
    const ControllerFacts _facts;
    std::mutex _lock;  // guards what follows
    Refuse _refuse;
    Behave _behave;
    ChangePing _changePing;
    std::vector<std::string> _requests;
    std::unique_ptr<StreamService> _kerberos;
    std::unique_ptr<StreamService> _ldap;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_CONTROLLER_H_
