#include "keytab.h"

#include <krb5/krb5.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <memory>

#include "addirectory/ad_error.h"
#include "kerberos.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

// Version 2 of the format; the entries follow.
constexpr std::string_view kEmptyKeytab("\x05\x02", 2);
constexpr std::array<krb5_enctype, 2> kEncryptions = {ENCTYPE_AES256_CTS_HMAC_SHA1_96, ENCTYPE_AES128_CTS_HMAC_SHA1_96};

class KeytabPrincipal {
 public:
    KeytabPrincipal(krb5_context context, const std::string& name) : _context(context) {
        CheckKerberos(context, krb5_parse_name(context, name.c_str(), &_principal), "write a keytab");
    }
    KeytabPrincipal(const KeytabPrincipal&) = delete;
    KeytabPrincipal& operator=(const KeytabPrincipal&) = delete;
    ~KeytabPrincipal() { krb5_free_principal(_context, _principal); }

    krb5_principal Get() const { return _principal; }

 private:
    krb5_context _context;
    krb5_principal _principal = nullptr;
};

class OpenKeytab {
 public:
    OpenKeytab(krb5_context context, const std::string& name) : _context(context) {
        Check(krb5_kt_resolve(_context, name.c_str(), &_keytab), "open '" + name + "'");
    }
    OpenKeytab(const OpenKeytab&) = delete;
    OpenKeytab& operator=(const OpenKeytab&) = delete;
    ~OpenKeytab() { krb5_kt_close(_context, _keytab); }

    void Add(krb5_keytab_entry& entry) const { Check(krb5_kt_add_entry(_context, _keytab, &entry), "write a keytab"); }

    kit::Secret Key(const std::string& name, krb5_enctype encryption) const {
        const KeytabPrincipal principal(_context, name);
        krb5_keytab_entry entry = {};
        CheckKerberos(_context, krb5_kt_get_entry(_context, _keytab, principal.Get(), 0, encryption, &entry),
                      "read a key of '" + name + "'");
        const std::unique_ptr<krb5_keytab_entry, std::function<void(krb5_keytab_entry*)>> guard(
            &entry, [this](krb5_keytab_entry* one) { krb5_free_keytab_entry_contents(_context, one); });
        return kit::Secret({reinterpret_cast<const char*>(entry.key.contents), entry.key.length});
    }

 private:
    void Check(krb5_error_code error, const std::string& action) const {
        try {
            CheckKerberos(_context, error, action);
        } catch (const KerberosError& failure) {
            throw AdError(error == EACCES ? kStatusAccessDenied : kStatusInternalError, failure.what());
        }
    }

    krb5_context _context;
    krb5_keytab _keytab = nullptr;
};

[[noreturn]] void FailDamaged() { throw AdError(kStatusInternalError, "The keytab is damaged or of another format"); }

// Reads a keytab's bytes: big-endian numbers, and texts after their length. What would lie outside is damage.
class KeytabReader {
 public:
    explicit KeytabReader(std::string_view bytes) : _rest(bytes) {}

    bool AtEnd() const { return _rest.empty(); }
    std::size_t Left() const { return _rest.size(); }

    std::string_view Bytes(std::size_t size) {
        if (size > _rest.size()) {
            FailDamaged();
        }
        const auto bytes = _rest.substr(0, size);
        _rest.remove_prefix(size);
        return bytes;
    }

    std::uint32_t Number(std::size_t size) {
        std::uint32_t value = 0;
        for (const char byte : Bytes(size)) {
            value = value << 8 | static_cast<unsigned char>(byte);
        }
        return value;
    }

    std::string_view Text() { return Bytes(Number(2)); }

 private:
    std::string_view _rest;
};

// Whose key an entry is: "host/node01.corp.test" of "CORP.TEST". A name's parts that hold a "/" or "@" themselves are told
// apart by `parts`.
struct EntryPrincipal {
    std::string name;
    std::uint32_t parts = 0;
    std::string realm;

    bool operator==(const EntryPrincipal&) const = default;
};

