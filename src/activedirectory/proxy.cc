#include "authentication/proxy.h"

#include <dlfcn.h>

#include <cstdint>
#include <stdexcept>

#include "activedirectory/plugin_file.h"
#include "authentication/exceptions.h"

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

// One text that a successful call has handed out, given back when this goes out of scope.
class ProxyText {
 public:
    ProxyText(const NimauthProxyOperations& operations, char* text) : _operations(operations), _text(text) {}
    ProxyText(const ProxyText&) = delete;
    ProxyText& operator=(const ProxyText&) = delete;
    ~ProxyText() {
        if (_text != nullptr) _operations.release(_text);
    }

    // std::string refuses a null text with std::logic_error: the plug-in has broken its word.
    std::string Copy() const { return {static_cast<const char*>(_text)}; }

 private:
    const NimauthProxyOperations& _operations;
    char* const _text;
};

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
    if (_library != nullptr) dlclose(_library);
}

void APXProxy::GetDomainInfo(std::string& netbiosDomainName, std::string& dnsDomainName, std::string& domainSid) {
    char* texts[] = {nullptr, nullptr, nullptr};
    ThrowIfFailed(_operations->getDomainInfo(_server.c_str(), _verifyCertificate, _thumbprint.c_str(),
                                             NullIfEmpty(_certificate), &texts[0], &texts[1], &texts[2]));
    // Declared in reverse, so that they are given back in the order NetBIOS name, DNS name, SID.
    const ProxyText sid(*_operations, texts[2]);
    const ProxyText dnsName(*_operations, texts[1]);
    const ProxyText netbiosName(*_operations, texts[0]);
    netbiosDomainName = netbiosName.Copy();
    dnsDomainName = dnsName.Copy();
    domainSid = sid.Copy();
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
    char* texts[] = {nullptr, nullptr};
    ThrowIfFailed(_operations->createMachineAccount(
        _server.c_str(), accountName.c_str(), NullIfEmpty(organizationalUnit), _verifyCertificate, _thumbprint.c_str(),
        NullIfEmpty(_certificate), &texts[0], &texts[1]));
    const ProxyText field3(*_operations, texts[1]);
    const ProxyText field2(*_operations, texts[0]);
    return {"", field2.Copy(), field3.Copy()};
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
    } catch (...) {
        // The file does not say so: nor does the object, or else the next import would find nothing to do.
        entry->second.swap(other);
        if (isNew) erase(entry);
        throw;
    }
}

}  // namespace nimbrel::authentication
