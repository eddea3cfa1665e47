// This host's keys in the system's keytab, which is shared with other services and other realms.
//
// Each change writes a whole new file beside the old one and renames it: mode 0600, owned by this process's user (root)
// whatever the old one was, and every entry that is not ours byte for byte as it was. Errors: `AdError` with 5 or 1359; a
// damaged file is never replaced.

#ifndef NIMBREL_AD_KEYTAB_H_
#define NIMBREL_AD_KEYTAB_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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

struct MachineKey {
    std::int32_t encryption = 0;
    kit::Secret bytes;
};
// For AES-256 and for AES-128.
using MachineKeys = std::vector<MachineKey>;

MachineKeys KeysOfSecret(const std::string& computer, const std::string& domain, const kit::Secret& machineSecret);
// Those of the account in a keytab, as libkrb5 names it. Throws `KerberosError` where one is missing.
MachineKeys KeysInKeytab(const std::string& name, const std::string& computer, const std::string& domain);

// A keytab of the account alone, in place at once.
void WriteMachineKeytab(const std::string& path, const KeytabAccount& account, const MachineKeys& keys);
// The machine account whose keys are in these bytes of a keytab; unset if they are not those of one.
std::optional<KeytabAccount> MachineAccountIn(std::string_view keytab);

// The latest version of the machine account's key in the keytab, of those of a kind that a join makes; unset if it has
// none.
std::optional<std::uint32_t> KeyVersionIn(const std::string& path, const std::string& computer,
                                          const std::string& domain);

// A new keytab, not yet in place: the old one's entries without those of the account's principals, then the account's
// keys. Others may add theirs to the old one meanwhile.
class KeytabChange {
 public:
    // Reads the old keytab and makes room for the new one, so that what can go wrong with it does so early.
    explicit KeytabChange(const std::string& path);
    ~KeytabChange();
    KeytabChange(const KeytabChange&) = delete;
    KeytabChange& operator=(const KeytabChange&) = delete;

    void SetKeys(const KeytabAccount& account, MachineKeys keys);
    void SetKeys(const KeytabAccount& account, const kit::Secret& machineSecret);
    // The file as it will be, for a trial: "FILE:/etc/krb5.keytab.new".
    std::string TrialName() const { return "FILE:" + _replacement->TemporaryPath(); }
    // With the entries that the old keytab has by now.
    void Commit();
    // After `Commit`: the old keytab back with its owner and mode, or no file where there was none; with the entries that
    // others have added to the new one. Does nothing where the old one was never replaced.
    void Revert() const;

 private:
    void Write();
    void Merge(const WholeFile& now) const;

    std::string _path;
    std::optional<WholeFile> _before;
    kit::Secret _written;
    KeytabAccount _account;
    MachineKeys _keys;
    std::unique_ptr<FileReplacement> _replacement;
};

// Takes every entry of the realm away, at all key versions; the file goes with the last entry. Does nothing to a keytab
// without any.
void RemoveRealmFromKeytab(const std::string& path, const std::string& realm);
// The same for the keys that the other keytab holds as well, given as its bytes: of the same principals, whatever the
// version. Another tool's keys of these principals stay.
void RemoveKeysFromKeytab(const std::string& path, std::string_view other);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_KEYTAB_H_
