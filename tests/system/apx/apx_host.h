// A host with the plug-in and a service beside it, over an embedded directory of the domain corp.test.

#ifndef TESTS_SYSTEM_APX_APX_HOST_H_
#define TESTS_SYSTEM_APX_APX_HOST_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/host.h"
#include "service.h"
#include "tls_server.h"

namespace nimbrel::testing {

inline constexpr std::uint32_t kUntrusted = 0x80090325;
inline constexpr char kNear[] = "127.0.0.1";  // the service sees a client of the same address
inline constexpr char kHere[] = "192.0.2.10";
inline constexpr char kBlackHole[] = "192.0.2.99";
inline constexpr char kDirectory[] = "/var/lib/nimbrel/directory.db";

class Apx : public ::testing::Test {
 protected:
    Apx() {
        std::filesystem::remove_all("/var/lib/nimbrel");
        std::filesystem::remove_all("/run/apxd");
        embedded::Directory directory = embedded::Directory::Open(kDirectory, embedded::OpenMode::CreateIfMissing);
        directory.AddDomain("corp.test");
        directory.AddOrganizationalUnit("corp.test", "Hosts");
        SetPlugin("");
        Configure(certificate);
    }

    Trusted Pinned() const { return {certificate.thumbprint, certificate.pem}; }
    static embedded::Directory Open() { return embedded::Directory::Open(kDirectory); }
    static std::string Sid() { return Open().FindDomain("corp.test")->sid; }
    // As the directory provider completes the join.
    static std::uint32_t Join(const Answered& account, const std::string& membership = "/run/membership.db") {
        std::filesystem::remove(membership);
        try {
            const embedded::Host host(kDirectory, membership);
            host.JoinWithMachineAccount(
                {"node01", "corp.test", "CORP", Sid(), account.texts.at(0), account.texts.at(1)});
            return 0;
        } catch (const embedded::DirectoryError& error) {
            return error.Status();
        }
    }
    // The status that a server's answer gives.
    std::uint32_t StatusOfAnswer(const std::string& answer, const Certificate* presented = nullptr) {
        SetPlugin("port = \"9443\"\nconnect-seconds = \"5\"\ntotal-seconds = \"10\"\n");
        TlsServer server(9443, presented != nullptr ? presented : &certificate, answer);
        const Answered answered = AskAccount(kNear, Pinned(), "node01");
        lastRequest = server.Request();
        return answered.status;
    }
    static std::string Http(const std::string& status, const std::string& body, const std::string& headers = "") {
        return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\nContent-Type: application/json\r\n" + headers + "\r\n" + body;
    }

    const Certificate certificate = MakeCertificate("proxy.corp.test");
    std::string lastRequest;
};

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_APX_APX_HOST_H_