EntryPrincipal TakePrincipal(KeytabReader& reader) {
    EntryPrincipal principal;
    principal.parts = reader.Number(2);
    principal.realm = reader.Text();
    for (std::uint32_t i = 0; i < principal.parts; ++i) {
        principal.name += i == 0 ? "" : "/";
        principal.name += reader.Text();
    }
    return principal;
}

// The principal and its key, whenever it was written.
struct EntryKey {
    EntryPrincipal principal;
    std::uint32_t version = 0;
    std::uint32_t encryption = 0;
    std::string_view bytes;

    bool IsSameKey(const EntryKey& other) const {  // at whatever version
        return principal == other.principal && encryption == other.encryption && bytes == other.bytes;
    }
};

// Of an entry as it stands in the file.
EntryKey KeyOfEntry(std::string_view entry) {
    KeytabReader reader(entry);
    EntryKey key;
    reader.Bytes(4);  // the length
    key.principal = TakePrincipal(reader);
    reader.Bytes(4 + 4);  // the name's type, the time
    key.version = reader.Number(1);
    key.encryption = reader.Number(2);
    key.bytes = reader.Text();
    if (const std::uint32_t whole = reader.Left() < 4 ? 0 : reader.Number(4)) {
        key.version = whole;  // the number before is its last byte
    }
    return key;
}

bool IsOfAJoin(std::uint32_t encryption) {
    return std::any_of(kEncryptions.begin(), kEncryptions.end(),
                       [&](krb5_enctype ours) { return static_cast<std::uint32_t>(ours) == encryption; });
}

// Whether it is one of ours: "host/node01.corp.test@CORP.TEST".
bool IsPrincipal(const EntryPrincipal& principal, const std::string& text) {
    const auto parts = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '/')) + 1;
    const std::size_t at = text.rfind('@');
    return principal.parts == parts && principal.name == text.substr(0, at) && principal.realm == text.substr(at + 1);
}

// Calls `take` with each entry as it stands in the file, its length included, and its principal. Entries that were
// deleted in place have a negative length; a length of 0 ends the file.
void ForEachEntry(std::string_view file,
                  const std::function<void(std::string_view entry, const EntryPrincipal& principal)>& take) {
    if (file.empty()) {
        return;
    }
    KeytabReader reader(file);
    if (reader.Bytes(kEmptyKeytab.size()) != kEmptyKeytab) {
        FailDamaged();
    }
    std::string_view from = file.substr(kEmptyKeytab.size());
    while (!reader.AtEnd()) {
        const auto length = static_cast<std::int32_t>(reader.Number(4));
        const auto size = static_cast<std::size_t>(std::abs(std::int64_t{length}));
        const auto entry = reader.Bytes(size);
        if (length > 0) {
            KeytabReader content(entry);
            take(from.substr(0, 4 + size), TakePrincipal(content));
        } else if (length == 0) {
            return;
        }
        from.remove_prefix(4 + size);
    }
}

// A text in the form that libkrb5 takes. It reads it only.
krb5_data DataOf(std::string_view text) {
    krb5_data data = {};
    data.length = static_cast<unsigned>(text.size());
    data.data = const_cast<char*>(text.data());
    return data;
}

bool IsOneOf(const std::vector<std::string>& principals, const EntryPrincipal& principal) {
    return std::any_of(principals.begin(), principals.end(),
                       [&](const std::string& one) { return IsPrincipal(principal, one); });
}

void WriteEntries(FileReplacement& to, std::string_view keytab,
                  const std::function<bool(const EntryPrincipal& principal)>& isChosen) {
    ForEachEntry(keytab, [&](std::string_view entry, const EntryPrincipal& principal) {
        if (isChosen(principal)) {
            to.Write(entry);
        }
    });
}

// An empty file has no entries either.
std::string_view Contents(const std::optional<WholeFile>& file) { return file ? file->contents.View() : ""; }

void AddKey(krb5_context context, const OpenKeytab& keytab, const std::string& name, std::uint32_t version,
            const krb5_keyblock& key) {
    const KeytabPrincipal principal(context, name);
    krb5_keytab_entry entry = {};
    entry.principal = principal.Get();
    entry.vno = version;
    entry.key = key;
    keytab.Add(entry);
}

