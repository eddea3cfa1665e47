#include "proxy/certificates.h"

#include <cstdio>
#include <stdexcept>

#include "proxy/root.h"

namespace nimbrel::authentication::test {
namespace {

constexpr const char* kCertificate = "/tmp/certificates/certificate.pem";
constexpr const char* kKey = "/tmp/certificates/key.pem";

// The output of `openssl` with these arguments; throws if it fails.
std::string OpenSSL(const std::string& arguments) {
    MakeFolder("/tmp/certificates");
    const std::string command = NIMAUTH_OPENSSL " " + arguments + " 2>/tmp/certificates/errors";
    std::FILE* const pipe = popen(command.c_str(), "re");
    if (pipe == nullptr) throw std::runtime_error("popen");
    std::string output;
    char buffer[4096];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, count);
    if (pclose(pipe) != 0) throw std::runtime_error(command + ": " + ReadFile("/tmp/certificates/errors"));
    return output;
}

}  // namespace

std::string MakeCertificate(const std::string& key) {
    OpenSSL("req -x509 -newkey " + key + " -nodes -days 1 -subj /CN=192.0.2.7 -keyout " + kKey + " -out " +
            kCertificate);
    return ReadFile(kCertificate);
}

std::string LastKey() { return ReadFile(kKey); }

std::string FingerprintOf(const std::string& certificate) {
    const std::string line = Convert(certificate, "-noout -fingerprint -sha1");
    return line.substr(line.find('=') + 1, line.find('\n') - line.find('=') - 1);
}

std::string Convert(const std::string& certificate, const std::string& options) {
    WriteSystemFile(kCertificate, certificate);
    return OpenSSL("x509 -in " + std::string(kCertificate) + " " + options);
}

}  // namespace nimbrel::authentication::test
