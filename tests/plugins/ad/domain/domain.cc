#include "plugins/ad/domain/domain.h"

#include <algorithm>
#include <cctype>

namespace nimbrel::ad::test {
namespace {

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

std::string BaseOf(const std::string& dnsName) {
    std::string name = "DC=";
    for (const char letter : dnsName) name += letter == '.' ? std::string(",DC=") : std::string(1, letter);
    return name;
}

}  // namespace

std::string DomainSid() { return {"\x01\x04\0\0\0\0\0\x05\x15\0\0\0\x01\0\0\0\x02\0\0\0\x03\0\0\0", 24}; }

TestDomain::TestDomain() : TestDomain(std::make_shared<NameServer>(), "corp.test", "CORP", {}) {}

TestDomain::TestDomain(const TestDomain& first, const std::string& dnsName_, const std::string& netbiosName_,
                       const std::string& address)
    : TestDomain(first.names, dnsName_, netbiosName_,
                 {address, first.controller.LdapPort(), first.controller.KerberosPort()}) {}

TestDomain::TestDomain(std::shared_ptr<NameServer> nameServer, const std::string& dnsName_,
                       const std::string& netbiosName_, const ControllerAddress& at)
    : dnsName(dnsName_),
      netbiosName(netbiosName_),
      base(BaseOf(dnsName_)),
      realm(Upper(dnsName_)),
      names(std::move(nameServer)),
      keys(realm),
      controller(entries, keys, {"dc1." + dnsName_, dnsName_, netbiosName_}, at) {
    const std::string host = "dc1." + dnsName;
    names->AddAddress(host, at.address);
    names->AddService("_ldap._tcp.dc._msdcs." + dnsName, host);
    names->AddService("_kerberos._tcp." + dnsName, host);
    FollowSecrets();
    Populate();
}

void TestDomain::FollowSecrets() {
    entries.onSecret = [this](const Entry& account, const std::optional<std::string>& password) {
        const std::string name = account.Text("samaccountname");
        if (!password) return keys.Remove(name);
        const bool isHost = !name.empty() && name.back() == '$';
        const std::string host = LowerText(name.substr(0, name.size() - 1)) + "." + dnsName;
        keys.SetPassword(name, *password, isHost ? realm + "host" + host : realm + name);
    };
}

void TestDomain::Populate() {
    entries.Put(base, {{"objectClass", {"domain"}}, {"objectSid", {DomainSid()}}});
    entries.Put("CN=Computers," + base, {{"objectClass", {"container"}}});
    entries.Put("OU=Hosts," + base, {{"objectClass", {"organizationalUnit"}}});
    entries.Put("CN=Users," + base, {{"objectClass", {"container"}}});
    entries.Put("CN=System," + base, {{"objectClass", {"container"}}});
    entries.Put("CN=Configuration," + base, {{"objectClass", {"configuration"}}});
    const std::string partitions = "CN=Partitions,CN=Configuration," + base;
    entries.Put(partitions, {{"objectClass", {"crossRefContainer"}}});
    entries.Put("CN=" + netbiosName + "," + partitions, {{"objectClass", {"crossRef"}},
                                                         {"nCName", {base}},
                                                         {"nETBIOSName", {netbiosName}},
                                                         {"dnsRoot", {dnsName}},
                                                         {"systemFlags", {"3"}}});
    AddUser("admin1");
    AddUser("Alice");
}

void TestDomain::AddUser(const std::string& name, const std::string& password) {
    entries.Put("CN=" + name + ",CN=Users," + base, {{"objectClass", {"user"}},
                                                     {"objectCategory", {"person"}},
                                                     {"sAMAccountName", {name}},
                                                     {"userPrincipalName", {name + "@" + dnsName}}});
    keys.SetPassword(name, password, realm + name);
}

void TestDomain::AddTrust(const std::string& partner, const std::string& partnerNetbiosName, int direction, int type,
                          int attributes) {
    entries.Put("CN=" + partner + ",CN=System," + base, {{"objectClass", {"trustedDomain"}},
                                                         {"trustPartner", {partner}},
                                                         {"flatName", {partnerNetbiosName}},
                                                         {"trustDirection", {std::to_string(direction)}},
                                                         {"trustType", {std::to_string(type)}},
                                                         {"trustAttributes", {std::to_string(attributes)}}});
}

std::unique_ptr<TestController> TestDomain::MakeController(const std::string& host, const std::string& address) {
    names->AddAddress(host, address);
    return std::make_unique<TestController>(
        entries, keys, ControllerFacts{host, dnsName, netbiosName},
        ControllerAddress{address, controller.LdapPort(), controller.KerberosPort()});
}

Settings TestDomain::HostSettings(const std::string& folder) const {
    Settings settings;
    settings.controllerBudget = std::chrono::seconds(10);
    settings.nameBudget = std::chrono::seconds(10);
    settings.avoidance = std::chrono::seconds(0);
    settings.nameServers = {"127.0.0.1"};
    settings.nameServerPort = names->Port();
    settings.ldapPort = controller.LdapPort();
    settings.kerberosPort = controller.KerberosPort();
    settings.keytab = folder + "/krb5.keytab";
    settings.membership = folder + "/membership";
    return settings;
}

}  // namespace nimbrel::ad::test
