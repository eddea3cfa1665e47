// The Active Directory store: what the host knows of its directory, and how it joins and leaves one.
//
//     ActiveDirectoryStore store(60);
//     store.JoinDomain("corp.test/Hosts", Credentials{"administrator", password}, false);
//     store.UpdateCache(std::nullopt);
//     for (const Domain& domain : store.GetTrustedDomains()) std::cout << domain << '\n';
//
// Queries never hang their caller for longer than stated. Each is run in the background; callers that ask the same
// question share one provider call; a caller whose time-out passes gets the last known answer from the cache, a warning
// goes to the system log, and the provider call goes on, so that the next caller sees what it brought. The longest wait
// of each query is given below in multiples of the store's time-out T.
//
// Threads: any thread may call any operation. Joins and leaves take no lock: callers let one end before the next. All
// stores of a process share one cache and one table of requests.
//
// Errors: a query throws what its provider call ended with, in every caller that waits for it, and
// `ThreadErrorException` if no thread can be started for it or the background work ends unexpectedly; what an installed
// scheduler throws (background_work.h) is thrown on. A time-out is not an error.

#ifndef NIMBREL_AUTHENTICATION_DIRECTORY_STORE_H_
#define NIMBREL_AUTHENTICATION_DIRECTORY_STORE_H_

#include <pthread.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "authentication/background_work.h"
#include "authentication/directory_cache.h"
#include "authentication/directory_types.h"
#include "authentication/export.h"
#include "authentication/provider.h"
#include "authentication/stores.h"

namespace nimbrel::authentication {

class NIMAUTH_EXPORT ActiveDirectoryStore : public DirectoryStore {
 public:
    // Loads the provider that provider.conf names. `timeout` is in seconds, for every wait of this store; zero or less
    // answers every query from the cache while its provider call runs.
    //
    // Throws `InvalidActiveDirectoryProviderException` for "(none installed)" if provider.conf cannot be opened, for
    // "(unset)" if its "provider" is empty, for the provider's name if its file cannot be loaded, and with the reason
    // if the plug-in is unfit; `ConfigurationError` or `InvalidKeyException` if the file is malformed; `std::logic_error`
    // if the plug-in names no PAM or NSS module.
    explicit ActiveDirectoryStore(int timeout);
    ActiveDirectoryStore(const ActiveDirectoryStore&) = delete;
    ActiveDirectoryStore& operator=(const ActiveDirectoryStore&) = delete;
    ~ActiveDirectoryStore() override;

    // What is answered from the cache alone. Valid for the life of the process.
    static const ADCache& Cache();

    // An `ActiveDirectoryStoreConfiguration`, owned by the caller. Longest wait: T.
    StoreConfiguration* GetStoreConfiguration() const override;

    // "Active Directory".
    std::string GetDisplayName() const override;

    // Records this store, even if it is recorded already, and refreshes the cache. The store that was recorded before is
    // not made inactive: the only other one, "None", cannot be. Longest wait: as `UpdateCache`.
    void MakeActive() override;

    // Refreshes the cache. Neither changes the record nor leaves the domain. Longest wait: as `UpdateCache`.
    void MakeInactive() override;

    // The provider's trust state; 7 if the provider answers the trusted-domains question, which is asked first, with
    // `FileNotFoundException` (not a member); 2 if it does not answer in time; 0 if it lacks the operation. Any other
    // failure of the trusted-domains question is logged only. Longest wait: 2 T.
    TrustState GetDomainTrustState() const;

    // In the provider's order; empty if the provider lacks the operation. Longest wait: T.
    std::deque<Domain> GetTrustedDomains() const;

    // 6 if nothing is known of the domain, 0 if the provider lacks the operation. Longest wait: T.
    TrustRelationship GetDomainTrustRelationship(const std::string& domain) const;

