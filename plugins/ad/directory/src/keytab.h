// This host's keys in the system's keytab, which is shared with other services and other realms.
//
// Each change writes a whole new file beside the old one and renames it: mode 0600, owned by this process's user (root)
// whatever the old one was, and every entry that is not ours byte for byte as it was. Errors: `AdError` with 5 or 1359; a
// damaged file is never replaced.

#ifndef NIMBREL_AD_KEYTAB_H_
#define NIMBREL_AD_KEYTAB_H_

#include <cstdint>
#include <string>
#include <vector>

#include "files.h"
#include "pluginkit/secret.h"

namespace nimbrel::ad {

// The machine account whose keys are written.
struct KeytabAccount {
    std::string computer;  // "NODE01"
    std::string domain;    // "corp.test"
    std::uint32_t keyVersion = 1;
};

// The principals that share the machine account's keys: "NODE01$@CORP.TEST", "host/node01.corp.test@CORP.TEST", ...
std::vector<std::string> KeytabPrincipals(const std::string& computer, const std::string& domain);
// "CORP.TESThostnode01.corp.test": what a domain mixes into the keys of a machine account.
std::string MachineSalt(const std::string& computer, const std::string& domain);

// A new keytab, not yet in place: the old one's entries without those of the account's principals, then the account's
// keys for AES-256 and AES-128.
class KeytabChange {
 public:
    // Reads the old keytab and makes room for the new one, so that what can go wrong with it does so early.
    explicit KeytabChange(const std::string& path);
    ~KeytabChange();
    KeytabChange(const KeytabChange&) = delete;
    KeytabChange& operator=(const KeytabChange&) = delete;

    void SetKeys(const KeytabAccount& account, const kit::Secret& machineSecret);
    // The file as it will be, for a trial: "FILE:/etc/krb5.keytab.new".
    std::string TrialName() const { return "FILE:" + _replacement.TemporaryPath(); }
    void Commit();
    // After `Commit`: the old contents back, in a file of root's with mode 0600; no file where there was none.
    void Revert() const;

 private:
    std::string _path;
    std::optional<kit::Secret> _before;
    FileReplacement _replacement;
};

// Takes every entry of the realm away, at all key versions; the file goes with the last entry. Does nothing to a keytab
// without any.
void RemoveRealmFromKeytab(const std::string& path, const std::string& realm);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_KEYTAB_H_