// A key in the form that libkrb5 takes. It reads it only.
krb5_keyblock BlockOf(const MachineKey& key) {
    krb5_keyblock block = {};
    block.enctype = key.encryption;
    block.length = static_cast<unsigned>(key.bytes.View().size());
    block.contents = reinterpret_cast<krb5_octet*>(const_cast<char*>(key.bytes.View().data()));
    return block;
}

// `name` is one of libkrb5's: "FILE:/etc/krb5.keytab.new".
void AddKeys(const std::string& name, const KeytabAccount& account, const MachineKeys& keys) {
    const KerberosContext context = MakeKerberosContext(UpperCase(account.domain));
    const OpenKeytab keytab(context.get(), "WR" + name);
    for (const auto& key : keys) {
        for (const auto& principal : KeytabPrincipals(account.computer, account.domain)) {
            AddKey(context.get(), keytab, principal, account.keyVersion, BlockOf(key));
        }
    }
}

using IsGoing = std::function<bool(std::string_view entry, const EntryPrincipal& principal)>;

void RemoveEntries(const std::string& path, const IsGoing& isGoing) {
    const auto before = ReadWholeFile(path);
    bool isAnyGoing = false;
    bool isAnyStaying = false;
    ForEachEntry(Contents(before), [&](std::string_view entry, const EntryPrincipal& principal) {
        (isGoing(entry, principal) ? isAnyGoing : isAnyStaying) = true;
    });
    if (isAnyGoing && !isAnyStaying) {
        RemoveFile(path);
    }
    if (!isAnyGoing || !isAnyStaying) {
        return;
    }
    FileReplacement replacement(path);
    replacement.Write(kEmptyKeytab);
    ForEachEntry(Contents(before), [&](std::string_view entry, const EntryPrincipal& principal) {
        if (!isGoing(entry, principal)) {
            replacement.Write(entry);
        }
    });
    replacement.Commit();
}

}  // namespace

std::vector<std::string> KeytabPrincipals(const std::string& computer, const std::string& domain) {
    const std::string realm = "@" + UpperCase(domain);
    const std::string full = HostName(computer, domain);
    return {computer + "$" + realm, "host/" + full + realm, "host/" + computer + realm,
            "RestrictedKrbHost/" + full + realm, "RestrictedKrbHost/" + computer + realm};
}

std::string MachineSalt(const std::string& computer, const std::string& domain) {
    return UpperCase(domain) + "host" + HostName(computer, domain);
}

MachineKeys KeysOfSecret(const std::string& computer, const std::string& domain, const kit::Secret& machineSecret) {
    const KerberosContext context = MakeKerberosContext(UpperCase(domain));
    const std::string salt = MachineSalt(computer, domain);
    const krb5_data saltData = DataOf(salt);
    const krb5_data secretData = DataOf(machineSecret.View());
    MachineKeys keys;
    for (const krb5_enctype encryption : kEncryptions) {
        krb5_keyblock key = {};
        CheckKerberos(context.get(), krb5_c_string_to_key(context.get(), encryption, &secretData, &saltData, &key),
                      "make a key");
        const std::unique_ptr<krb5_keyblock, std::function<void(krb5_keyblock*)>> guard(
            &key, [&](krb5_keyblock* one) { krb5_free_keyblock_contents(context.get(), one); });
        keys.push_back({encryption, kit::Secret({reinterpret_cast<const char*>(key.contents), key.length})});
    }
    return keys;
}

MachineKeys KeysInKeytab(const std::string& name, const std::string& computer, const std::string& domain) {
    const KerberosContext context = MakeKerberosContext(UpperCase(domain));
    const OpenKeytab keytab(context.get(), name);
    MachineKeys keys;
    for (const krb5_enctype encryption : kEncryptions) {
        keys.push_back({encryption, keytab.Key(KeytabPrincipals(computer, domain).front(), encryption)});
    }
    return keys;
}

KeytabChange::KeytabChange(const std::string& path)
    : _path(path), _before(ReadWholeFile(path)), _replacement(std::make_unique<FileReplacement>(path)) {
    _replacement->Write(kEmptyKeytab);
}

KeytabChange::~KeytabChange() = default;

void KeytabChange::SetKeys(const KeytabAccount& account, const kit::Secret& machineSecret) {
    SetKeys(account, KeysOfSecret(account.computer, account.domain, machineSecret));
}

