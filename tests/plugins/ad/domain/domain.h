// A small Active Directory domain on loopback: controllers, their name server, a few objects, and a host of one's own to
// join to it.
//
//     TestDomain corp;
//     Host host(corp.HostSettings(folder), logIns);
//     host.Join("corp.test", "node01.corp.test", "", {"admin1", "Secret-1"});
//     corp.entries.Account("NODE01$");     // is there

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_DOMAIN_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_DOMAIN_H_

#include <memory>
#include <string>

#include "addirectory/settings.h"
#include "plugins/ad/domain/controller.h"
#include "plugins/ad/domain/entries.h"
#include "plugins/ad/domain/key_centre.h"
#include "plugins/ad/domain/name_server.h"

namespace nimbrel::ad::test {

class TestDomain {
 public:
    // "corp.test" with the users admin1 and Alice, whose password is "Secret-1", and the controller dc1.
    TestDomain();
    // Another domain, known to the same name server and served by the same ports of its own address.
    TestDomain(const TestDomain& first, const std::string& dnsName, const std::string& netbiosName,
               const std::string& address);

    // For a host whose files lie in the folder. Patient, as the machine may be slow; nobody who does not answer is avoided.
    Settings HostSettings(const std::string& folder) const;

    void AddUser(const std::string& name, const std::string& password = "Secret-1");
    // An object of a trust. Directions: 1 inbound, 2 outbound; types: 2 Windows, 3 Kerberos.
    void AddTrust(const std::string& partner, const std::string& netbiosName, int direction, int type = 2,
                  int attributes = 8);
    // Another controller of the domain, without a record of its own in the DNS.
    std::unique_ptr<TestController> MakeController(const std::string& host, const std::string& address);

    const std::string dnsName;
    const std::string netbiosName;
    const std::string base;   // "DC=corp,DC=test"
    const std::string realm;  // "CORP.TEST"
    std::shared_ptr<NameServer> names;
    Entries entries;
    KeyCentre keys;
    TestController controller;

 private:
    TestDomain(std::shared_ptr<NameServer> nameServer, const std::string& dnsName_, const std::string& netbiosName_,
               const ControllerAddress& at);
    void Populate();
    void FollowSecrets();
};

// The binary form of "S-1-5-21-1-2-3".
std::string DomainSid();

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_DOMAIN_H_