    // The steps of `UpdateCache`: ask again, so that the cache is fresh. False, and a line in the system log, if the
    // answer was an error; a time-out counts as success. Longest wait: T, 2 T, T, and T for each domain, own and trusted.
    bool FetchAdConfig();
    bool FetchDomainTrustState();
    bool FetchTrustedDomains();
    bool FetchTrustRelationships();

    // Asks the provider on the calling thread, without a time-out.
    bool FetchScEnabledSvcs();

    // Refreshes everything in one pass and logs whether it was complete. A value in `pcscdServicePolicy` becomes the
    // cache's smart-card policy. Throws no `Exception` of this library. Longest wait: T for a host that is no member;
    // for a member (4 + number of own and trusted domains) T, and the smart-card question, which has no time-out.
    void UpdateCache(std::optional<bool> pcscdServicePolicy);

    // The operations from here to the next comment go straight to the provider on the calling thread, without a
    // time-out, and throw what it throws; where the provider lacks the operation they answer as stated.
    std::string ConvertCanonicalUsername(const std::string& name) const;             // the name unchanged
    std::string GetHostPrincipalForDomain(const std::string& domain) const;          // the empty text
    std::string GetDomainControllerForDomain(const std::string& domainName) const;   // the empty text
    std::vector<std::string> GetSmartCardEnabledServices() const;                    // throws
    void SetSmartCardEnabledServices(const std::vector<std::string>& services);      // throws; else cached too
    void SetPreferredDomainControllers(const std::deque<std::string>& controllers);  // a warning in the log

    // Joins the domain with a user's credentials. `domain` is a DNS name, optionally followed by '/' and the
    // organizational unit for the computer account: "corp.test/Hosts/Sub". Unless `skipHostnameCheck` is set the host's
    // name is made to fit first (`SanitiseHostnameForDomain`). The strings in `credentials` are used during the call
    // only; wipe them after it.
    //
    // The domain settings are stored after the join. If that throws `OrbConfigStore::ConfigStoreException`, and nothing
    // else, the host leaves again, so that membership and stored settings agree. If leaving fails, too, the provider's
    // exception is thrown in place of the store's, and the host stays joined without stored settings; `PartDomain` ends
    // that.
    //
    // Blocks for as long as the provider takes: up to four attempts and 120 seconds of pauses. Throws
    // `InvalidCredentialsException` for a null user name or a null or empty password (nothing is changed),
    // `InvalidHostNameException`, `HostMgmt::Lib::HostMgmtException` if the platform fails while the host's name is made
    // to fit, the provider's exception (1326 `LogonFailureException`, 1355 `NoSuchDomainException`,
    // 2691 `SetupAlreadyJoinedException`, ...), or `OrbConfigStore::ConfigStoreException` after leaving again.
    void JoinDomain(const std::string& domain, const Credentials& credentials, bool skipHostnameCheck);

    // Makes the host's own name fit a domain: checks that the host name resolves and agrees with its fully qualified
    // name, adds the domain to the DNS search list if the fully qualified name lies elsewhere and the domain resolves,
    // and maps the management interface's IPv4 address to the fully qualified name in the hosts file.
    //
    // Throws `InvalidHostNameException` with the reason, or `HostMgmt::Lib::HostMgmtException` if the platform fails. A
    // host called "localhost", "linux" or "hostname" is refused only after the search list may have been extended.
    //
    // Whether the domain resolves is asked of `gethostbyname`, whose result belongs to the whole process: no other
    // thread may call it meanwhile. Both joins do this, too, unless they skip the check.
    void SanitiseHostnameForDomain(const std::string& domainName) const;

    // Leaves the domain without credentials and removes the stored domain settings. If these cannot be removed the
    // `OrbConfigStore::ConfigStoreException` is thrown and the host has left all the same.
    void PartDomain();

    // Leaves with credentials, as far as the directory goes: the stored domain settings stay.
    void PartDomain(const Credentials& credentials);

