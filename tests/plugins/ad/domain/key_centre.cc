#include "plugins/ad/domain/key_centre.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <tuple>

#include "plugins/ad/domain/ber.h"

// libkrb5 exports these for its own key distribution centre, without declaring them.
extern "C" {
krb5_error_code decode_krb5_as_req(const krb5_data* code, krb5_kdc_req** request);
krb5_error_code decode_krb5_tgs_req(const krb5_data* code, krb5_kdc_req** request);
krb5_error_code decode_krb5_ap_req(const krb5_data* code, krb5_ap_req** request);
krb5_error_code decode_krb5_enc_data(const krb5_data* code, krb5_enc_data** data);
krb5_error_code krb5_encrypt_tkt_part(krb5_context, const krb5_keyblock*, krb5_ticket*);
krb5_error_code krb5_encode_kdc_rep(krb5_context, krb5_msgtype, const krb5_enc_kdc_rep_part*, int keyIsSubkey,
                                    const krb5_keyblock*, krb5_kdc_rep*, krb5_data** reply);
krb5_error_code krb5_rd_req_decoded_anyflag(krb5_context, krb5_auth_context*, const krb5_ap_req*, krb5_const_principal,
                                            krb5_keytab, krb5_flags*, krb5_ticket**);
void krb5_free_kdc_req(krb5_context, krb5_kdc_req*);
void krb5_free_ap_req(krb5_context, krb5_ap_req*);
void krb5_free_enc_data(krb5_context, krb5_enc_data*);
}

