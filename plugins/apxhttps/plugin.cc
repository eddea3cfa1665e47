// The proxy plug-in "apxhttps": the library's proxy interface over HTTPS to the service apxd.

#include <openssl/crypto.h>
#include <syslog.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "answers.h"
#include "authentication/proxy_abi.h"
#include "client.h"

namespace nimbrel::apxhttps {
namespace {

constexpr std::uint32_t kInvalidParameter = 87;

void Wipe(char* text) {
    if (text == nullptr) return;
    OPENSSL_cleanse(text, std::strlen(text));
    std::free(text);
}

struct WipeText {
    void operator()(char* text) const { Wipe(text); }
};
using Result = std::unique_ptr<char, WipeText>;

Result Copy(const std::string& text) {
    Result copy(strdup(text.c_str()));
    if (copy == nullptr) throw std::bad_alloc();
    return copy;
}

Service MakeService(const char* server, bool verify, const char* thumbprint, const char* certificate) {
    return {server, verify, thumbprint != nullptr ? thumbprint : "", certificate != nullptr ? certificate : ""};
}

// No exception leaves the plug-in.
template <typename Step>
std::uint32_t Guarded(const Step& step) {
    try {
        return step();
    } catch (const std::bad_alloc&) {
        return kNotEnoughMemory;
    } catch (const std::exception& error) {
        syslog(LOG_ERR, "Authentication proxy: %s", error.what());
        return kInvalidSettings;
    }
}

std::uint32_t Malformed(const Service& service) {
    syslog(LOG_ERR, "Authentication proxy %s: the answer is malformed", service.address.c_str());
    return kConnectionInvalid;
}

struct WipeSecret {
    explicit WipeSecret(std::string& wiped) : text(wiped) {}
    WipeSecret(const WipeSecret&) = delete;
    WipeSecret& operator=(const WipeSecret&) = delete;
    ~WipeSecret() { OPENSSL_cleanse(text.data(), text.size()); }

    std::string& text;
};

extern "C" {

static std::uint32_t GetDomainInfo(const char* server, bool verify, const char* thumbprint, const char* certificate,
                                   char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    if (!server || !netbiosDomainName || !dnsDomainName || !domainSid) return kInvalidParameter;
    return Guarded([&] {
        const Service service = MakeService(server, verify, thumbprint, certificate);
        Body body;
        const std::uint32_t status = Ask(service, "/v1/domain", "", body);
        if (status != kSuccess) return status;
        const auto answer = ParseDomainAnswer(body.text);
        if (!answer) return Malformed(service);
        Result netbiosName = Copy(answer->netbiosName);
        Result dnsName = Copy(answer->dnsName);
        *domainSid = Copy(answer->sid).release();
        *dnsDomainName = dnsName.release();
        *netbiosDomainName = netbiosName.release();
        return kSuccess;
    });
}

static std::uint32_t CreateMachineAccount(const char* server, const char* accountName, const char* organizationalUnit,
                                          bool verify, const char* thumbprint, const char* certificate,
                                          char** principalField2, char** principalField3) {
    if (!server || !accountName || !principalField2 || !principalField3) return kInvalidParameter;
    return Guarded([&] {
        const Service service = MakeService(server, verify, thumbprint, certificate);
        const std::string request = AccountRequest(accountName, organizationalUnit ? organizationalUnit : "");
        Body body;
        const std::uint32_t status = Ask(service, "/v1/computers", request, body);
        if (status != kSuccess) return status;
        auto answer = ParseAccountAnswer(body.text);
        if (!answer) return Malformed(service);
        const WipeSecret wiped(answer->oneTimeSecret);
        Result name = Copy(answer->accountName);
        *principalField3 = Copy(answer->oneTimeSecret).release();
        *principalField2 = name.release();
        return kSuccess;
    });
}

static void Release(char* text) { Wipe(text); }

}  // extern "C"

}  // namespace
}  // namespace nimbrel::apxhttps

const NimauthProxyOperations APXProxyClientOperations = {
    nullptr,
    nimbrel::apxhttps::GetDomainInfo,
    nimbrel::apxhttps::CreateMachineAccount,
    nimbrel::apxhttps::Release,
};
