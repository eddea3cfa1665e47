// What the library and the host platform keep: settings files, configuration store, advanced options, hosts file, search
// domains, proxy certificate and thumbprints. /etc and /var/lib are empty folders of the program's own.

#include <filesystem>
#include <memory>

#include "authentication/configuration.h"
#include "authentication/directory_config_store.h"
#include "authentication/exceptions.h"
#include "authentication/proxy.h"
#include "crash/files.h"
#include "crash/operation.h"
#include "hostmgmt/advanced_options.h"
#include "orbconfigstore/config_store.h"
#include "src/activedirectory/thumbprint.h"
#include "sysnet/dns_config.h"
#include "sysnet/hosts_file.h"

namespace nimbrel::crash {
namespace {

using HostMgmt::Lib::HostMgmtException;
using OrbConfigStore::ConfigStoreException;
using OrbConfigStore::ConfigStoreObject;
using OrbConfigStore::ConfigStoreObjectId;

constexpr char kStoreFolder[] = "/var/lib";
constexpr char kEtc[] = "/etc";

// --- Settings files ---

constexpr char kSettings[] = "/etc/nimbrel/nimauth/authentication.conf";
constexpr char kThumbprints[] = "/etc/nimbrel/nimauth/thumbprints.conf";

// The file is replaced by one of mode 0600, which then gets the old one's mode; nothing deletes temporary files.
void AllowTheAtomicFile(Operation& operation, const std::string& path) {
    operation.isDocumented = IsOneOf<authentication::IOError, authentication::FilePermissionError>;
    operation.throwsUnchanged = false;  // a mode that cannot be kept is told when the file is in place
    operation.mayStay = [path](const std::string& other) {
        return other.size() == path.size() + 7 && other.rfind(path + ".", 0) == 0;
    };
    operation.furtherAttributes = {{path, "100600 0:0"}};
    operation.isLeftToTheKernel = true;  // which its contract says
}

Operation WriteSettings() {
    Operation operation;
    operation.name = "settings file";
    operation.folders = {kEtc};
    operation.prepare = [] { WriteFile(kSettings, "other = \"1\"\nremote-authentication-store = \"None\"\n"); };
    operation.run = [] {
        authentication::AuthenticationConfiguration configuration;
        configuration["remote-authentication-store"] = "Active Directory";
        configuration.Write();
    };
    operation.read = [] {
        const authentication::AuthenticationConfiguration configuration;
        return Parts(configuration.begin(), configuration.end());
    };
    AllowTheAtomicFile(operation, kSettings);
    return operation;
}

Operation ImportThumbprint() {
    Operation operation;
    operation.name = "thumbprint file";
    operation.folders = {kEtc};
    operation.prepare = [] { WriteFile(kThumbprints, "192.0.2.1 = \"0A:1B\"\n", 0640); };
    operation.run = [] { authentication::APXThumbprintStore(kThumbprints).ImportThumbprint("0C:1D", "192.0.2.2"); };
    operation.read = [] {
        const authentication::APXThumbprintStore store(kThumbprints);
        return Parts(store.begin(), store.end());
    };
    AllowTheAtomicFile(operation, kThumbprints);
    return operation;
}

// --- Configuration store ---

std::shared_ptr<OrbConfigStore::ConfigStore> Store() {
    return OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace);
}

ConfigStoreObjectId ObjectId() { return {"key", "group", "component"}; }

void StoreObject(const std::map<std::string, std::string>& values) {
    const auto object = std::make_shared<ConfigStoreObject>(ObjectId());
    for (const auto& [name, value] : values) object->SetValue(name.c_str(), value);
    std::uint32_t word = 0;
    Store()->SetObject(object, word);
}

Parts ReadObject() {
    const auto object = Store()->GetObject(ObjectId());
    return object == nullptr ? Parts{{"object", "missing"}} : Parts(object->Values().begin(), object->Values().end());
}

Operation OnTheStore(const char* name) {
    Operation operation;
    operation.name = name;
    operation.folders = {kStoreFolder};
    operation.isDocumented = IsOneOf<ConfigStoreException>;
    operation.killStride = 5;
    operation.powerStride = 3;
    operation.read = ReadObject;
    operation.failureStride = 7;
    operation.allocationStride = 10;
    return operation;
}

Operation FirstObject() {
    Operation operation = OnTheStore("configuration store, first object");
    operation.prepare = [] {};
    operation.run = [] { StoreObject({{"one", "new"}}); };
    return operation;
}

Operation ReplacedObject() {
    Operation operation = OnTheStore("configuration store, replaced object");
    operation.prepare = [] { StoreObject({{"one", "old"}, {"two", "old"}}); };
    operation.run = [] { StoreObject({{"one", "new"}, {"three", std::string(5000, 'n')}}); };
    return operation;
}

Operation RemovedObject() {
    Operation operation = OnTheStore("configuration store, removed object");
    operation.prepare = [] { StoreObject({{"one", "old"}}); };
    operation.run = [] { Store()->RemoveObject(ObjectId()); };
    return operation;
}

// --- Proxy certificate ---

// Self-signed, of a proxy that never was.
constexpr char kCertificate[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBiTCCAS+gAwIBAgIUJENAOWz8Rt/BFE0zfeBbSKK+8+AwCgYIKoZIzj0EAwIw\n"
    "GjEYMBYGA1UEAwwPcHJveHkuY29ycC50ZXN0MB4XDTI2MTEyMTA4NDM1NloXDTM2\n"
    "MTExODA4NDM1NlowGjEYMBYGA1UEAwwPcHJveHkuY29ycC50ZXN0MFkwEwYHKoZI\n"
    "zj0CAQYIKoZIzj0DAQcDQgAE7vJqxwodbic2Q1M6jXe52iZczFiY/STZHaUvCMD8\n"
    "ck26r3w/PWG2wM9ngVSnhY/4JCoWfu39+bSIE/YWRPJB3qNTMFEwHQYDVR0OBBYE\n"
    "FFBSDwUGvGj78VxK9bTbHu8KpwI/MB8GA1UdIwQYMBaAFFBSDwUGvGj78VxK9bTb\n"
    "Hu8KpwI/MA8GA1UdEwEB/wQFMAMBAf8wCgYIKoZIzj0EAwIDSAAwRQIgScuuerlN\n"
    "bpUfFjN6QM4ZOz9QMf8zcIbbtUH7MY6k8csCIQCMHrJaOcR2/NnKDzSL5eeVz+W0\n"
    "TAHneTuuySBbK0d/ew==\n"
    "-----END CERTIFICATE-----\n";

Operation ImportCertificate() {
    Operation operation = OnTheStore("proxy certificate");
    operation.prepare = [] {
        // libcrypto sets itself up once in a process, and never again where memory ran out then.
        authentication::ThumbprintOfPEM(kCertificate);
        authentication::ActiveDirectoryConfigStore().StoreAuthProxyCertInfo("0A:1B", "the old one");
    };
    operation.run = [] {
        authentication::ActiveDirectoryConfigStore().StoreAuthProxyCertInfo(
            authentication::ThumbprintOfPEM(kCertificate), kCertificate);
    };
    operation.read = [] {
        authentication::ActiveDirectoryConfigStore store;
        return Parts{{"thumbprint", store.GetThumbprint()}, {"certificate", store.GetCertificate()}};
    };
    // A library that runs out of memory while it reads a certificate cannot tell that from a malformed one.
    operation.isDocumented = IsOneOf<ConfigStoreException, authentication::InvalidCertificateException>;
    operation.powerStride = 3;
    return operation;
}

// --- Domain settings ---

Operation StoreDomainSettings() {
    Operation operation = OnTheStore("domain settings");
    operation.prepare = [] { authentication::ActiveDirectoryConfigStore().StoreDomainInfo("old.test", "Hosts", ""); };
    operation.run = [] { authentication::ActiveDirectoryConfigStore().StoreDomainInfo("corp.test", "", "192.0.2.1"); };
    operation.read = [] {
        authentication::ActiveDirectoryConfigStore store;
        return Parts{{"domain", store.GetDomainName()},
                     {"unit", store.GetOrganizationalUnit()},
                     {"proxy", store.GetAuthProxyAddr()}};
    };
    return operation;
}

// --- Advanced options ---

constexpr char kVerify[] = "UserVars.ActiveDirectoryVerifyAPXCertificate";

std::shared_ptr<HostMgmt::Adv::AdvancedOptions> Options() {
    return HostMgmt::HostFactory::GetHost()->GetAdvancedOptions();
}

std::string ValueOf(const std::shared_ptr<HostMgmt::Adv::AdvancedOption>& option) {
    const auto integer = std::dynamic_pointer_cast<HostMgmt::Adv::AdvancedIntegerOption>(option);
    return integer == nullptr ? "no integer" : std::to_string(integer->GetValue());
}

Parts ReadOptions() {
    Parts parts;
    const auto branch = Options()->GetRootBranch()->GetBranch("UserVars");
    if (branch == nullptr) return {{"branch", "missing"}};
    for (const std::string& name : branch->GetOptionNames()) parts[name] = ValueOf(branch->GetOption(name));
    return parts;
}

Operation OnTheOptions(const char* name, std::function<void()> prepare, std::function<void()> run) {
    Operation operation = OnTheStore(name);
    operation.prepare = std::move(prepare);
    operation.run = std::move(run);
    operation.read = ReadOptions;
    operation.isDocumented = IsOneOf<HostMgmtException>;
    operation.powerStride = 3;
    return operation;
}

void DeclareTimeout() { Options()->DeclareInteger("UserVars.Timeout", 30, "Seconds."); }

Operation SetOption() {
    return OnTheOptions(
        "advanced option, value", [] {},
        [] {
            const auto option = std::dynamic_pointer_cast<HostMgmt::Adv::AdvancedIntegerOption>(
                Options()->GetRootBranch()->GetBranch("UserVars")->GetOption("ActiveDirectoryVerifyAPXCertificate"));
            option->SetValue(0);
        });
}

Operation DeclareOption() {
    return OnTheOptions(
        "advanced option, declared", [] { Options()->Remove(kVerify); }, DeclareTimeout);
}

// The option is gone when its object is; a failure to tidy its entry in the index is told all the same.
Operation RemoveOption() {
    Operation operation =
        OnTheOptions("advanced option, removed", DeclareTimeout, [] { Options()->Remove("UserVars.Timeout"); });
    operation.throwsUnchanged = false;
    return operation;
}

Operation RestoreOption() {
    Operation operation = OnTheOptions(
        "advanced option, restored", [] { Options()->Remove(kVerify); }, [] { Options()->Restore(kVerify); });
    operation.throwsUnchanged = false;
    return operation;
}

// --- Network files ---

constexpr char kHosts[] = "/etc/hosts";
constexpr char kResolvConf[] = "/etc/resolv.conf";
constexpr char kDropIn[] = "/etc/systemd/resolved.conf.d/50-nimauth.conf";

Operation OnAFile(const char* name, const char* path, std::function<void()> run) {
    Operation operation;
    operation.name = name;
    operation.folders = {kEtc};
    operation.run = std::move(run);
    operation.read = [path] { return Parts{{path, ReadFile(path)}}; };
    operation.isDocumented = IsOneOf<HostMgmtException>;
    return operation;
}

void AddHost() { SysNet::Network::HostsFile().AddOrReplaceEntry("192.0.2.10", "node01.corp.test", {"node01"}); }

void AddSearchDomain() {
    SysNet::Network::DnsConfigImpl config("defaultTcpipStack");
    config.AddUserSearchDomain("corp.test");
    config.SaveConfig();
}

Operation EditHosts() {
    Operation operation = OnAFile("hosts file", kHosts, AddHost);
    operation.prepare = [] {
        WriteFile(kHosts, "127.0.0.1\tlocalhost\n192.0.2.10 node01 # rack 4\n", 0664);
        std::filesystem::permissions(kHosts, static_cast<std::filesystem::perms>(0640));
    };
    return operation;
}

Operation MakeHosts() {
    Operation operation = OnAFile("hosts file, first", kHosts, AddHost);
    operation.prepare = [] {};
    return operation;
}

Operation EditResolvConf() {
    Operation operation = OnAFile("search domain in resolv.conf", kResolvConf, AddSearchDomain);
    operation.prepare = [] { WriteFile(kResolvConf, "search old.test\nnameserver 192.0.2.53\n"); };
    return operation;
}

Operation EditDropIn() {
    Operation operation = OnAFile("search domain of the resolver service", kDropIn, AddSearchDomain);
    operation.prepare = [] {
        std::filesystem::create_directories("/etc/systemd");
        std::filesystem::create_symlink("/run/systemd/resolve/stub-resolv.conf", kResolvConf);
    };
    return operation;
}

}  // namespace

std::vector<Operation> Operations() {
    CoverFolder(kEtc);
    CoverFolder(kStoreFolder);
    return {WriteSettings(),     ImportThumbprint(),    FirstObject(), ReplacedObject(), RemovedObject(),
            ImportCertificate(), StoreDomainSettings(), SetOption(),   DeclareOption(),  RemoveOption(),
            RestoreOption(),     EditHosts(),           MakeHosts(),   EditResolvConf(), EditDropIn()};
}

}  // namespace nimbrel::crash
