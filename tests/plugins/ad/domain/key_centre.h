// A key distribution centre of one realm: log-ons by password, with the proof that a domain asks for, and tickets for
// services and for the realms that trust it. Names are compared without case, as in a domain.
//
// Threads: any calls at once.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_KEY_CENTRE_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_KEY_CENTRE_H_

#include <krb5/krb5.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::ad::test {

class KeyCentre {
 public:
    // All its keys are of that kind.
    explicit KeyCentre(const std::string& realm, krb5_enctype encryption = ENCTYPE_AES256_CTS_HMAC_SHA1_96);
    KeyCentre(const KeyCentre&) = delete;
    KeyCentre& operator=(const KeyCentre&) = delete;
    ~KeyCentre();

    // Users and machines. `salt` is what the domain makes the key with.
    void SetPassword(const std::string& name, const std::string& password, const std::string& salt);
    void Remove(const std::string& name);
    // Answers every request of the name with this error; 0 ends that.
    void Refuse(const std::string& name, krb5_error_code error);
    // Says that the user is at home in another realm.
    void SendElsewhere(const std::string& name, const std::string& realm);

    // A service with a random key, which is in `Keytab()` then.
    void AddService(const std::string& name);
    // Tickets of this realm are good for the other one. Called at both, with the same secret.
    void LetOutTo(const std::string& realm, const std::string& secret);
    void LetInFrom(const std::string& realm, const std::string& secret);

    std::string Answer(std::string_view request);
    // The keys of the services, under a name of libkrb5's.
    const std::string& Keytab() const { return _keytabName; }

    // A ticket is given without a proof, as for accounts that an administrator has marked so.
    std::atomic<bool> asksForNoProof = false;
    std::atomic<int> logOns = 0;  // tickets given for a password or key
    std::atomic<int> requests = 0;

 private:
    using Key = std::vector<unsigned char>;
    struct Account {
        Key key;
        std::string salt;
    };
    struct Refusal {
        krb5_error_code code;
        std::string data = {};
        std::string realm = {};
    };

    std::string LogOn(std::string_view request);
    std::string Ticket(std::string_view request);
    std::string Reply(krb5_msgtype type, const krb5_kdc_req& request, krb5_principal client, krb5_keyblock& key,
                      bool keyIsSubkey, krb5_pa_data** hints);
    const Account& Prove(const krb5_kdc_req& request, const std::string& name) const;
    std::string ErrorMessage(const Refusal& refusal, krb5_principal client, krb5_principal server) const;
    void Keep(const std::string& principal, const Key& key);
    Key KeyOf(const std::string& secret, const std::string& salt) const;

    krb5_keyblock Block(const Key& key) const;

    const std::string _realm;
    const krb5_enctype _encryption;
    std::mutex _lock;  // guards what follows
    krb5_context _context = nullptr;
    krb5_keytab _keytab = nullptr;
    std::string _keytabName;
    std::map<std::string, Account> _accounts;
    std::map<std::string, Key> _services;
    std::map<std::string, krb5_error_code> _refusals;
    std::map<std::string, std::string> _elsewhere;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_KEY_CENTRE_H_
