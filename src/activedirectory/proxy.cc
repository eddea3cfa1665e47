#include "authentication/proxy.h"

#include <dlfcn.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <variant>

#include "activedirectory/plugin_file.h"
#include "activedirectory/plugin_results.h"
#include "authentication/exceptions.h"
#include "internal/no_cancellation.h"

namespace nimbrel::authentication {
namespace {

constexpr std::uint32_t kCertificateNotVerified = 0x80090325;

// The proxy's own, short table of statuses; the directory provider's is wider.
void ThrowIfFailed(std::uint32_t status) {
    switch (status) {
        case 0:
            return;
        case kCertificateNotVerified:
            throw InvalidAPXCertificateException();
        case 10060:
            throw WSATimedOutException();
        case 8:
            throw NotEnoughMemoryException();
        case 1225:
            throw ConnectionRefusedException();
        case 1229:
            throw ConnectionInvalidException();
        default:
            throw UnknownException(status);
    }
}

bool IsComplete(const NimauthProxyOperations* operations) {
    return operations != nullptr && operations->getDomainInfo != nullptr &&
           operations->createMachineAccount != nullptr && operations->release != nullptr;
}

// Copies all texts that a successful call has handed out, one after the other, and gives them back in the same order.
// std::string refuses a null text with std::logic_error: the plug-in has broken its word. What was copied before stays.
template <std::size_t count>
void TakeAll(const NimauthProxyOperations& operations, const std::array<char*, count>& texts,
             const std::array<std::string*, count>& copies) {
    const auto copy = [&texts, &copies] {
        for (std::size_t i = 0; i < count; ++i) *copies[i] = std::string(static_cast<const char*>(texts[i]));
        return std::monostate();
    };
    CopyThenGiveBack(copy, [&operations, &texts] {
        for (char* const text : texts) {
            if (text != nullptr) operations.release(text);
        }
    });
}

const char* NullIfEmpty(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

}  // namespace

APXProxy::APXProxy(const std::string& providerName, const std::string& server, bool verifyCertificate,
                   const std::string& thumbprint, const std::string& certificate)
    : _verifyCertificate(verifyCertificate), _server(server), _thumbprint(thumbprint), _certificate(certificate) {
    _library = OpenPluginFile(providerName, "Unable to open APX provider: ");
    _operations = static_cast<const NimauthProxyOperations*>(dlsym(_library, "APXProxyClientOperations"));
    if (IsComplete(_operations)) return;

    const char* const text = dlerror();
    const std::string detail = text == nullptr ? "" : text;
    dlclose(_library);
    _library = nullptr;
    // A table with a gap is no error to the loader. Clients tell it from a missing table by this class, so it stays.
    if (text == nullptr) throw std::logic_error("basic_string: construction from null is not valid");
    throw InvalidAPXProxyProviderException(providerName, detail);
}

APXProxy::~APXProxy() {
    const internal::NoCancellation noCancellation;
    if (_library != nullptr) dlclose(_library);
}

void APXProxy::GetDomainInfo(std::string& netbiosDomainName, std::string& dnsDomainName, std::string& domainSid) {
    std::array<char*, 3> texts = {};
    ThrowIfFailed(_operations->getDomainInfo(_server.c_str(), _verifyCertificate, _thumbprint.c_str(),
                                             NullIfEmpty(_certificate), texts.data(), &texts[1], &texts[2]));
    TakeAll(*_operations, texts, {&netbiosDomainName, &dnsDomainName, &domainSid});
}

std::string APXProxy::GetNetBIOSDomainName() {
    std::string netbiosName;
    std::string dnsName;
    std::string sid;
    GetDomainInfo(netbiosName, dnsName, sid);
    return netbiosName;
}

std::string APXProxy::GetDNSDomainName() {
    std::string netbiosName;
    std::string dnsName;
    std::string sid;
    GetDomainInfo(netbiosName, dnsName, sid);
    return dnsName;
}

std::string APXProxy::GetDomainSID() {
    std::string netbiosName;
    std::string dnsName;
    std::string sid;
    GetDomainInfo(netbiosName, dnsName, sid);
    return sid;
}

ComputerPrincipalInfo APXProxy::CreateMachineAccount(const std::string& accountName,
                                                     const std::string& organizationalUnit) {
    std::array<char*, 2> texts = {};
    ThrowIfFailed(_operations->createMachineAccount(
        _server.c_str(), accountName.c_str(), NullIfEmpty(organizationalUnit), _verifyCertificate, _thumbprint.c_str(),
        NullIfEmpty(_certificate), texts.data(), &texts[1]));
    ComputerPrincipalInfo principal;
    TakeAll(*_operations, texts, {&principal.principalField2, &principal.principalField3});
    return principal;
}

std::string APXProxy::GetDefaultComputerContainer() { return {}; }
std::string APXProxy::GetDomainController() { return GetDefaultComputerContainer(); }

APXThumbprintStore::APXThumbprintStore(const std::string& fileName) : Configuration(fileName) {}
APXThumbprintStore::~APXThumbprintStore() = default;

std::string APXThumbprintStore::LookupThumbprint(const std::string& server) {
    const auto entry = find(server);
    return entry == end() ? std::string() : entry->second;
}

void APXThumbprintStore::ImportThumbprint(const std::string& thumbprint, const std::string& server) {
    std::string other = thumbprint;
    const auto [entry, isNew] = try_emplace(server);
    if (!isNew && entry->second == thumbprint) return;
    entry->second.swap(other);
    try {
        Write();
    } catch (const FilePermissionError&) {
        throw;  // the file has it all the same
    } catch (...) {
        // The file does not say so: nor does the object, or else the next import would find nothing to do.
        entry->second.swap(other);
        if (isNew) erase(entry);
        throw;
    }
}

}  // namespace nimbrel::authentication
