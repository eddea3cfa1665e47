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

// One text of the plug-in, given back when this goes out of scope.
class ProxyText {
 public:
    explicit ProxyText(const NimauthProxyOperations& operations) : _operations(operations) {}
    ProxyText(const ProxyText&) = delete;
    ProxyText& operator=(const ProxyText&) = delete;
    ~ProxyText() {
        if (_text != nullptr) _operations.release(_text);
    }

    char** Address() { return &_text; }

    // std::string refuses a null text with std::logic_error: the plug-in has broken its word.
    std::string Copy() const { return {static_cast<const char*>(_text)}; }

    // After a failure the plug-in has handed out nothing.
    void Forget() { _text = nullptr; }

 private:
    const NimauthProxyOperations& _operations;
    char* _text = nullptr;
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
    // Declared in reverse, so that they are given back in the order NetBIOS name, DNS name, SID.
    ProxyText sid(*_operations);
    ProxyText dnsName(*_operations);
    ProxyText netbiosName(*_operations);
    const std::uint32_t status =
        _operations->getDomainInfo(_server.c_str(), _verifyCertificate, _thumbprint.c_str(), NullIfEmpty(_certificate),
                                   netbiosName.Address(), dnsName.Address(), sid.Address());
    if (status != 0) {
        netbiosName.Forget();
        dnsName.Forget();
        sid.Forget();
    }
    ThrowIfFailed(status);
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
    ProxyText field3(*_operations);
    ProxyText field2(*_operations);
    const std::uint32_t status = _operations->createMachineAccount(
        _server.c_str(), accountName.c_str(), NullIfEmpty(organizationalUnit), _verifyCertificate, _thumbprint.c_str(),
        NullIfEmpty(_certificate), field2.Address(), field3.Address());
    if (status != 0) {
        field2.Forget();
        field3.Forget();
    }
    ThrowIfFailed(status);
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
    const auto [entry, isNew] = try_emplace(server, thumbprint);
    if (!isNew && entry->second == thumbprint) return;
    entry->second = thumbprint;
    Write();
}

}  // namespace nimbrel::authentication
