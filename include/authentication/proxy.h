// The authentication proxy's plug-in, loaded, and a file of proxy thumbprints.
//
// An authentication proxy creates computer accounts on behalf of hosts. `APXProxy` opens the plug-in that talks to it,
// /usr/libexec/nimauth/lib64/lib<name>.so or else /usr/libexec/nimauth/lib<name>.so, and turns its C calls into strings
// and exceptions; proxy_abi.h describes the plug-in's side. `ActiveDirectoryStore::JoinDomainWithAPX` does a whole join.
//
//     APXProxy proxy("apxhttps", "192.0.2.7", true, thumbprint, certificate);
//     std::cout << proxy.GetDNSDomainName() << '\n';
//
// Threads: one thread per object.

#ifndef NIMBREL_AUTHENTICATION_PROXY_H_
#define NIMBREL_AUTHENTICATION_PROXY_H_

#include <string>

#include "authentication/configuration.h"
#include "authentication/directory_types.h"
#include "authentication/export.h"
#include "authentication/proxy_abi.h"

namespace nimbrel::authentication {

// Errors of every call: `InvalidAPXCertificateException` if the service's certificate cannot be verified,
// `WSATimedOutException`, `NotEnoughMemoryException`, `ConnectionRefusedException`, `ConnectionInvalidException`, and
// `UnknownException` for any other status. A plug-in that reports success without a text throws `std::logic_error`.
class NIMAUTH_EXPORT APXProxy {
 public:
    // Loads the plug-in `providerName`. `server` is the service's address; with `verifyCertificate` its certificate must
    // have the SHA-1 `thumbprint` ("0A:1B:...:FF"). `certificate` is that certificate in PEM form, or empty.
    //
    // Throws `IOError` "Unable to open APX provider: <loader's text>" if neither path can be opened,
    // `InvalidAPXProxyProviderException` if the plug-in exports no table, and `std::logic_error` if the table lacks a
    // function: the loader has no text for that, and clients know the case by this class.
    APXProxy(const std::string& providerName, const std::string& server, bool verifyCertificate,
             const std::string& thumbprint, const std::string& certificate);
    APXProxy(const APXProxy&) = delete;
    APXProxy& operator=(const APXProxy&) = delete;

    // Closes the plug-in.
    ~APXProxy();

    // The domain that the service creates accounts in. Each argument is replaced, in order; where a text is missing, those
    // before it have been.
    void GetDomainInfo(std::string& netbiosDomainName, std::string& dnsDomainName, std::string& domainSid);

    // One of the three, each with a call of its own to the service.
    std::string GetNetBIOSDomainName();
    std::string GetDNSDomainName();
    std::string GetDomainSID();

    // Has the service create an account; `accountName` is the host's fully qualified name, an empty
    // `organizationalUnit` leaves the place to the service. The first field of the result is empty.
    ComputerPrincipalInfo CreateMachineAccount(const std::string& accountName, const std::string& organizationalUnit);

    // Empty: the service offers neither a default container nor a domain controller. The plug-in is not asked.
    std::string GetDefaultComputerContainer();
    std::string GetDomainController();

 private:
    void* _library = nullptr;
    const NimauthProxyOperations* _operations = nullptr;
    bool _verifyCertificate;
    std::string _server;
    std::string _thumbprint;
    std::string _certificate;
};

// Thumbprints by server address, in a key-value file (see configuration.h) that must exist:
//
//     192.0.2.7 = "0A:1B:2C:3D:4E:5F:60:71:82:93:A4:B5:C6:D7:E8:F9:0A:1B:2C:3D"
class NIMAUTH_EXPORT APXThumbprintStore : public Configuration {
 public:
    // Reads the file. Throws as `Configuration` does.
    explicit APXThumbprintStore(const std::string& fileName);
    ~APXThumbprintStore() override;

    // The thumbprint of a server, or the empty text.
    std::string LookupThumbprint(const std::string& server);

    // Records the thumbprint of a server, and writes the file unless it says so already. Mind the order of the
    // arguments: the key is the second. Throws as `Configuration::Write`; the object is as before then, unless the new
    // file is in place and only lacks its permissions (`FilePermissionError`).
    void ImportThumbprint(const std::string& thumbprint, const std::string& server);
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_PROXY_H_