void KeytabChange::SetKeys(const KeytabAccount& account, MachineKeys keys) {
    _account = account;
    _keys = std::move(keys);
    Write();
}

void KeytabChange::Write() {
    const auto principals = KeytabPrincipals(_account.computer, _account.domain);
    WriteEntries(*_replacement, Contents(_before),
                 [&](const auto& principal) { return !IsOneOf(principals, principal); });
    AddKeys(TrialName(), _account, _keys);
}

void KeytabChange::Commit() {
    auto now = ReadWholeFile(_path);
    if (Contents(now) != Contents(_before)) {
        _before = std::move(now);
        _replacement.reset();  // first, as the name is the same
        _replacement = std::make_unique<FileReplacement>(_path);
        _replacement->Write(kEmptyKeytab);
        Write();
    }
    if (auto written = ReadWholeFile(_replacement->TemporaryPath())) {
        _written = std::move(written->contents);
    }
    _replacement->Commit();
}

void KeytabChange::Revert() const {
    if (!_replacement || !_replacement->IsInPlace()) {
        return;
    }
    const auto now = ReadWholeFile(_path);
    if (Contents(now) == Contents(_before)) {
        return;
    }
    if (!now || now->contents.View() == _written.View()) {
        RestoreFile(_path, _before);
    } else {
        Merge(*now);
    }
}

// The others' entries of now, and those of this account of before.
void KeytabChange::Merge(const WholeFile& now) const {
    const auto principals = KeytabPrincipals(_account.computer, _account.domain);
    FileReplacement merged(_path);
    merged.Write(kEmptyKeytab);
    WriteEntries(merged, now.contents.View(), [&](const auto& principal) { return !IsOneOf(principals, principal); });
    WriteEntries(merged, Contents(_before), [&](const auto& principal) { return IsOneOf(principals, principal); });
    merged.SetAttributesOf(_before ? *_before : now);
    merged.Commit();
}

void WriteMachineKeytab(const std::string& path, const KeytabAccount& account, const MachineKeys& keys) {
    FileReplacement replacement(path);
    replacement.Write(kEmptyKeytab);
    AddKeys("FILE:" + replacement.TemporaryPath(), account, keys);
    replacement.Commit();
}

std::optional<KeytabAccount> MachineAccountIn(std::string_view keytab) {
    std::optional<KeytabAccount> found;
    ForEachEntry(keytab, [&](std::string_view, const EntryPrincipal& principal) {
        if (!found && principal.parts == 1 && principal.name.size() > 1 && principal.name.back() == '$') {
            found = KeytabAccount{principal.name.substr(0, principal.name.size() - 1), LowerCase(principal.realm)};
        }
    });
    return found;
}

std::optional<std::uint32_t> KeyVersionIn(const std::string& path, const std::string& computer,
                                          const std::string& domain) {
    const auto file = ReadWholeFile(path);
    std::optional<std::uint32_t> latest;
    ForEachEntry(Contents(file), [&](std::string_view entry, const EntryPrincipal& principal) {
        if (!IsPrincipal(principal, KeytabPrincipals(computer, domain).front())) {
            return;
        }
        const EntryKey key = KeyOfEntry(entry);
        if (IsOfAJoin(key.encryption)) {
            latest = std::max(latest.value_or(0), key.version);
        }
    });
    return latest;
}

void RemoveRealmFromKeytab(const std::string& path, const std::string& realm) {
    RemoveEntries(path, [&](std::string_view, const auto& principal) { return principal.realm == realm; });
}

void RemoveKeysFromKeytab(const std::string& path, std::string_view other) {
    std::vector<EntryKey> keys;
    ForEachEntry(other, [&](std::string_view entry, const auto&) { keys.push_back(KeyOfEntry(entry)); });
    const auto isOneOfThem = [&](std::string_view entry, const EntryPrincipal& principal) {
        return std::any_of(keys.begin(), keys.end(), [&](const EntryKey& key) {
            return key.principal == principal && key.IsSameKey(KeyOfEntry(entry));
        });
    };
    RemoveEntries(path, isOneOfThem);
}

}  // namespace nimbrel::ad