namespace nimbrel::ad::test {
namespace {

constexpr char kLogOnRequest = 0x6a;
constexpr krb5_timestamp kLifetime = 36'000;

void Check(krb5_error_code error, const char* step) {
    if (error != 0) throw std::runtime_error(std::string(step) + ": " + std::to_string(error));
}

krb5_data Data(std::string_view text) {
    krb5_data data = {};
    data.length = static_cast<unsigned>(text.size());
    data.data = const_cast<char*>(text.data());
    return data;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

template <class Thing, class Free>
std::unique_ptr<Thing, Free> Guarded(Thing* thing, Free free) {
    return {thing, free};
}

std::string NameOf(krb5_context context, krb5_const_principal principal) {
    char* name = nullptr;
    constexpr int kPlain = KRB5_PRINCIPAL_UNPARSE_NO_REALM | KRB5_PRINCIPAL_UNPARSE_DISPLAY;
    Check(krb5_unparse_name_flags(context, principal, kPlain, &name), "a name");
    const std::string text = name;
    krb5_free_unparsed_name(context, name);
    return Lower(text);
}

// How to make the key from the password: the one encryption, and the salt.
std::string KeyHint(krb5_enctype encryption, const std::string& salt) {
    return MakeElement(0x30, MakeElement(0x30, MakeElement(0xa0, MakeNumber(0x02, encryption)) +
                                                   MakeElement(0xa1, MakeElement(0x1b, salt))));
}

std::string ProofWanted(krb5_enctype encryption, const std::string& salt) {
    const auto hint = [](int type, const std::string& value) {
        return MakeElement(0x30,
                           MakeElement(0xa1, MakeNumber(0x02, type)) + MakeElement(0xa2, MakeElement(0x04, value)));
    };
    return MakeElement(0x30,
                       hint(KRB5_PADATA_ENC_TIMESTAMP, "") + hint(KRB5_PADATA_ETYPE_INFO2, KeyHint(encryption, salt)));
}

const krb5_pa_data* Find(krb5_pa_data** list, krb5_preauthtype type) {
    for (; list != nullptr && *list != nullptr; ++list) {
        if ((*list)->pa_type == type) return *list;
    }
    return nullptr;
}

krb5_data Content(const krb5_pa_data& one) {
    krb5_data data = {};
    data.length = one.length;
    data.data = reinterpret_cast<char*>(one.contents);
    return data;
}

}  // namespace

KeyCentre::KeyCentre(const std::string& realm, krb5_enctype encryption) : _realm(realm), _encryption(encryption) {
    Check(krb5_init_context(&_context), "a context");
    // Unique in the process, whatever else it has of that kind.
    _keytabName = "MEMORY:" + realm + "." + std::to_string(reinterpret_cast<std::uintptr_t>(this));
    Check(krb5_kt_resolve(_context, _keytabName.c_str(), &_keytab), "a keytab");
    AddService("krbtgt/" + realm);
}

KeyCentre::~KeyCentre() {
    krb5_kt_close(_context, _keytab);
    krb5_free_context(_context);
}

krb5_keyblock KeyCentre::Block(const Key& key) const {
    krb5_keyblock block = {};
    block.enctype = _encryption;
    block.length = static_cast<unsigned>(key.size());
    block.contents = const_cast<unsigned char*>(key.data());
    return block;
}

// libkrb5 takes 4,096 rounds for a key, and the same few passwords are given to hundreds of domains.
KeyCentre::Key KeyCentre::KeyOf(const std::string& secret, const std::string& salt) const {
    static std::mutex lock;
    static std::map<std::tuple<krb5_enctype, std::string, std::string>, Key> made;
    const std::lock_guard guard(lock);
    Key& bytes = made[{_encryption, secret, salt}];
    if (!bytes.empty()) return bytes;
    const krb5_data secretData = Data(secret);
    const krb5_data saltData = Data(salt);
    krb5_keyblock key = {};
    Check(krb5_c_string_to_key(_context, _encryption, &secretData, &saltData, &key), "a key");
    bytes.assign(key.contents, key.contents + key.length);
    krb5_free_keyblock_contents(_context, &key);
    return bytes;
}

void KeyCentre::SetPassword(const std::string& name, const std::string& password, const std::string& salt) {
    const std::lock_guard guard(_lock);
    _accounts[Lower(name)] = {KeyOf(password, salt), salt};
}

void KeyCentre::Remove(const std::string& name) {
    const std::lock_guard guard(_lock);
    _accounts.erase(Lower(name));
}

void KeyCentre::Refuse(const std::string& name, krb5_error_code error) {
    const std::lock_guard guard(_lock);
    _refusals[Lower(name)] = error;
}

void KeyCentre::SendElsewhere(const std::string& name, const std::string& realm) {
    const std::lock_guard guard(_lock);
    _elsewhere[Lower(name)] = realm;
}

void KeyCentre::Keep(const std::string& principal, const Key& key) {
    krb5_keytab_entry entry = {};
    entry.vno = 1;
    entry.key = Block(key);
    Check(krb5_parse_name(_context, principal.c_str(), &entry.principal), "a name");
    Check(krb5_kt_add_entry(_context, _keytab, &entry), "a key");
    krb5_free_principal(_context, entry.principal);
}

void KeyCentre::AddService(const std::string& name) {
    const std::lock_guard guard(_lock);
    krb5_keyblock key = {};
    Check(krb5_c_make_random_key(_context, _encryption, &key), "a key");
    const Key bytes(key.contents, key.contents + key.length);
    krb5_free_keyblock_contents(_context, &key);
    _services[Lower(name)] = bytes;
    Keep(name + "@" + _realm, bytes);
}

void KeyCentre::LetOutTo(const std::string& realm, const std::string& secret) {
    const std::lock_guard guard(_lock);
    _services[Lower("krbtgt/" + realm)] = KeyOf(secret, "trust");
}

void KeyCentre::LetInFrom(const std::string& realm, const std::string& secret) {
    const std::lock_guard guard(_lock);
    Keep("krbtgt/" + _realm + "@" + realm, KeyOf(secret, "trust"));
}

std::string KeyCentre::Answer(std::string_view request) {
    ++requests;
    const std::lock_guard guard(_lock);
    return !request.empty() && request[0] == kLogOnRequest ? LogOn(request) : Ticket(request);
}

std::string KeyCentre::LogOn(std::string_view bytes) {
    const krb5_data code = Data(bytes);
    krb5_kdc_req* decoded = nullptr;
    Check(decode_krb5_as_req(&code, &decoded), "a request");
    const auto request = Guarded(decoded, [this](krb5_kdc_req* one) { krb5_free_kdc_req(_context, one); });
    const std::string name = NameOf(_context, request->client);
    try {
        const Account& account = Prove(*request, name);
        krb5_keyblock key = Block(account.key);
        std::string hint = KeyHint(_encryption, account.salt);
        krb5_pa_data one = {};
        one.pa_type = KRB5_PADATA_ETYPE_INFO2;
        one.length = static_cast<unsigned>(hint.size());
        one.contents = reinterpret_cast<krb5_octet*>(hint.data());
        krb5_pa_data* hints[] = {&one, nullptr};
        std::string reply = Reply(KRB5_AS_REP, *request, request->client, key, false, hints);
        ++logOns;
        return reply;
    } catch (const Refusal& refusal) {
        return ErrorMessage(refusal, request->client, request->server);
    }
}

const KeyCentre::Account& KeyCentre::Prove(const krb5_kdc_req& request, const std::string& name) const {
    if (const auto refusal = _refusals.find(name); refusal != _refusals.end() && refusal->second != 0) {
        throw Refusal{refusal->second};
    }
    if (const auto home = _elsewhere.find(name); home != _elsewhere.end()) {
        throw Refusal{KRB5KDC_ERR_WRONG_REALM, "", home->second};
    }
    const auto account = _accounts.find(name);
    if (account == _accounts.end()) throw Refusal{KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN};
    const krb5_pa_data* proof = Find(request.padata, KRB5_PADATA_ENC_TIMESTAMP);
    if (proof == nullptr && asksForNoProof) return account->second;
    if (proof == nullptr) throw Refusal{KRB5KDC_ERR_PREAUTH_REQUIRED, ProofWanted(_encryption, account->second.salt)};

    const krb5_data code = Content(*proof);
    krb5_enc_data* sealed = nullptr;
    Check(decode_krb5_enc_data(&code, &sealed), "a proof");
    std::string plain(sealed->ciphertext.length, '\0');
    krb5_data output = Data(plain);
    const krb5_keyblock key = Block(account->second.key);
    const bool isGood = krb5_c_decrypt(_context, &key, KRB5_KEYUSAGE_AS_REQ_PA_ENC_TS, nullptr, sealed, &output) == 0;
    krb5_free_enc_data(_context, sealed);
    if (!isGood) throw Refusal{KRB5KDC_ERR_PREAUTH_FAILED, ProofWanted(_encryption, account->second.salt)};
    return account->second;
}

std::string KeyCentre::Ticket(std::string_view bytes) {
    const krb5_data code = Data(bytes);
    krb5_kdc_req* decoded = nullptr;
    Check(decode_krb5_tgs_req(&code, &decoded), "a request");
    const auto request = Guarded(decoded, [this](krb5_kdc_req* one) { krb5_free_kdc_req(_context, one); });

    const krb5_pa_data* header = Find(request->padata, KRB5_PADATA_AP_REQ);
    if (header == nullptr) throw std::runtime_error("a request without a ticket");
    const krb5_data headerCode = Content(*header);
    krb5_ap_req* proof = nullptr;
    Check(decode_krb5_ap_req(&headerCode, &proof), "a ticket");
    const auto proofGuard = Guarded(proof, [this](krb5_ap_req* one) { krb5_free_ap_req(_context, one); });
    krb5_auth_context exchange = nullptr;
    Check(krb5_auth_con_init(_context, &exchange), "an exchange");
    const auto exchangeGuard = Guarded(exchange, [this](krb5_auth_context one) { krb5_auth_con_free(_context, one); });
    krb5_auth_con_setflags(_context, exchange, 0);
    krb5_ticket* ticket = nullptr;
    Check(krb5_rd_req_decoded_anyflag(_context, &exchange, proof, nullptr, _keytab, nullptr, &ticket), "a ticket");
    const auto ticketGuard = Guarded(ticket, [this](krb5_ticket* one) { krb5_free_ticket(_context, one); });
    krb5_keyblock* subkey = nullptr;
    Check(krb5_auth_con_getrecvsubkey(_context, exchange, &subkey), "a key");
    const auto subkeyGuard = Guarded(subkey, [this](krb5_keyblock* one) { krb5_free_keyblock(_context, one); });
    krb5_principal client = ticket->enc_part2->client;
    try {
        const auto refusal = _refusals.find(NameOf(_context, request->server));
        if (refusal != _refusals.end() && refusal->second != 0) throw Refusal{refusal->second};
        return Reply(KRB5_TGS_REP, *request, client, subkey != nullptr ? *subkey : *ticket->enc_part2->session,
                     subkey != nullptr, nullptr);
    } catch (const Refusal& refusal) {
        return ErrorMessage(refusal, client, request->server);
    }
}

std::string KeyCentre::Reply(krb5_msgtype type, const krb5_kdc_req& request, krb5_principal client, krb5_keyblock& key,
                             bool keyIsSubkey, krb5_pa_data** hints) {
    const auto service = _services.find(NameOf(_context, request.server));
    if (service == _services.end()) throw Refusal{KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN};
    krb5_keyblock session = {};
    Check(krb5_c_make_random_key(_context, _encryption, &session), "a key");
    const auto guard = Guarded(&session, [this](krb5_keyblock* one) { krb5_free_keyblock_contents(_context, one); });

    krb5_enc_tkt_part inside = {};
    inside.session = &session;
    inside.client = client;
    inside.times.authtime = inside.times.starttime = static_cast<krb5_timestamp>(std::time(nullptr));
    inside.times.endtime = inside.times.starttime + kLifetime;
    krb5_ticket ticket = {};
    ticket.server = request.server;
    ticket.enc_part2 = &inside;
    const krb5_keyblock serviceKey = Block(service->second);
    Check(krb5_encrypt_tkt_part(_context, &serviceKey, &ticket), "a ticket");
    ticket.enc_part.kvno = 1;

    krb5_last_req_entry noLastRequest = {};
    krb5_last_req_entry* lastRequests[] = {&noLastRequest, nullptr};
    krb5_enc_kdc_rep_part answer = {};
    answer.session = &session;
    answer.last_req = lastRequests;
    answer.nonce = request.nonce;
    answer.times = inside.times;
    answer.server = request.server;
    krb5_kdc_rep reply = {};
    reply.msg_type = type;
    reply.padata = hints;
    reply.client = client;
    reply.ticket = &ticket;
    reply.enc_part.enctype = key.enctype;
    krb5_data* encoded = nullptr;
    const krb5_error_code error =
        krb5_encode_kdc_rep(_context, type, &answer, keyIsSubkey ? 1 : 0, &key, &reply, &encoded);
    krb5_free_data_contents(_context, &ticket.enc_part.ciphertext);
    krb5_free_data_contents(_context, &reply.enc_part.ciphertext);
    Check(error, "a reply");
    std::string bytes(encoded->data, encoded->length);
    krb5_free_data(_context, encoded);
    return bytes;
}

std::string KeyCentre::ErrorMessage(const Refusal& refusal, krb5_principal client, krb5_principal server) const {
    krb5_error message = {};
    message.stime = static_cast<krb5_timestamp>(std::time(nullptr));
    message.error = static_cast<krb5_ui_4>(refusal.code - ERROR_TABLE_BASE_krb5);
    message.server = server;
    message.e_data = Data(refusal.data);
    krb5_principal_data elsewhere = *client;
    elsewhere.realm = Data(refusal.realm);
    message.client = refusal.realm.empty() ? client : &elsewhere;
    krb5_data encoded = {};
    Check(krb5_mk_error(_context, &message, &encoded), "an error");
    std::string bytes(encoded.data, encoded.length);
    krb5_free_data_contents(_context, &encoded);
    return bytes;
}

}  // namespace nimbrel::ad::test