    // Joins the domain of the authentication proxy at the IPv4 address `proxyAddress`, which creates the computer
    // account; the host never holds a domain user's password. The account goes to `organizationalUnit`, or where the
    // service puts it if that is empty. Whether the proxy's certificate must be the imported one is decided by the host's
    // advanced option UserVars.ActiveDirectoryVerifyAPXCertificate, 0 or 1. Stores the settings and leaves again as
    // `JoinDomain` does, with the same outcome if leaving fails; an account that the proxy has created stays, whatever
    // fails later.
    //
    // Blocks for as long as proxy and provider take. Throws `InvalidIPAddressException`,
    // `InvalidVerifyAPXCertificateOptionException`, `InvalidHostNameException`, `HostMgmt::Lib::HostMgmtException` (the
    // platform failed), `InvalidAPXProxyProviderException`, `ConfigurationError` or `InvalidKeyException` (a malformed
    // apxprovider.conf), `InvalidThumbprintStoreException` (nothing imported), what `APXProxy` throws, the provider's
    // exception, or `OrbConfigStore::ConfigStoreException` after leaving again. Nothing is stored before the join has
    // succeeded.
    void JoinDomainWithAPX(const std::string& proxyAddress, const std::string& organizationalUnit,
                           bool skipHostnameCheck);

    // The DNS name of the domain that the proxy at this IPv4 address serves. Its certificate is not verified.
    //
    // Throws `InvalidIPAddressException`, `InvalidAPXProxyProviderException`, `ConfigurationError` or
    // `InvalidKeyException` (a malformed apxprovider.conf), or what `APXProxy` throws.
    std::string GetDomainForAPXService(const std::string& proxyAddress);

    // Trusts the proxy whose certificate this is, PEM text, and stores it with its SHA-1 thumbprint in place of the one
    // before. The second form reads the text from a file; its second argument is ignored.
    //
    // Throws `InvalidCertificateException`, `FileNotFoundException` for a file that cannot be opened, or
    // `OrbConfigStore::ConfigStoreException`.
    void ImportCertificateForAPX(const std::string& certificate);
    void ImportCertificateForAPX(const std::string& certificateFile, const std::string& ignored);

 protected:
    using Provider = std::shared_ptr<const ActiveDirectoryProvider>;

    // Runs `work(key)` in the background, or attaches to the request that runs under `key` already and drops `work`.
    // If the work cannot be scheduled the error goes to the caller and no request is left behind.
    static std::shared_ptr<RequestState> StartOrAttachToRequest(const std::string& key,
                                                                std::function<void(const std::string&)> work);

    // Ends the request under `key`, if there is one, with `error` or without.
    static void FinishRequest(const std::string& key, std::unique_ptr<Exception> error);

    // The background bodies: ask the provider, write the answer into the cache, end the request. However one is left,
    // its request is ended; only a forced unwind (`pthread_exit`, cancellation) leaves it.
    static void GetStoreConfigurationInt(const Provider& provider, const std::string& key);
    static void GetDomainTrustStateInt(const Provider& provider, const std::string& key);
    static void GetTrustedDomainsInt(const Provider& provider, const std::string& key);
    static void GetDomainTrustRelationshipInt(const Provider& provider, const std::string& domain,
                                              const std::string& key);

    // These three are never destroyed: a worker may outlive every caller and even the return from `main`.
    static ADCache& _adCache;
    static std::unordered_map<std::string, std::shared_ptr<RequestState>>& _asyncRequests;
    static pthread_mutex_t _lock;  // guards `_asyncRequests`; never held while waiting or calling the provider

 private:
    class RequestEnd;

    // Stores what was joined, or leaves again.
    void StoreDomainSettings(const std::string& domainName, const std::string& organizationalUnit,
                             const std::string& proxyAddress) const;

    template <typename Body>
    static void RunBody(const std::string& key, const Body& body);

    int _timeout;  // seconds
    Provider _provider;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_DIRECTORY_STORE_H_
