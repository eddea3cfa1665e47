#include "hung_domain.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "keytab.h"

namespace nimbrel::testing {
namespace {

constexpr char kSettings[] = "/etc/nimbrel/nimauth/ad.conf";

}  // namespace

void WriteServiceKeytab() {
    std::filesystem::remove(kServiceKeytab);
    ad::KeytabChange keys(kServiceKeytab);
    keys.SetKeys({"APX01", "corp.test", 1}, kit::Secret("service"));
    keys.Commit();
}

HungDomain::HungDomain() : _socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience = {60, 0};
    setsockopt(_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    if (bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(_socket);
        throw std::runtime_error("bind");
    }
    std::ofstream(kSettings) << "name_servers = 127.0.0.1\nname_seconds = 60\njoin_seconds = 600\n";
    WriteServiceKeytab();
}

HungDomain::~HungDomain() {
    std::filesystem::remove(kSettings);
    close(_socket);
}

std::string HungDomain::BackEnd() {
    return std::string("back-end = ad\nprincipal = ") + kServicePrincipal + "\nkeytab = " + kServiceKeytab + '\n';
}

void HungDomain::AwaitQuestion() const {
    char question[512];
    if (recv(_socket, question, sizeof question, 0) <= 0) throw std::runtime_error("nobody asks the name server");
}

}  // namespace nimbrel::testing
