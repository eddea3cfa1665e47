#include "keytab.h"

#include <krb5/krb5.h>

#include <algorithm>
#include <array>
#include <ctime>
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

class OpenKeytab {
 public:
    OpenKeytab(krb5_context context, const std::string& name) : _context(context) {
        Check(krb5_kt_resolve(_context, name.c_str(), &_keytab), "open '" + name + "'");
    }
    OpenKeytab(const OpenKeytab&) = delete;
    OpenKeytab& operator=(const OpenKeytab&) = delete;
    ~OpenKeytab() { krb5_kt_close(_context, _keytab); }

    void Add(krb5_keytab_entry& entry) const { Check(krb5_kt_add_entry(_context, _keytab, &entry), "write a keytab"); }

    // Calls `take` with each entry.
    void ForEach(const std::function<void(krb5_keytab_entry&)>& take) const {
        krb5_kt_cursor cursor = nullptr;
        Check(krb5_kt_start_seq_get(_context, _keytab, &cursor), "read the keytab");
        krb5_error_code error = 0;
        std::exception_ptr thrown;
        krb5_keytab_entry entry = {};
        while (!thrown && (error = krb5_kt_next_entry(_context, _keytab, &entry, &cursor)) == 0) {
            try {
                take(entry);
            } catch (...) {
                thrown = std::current_exception();  // the cursor has to be closed first
            }
            krb5_kt_free_entry(_context, &entry);
        }
        krb5_kt_end_seq_get(_context, _keytab, &cursor);
        if (thrown) {
            std::rethrow_exception(thrown);
        }
        Check(error == KRB5_KT_END ? 0 : error, "read the keytab");
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

std::string NameOf(krb5_context context, krb5_const_principal principal) {
    char* text = nullptr;
    CheckKerberos(context, krb5_unparse_name(context, principal, &text), "read the keytab");
    const std::string name = text;
    krb5_free_unparsed_name(context, text);
    return name;
}

void AddKey(krb5_context context, const OpenKeytab& keytab, const std::string& principal, std::uint32_t version,
            const krb5_keyblock& key) {
    krb5_keytab_entry entry = {};
    CheckKerberos(context, krb5_parse_name(context, principal.c_str(), &entry.principal), "write a keytab");
    const std::unique_ptr<std::remove_pointer_t<krb5_principal>, std::function<void(krb5_principal)>> guard(
        entry.principal, [context](krb5_principal one) { krb5_free_principal(context, one); });
    entry.vno = version;
    entry.timestamp = static_cast<krb5_timestamp>(std::time(nullptr));
    entry.key = key;
    keytab.Add(entry);
}

// Copies the entries that are wanted; returns how many.
std::size_t CopyEntries(krb5_context context, const std::string& from, const OpenKeytab& to,
                        const std::function<bool(const std::string& principal)>& isWanted) {
    std::size_t count = 0;
    OpenKeytab(context, "FILE:" + from).ForEach([&](krb5_keytab_entry& entry) {
        if (isWanted(NameOf(context, entry.principal))) {
            to.Add(entry);
            ++count;
        }
    });
    return count;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
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

KeytabChange::KeytabChange(const std::string& path) : _path(path), _before(ReadWholeFile(path)), _replacement(path) {
    _replacement.Write(kEmptyKeytab);
}

KeytabChange::~KeytabChange() = default;

void KeytabChange::SetKeys(const KeytabAccount& account, const Secret& machineSecret) {
    const KerberosContext context = MakeKerberosContext(UpperCase(account.domain));
    const OpenKeytab keytab(context.get(), "WR" + TrialName());
    const auto principals = KeytabPrincipals(account.computer, account.domain);
    if (_before) {
        CopyEntries(context.get(), _path, keytab, [&](const std::string& principal) {
            return std::find(principals.begin(), principals.end(), principal) == principals.end();
        });
    }
    std::string salt = MachineSalt(account.computer, account.domain);
    krb5_data saltData = {0, static_cast<unsigned>(salt.size()), salt.data()};
    krb5_data secretData = {0, static_cast<unsigned>(machineSecret.View().size()),
                            const_cast<char*>(machineSecret.View().data())};
    for (const krb5_enctype encryption : kEncryptions) {
        krb5_keyblock key = {};
        CheckKerberos(context.get(), krb5_c_string_to_key(context.get(), encryption, &secretData, &saltData, &key),
                      "make a key");
        const std::unique_ptr<krb5_keyblock, std::function<void(krb5_keyblock*)>> guard(
            &key, [&](krb5_keyblock* one) { krb5_free_keyblock_contents(context.get(), one); });
        for (const auto& principal : principals) {
            AddKey(context.get(), keytab, principal, account.keyVersion, key);
        }
    }
}

void KeytabChange::Commit() { _replacement.Commit(); }

void KeytabChange::Revert() const { RestoreFile(_path, _before); }

void RemoveRealmFromKeytab(const std::string& path, const std::string& realm) {
    const auto before = ReadWholeFile(path);
    if (!before) {
        return;
    }
    const KerberosContext context = MakeKerberosContext(realm);
    FileReplacement replacement(path);
    replacement.Write(kEmptyKeytab);
    std::size_t removed = 0;
    const std::size_t kept =
        CopyEntries(context.get(), path, OpenKeytab(context.get(), "WRFILE:" + replacement.TemporaryPath()),
                    [&](const std::string& principal) {
                        const bool isOurs = EndsWith(principal, "@" + realm);
                        removed += isOurs ? 1 : 0;
                        return !isOurs;
                    });
    if (removed > 0 && kept == 0) {
        RemoveFile(path);
    } else if (removed > 0) {
        replacement.Commit();
    }
}

}  // namespace nimbrel::ad
