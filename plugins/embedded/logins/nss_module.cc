// libnss_nimembedded.so.2: the users of the joined embedded domain, and their groups, as accounts of this host. For
// evaluation and rehearsals only. Nothing is listed (getpwent), only looked up. A user whose name a local user or group
// has is not answered at all, whatever stands first in nsswitch.conf.
//
//     passwd:  files nimembedded
//     group:   files nimembedded
//
// Runs in every program that looks up a user. Threads: any; thread cancellation is put off inside.

#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "accounts.h"
#include "embeddeddirectory/directory_error.h"
#include "pluginkit/cancellation.h"

#pragma GCC visibility push(default)

namespace {

using namespace nimbrel::embedded;

// The caller's buffer, filled from the front.
class Buffer {
 public:
    Buffer(char* begin, std::size_t size) : _next(begin), _left(size) {}

    // Null when there is no room left.
    char* Add(const std::string& text) {
        if (text.size() >= _left) return nullptr;
        char* const copy = _next;
        std::memcpy(copy, text.c_str(), text.size() + 1);
        _next += text.size() + 1;
        _left -= text.size() + 1;
        return copy;
    }

    // An empty list of names.
    char** AddEmptyList() {
        const std::size_t gap =
            (alignof(char*) - reinterpret_cast<std::uintptr_t>(_next) % alignof(char*)) % alignof(char*);
        if (_left < gap + sizeof(char*)) return nullptr;
        char** const list = reinterpret_cast<char**>(_next + gap);
        *list = nullptr;
        _next += gap + sizeof(char*);
        _left -= gap + sizeof(char*);
        return list;
    }

 private:
    char* _next;
    std::size_t _left;
};

bool Fill(const Account& account, struct passwd& entry, Buffer buffer) {
    entry.pw_uid = account.uid;
    entry.pw_gid = account.uid;
    entry.pw_name = buffer.Add(account.name);
    entry.pw_passwd = buffer.Add("*");
    entry.pw_gecos = buffer.Add(account.name);
    entry.pw_dir = buffer.Add("/home/" + account.name);
    entry.pw_shell = buffer.Add("/bin/bash");
    return entry.pw_name != nullptr && entry.pw_passwd != nullptr && entry.pw_gecos != nullptr &&
           entry.pw_dir != nullptr && entry.pw_shell != nullptr;
}

bool Fill(const Account& account, struct group& entry, Buffer buffer) {
    entry.gr_gid = account.uid;
    entry.gr_name = buffer.Add(account.name);
    entry.gr_passwd = buffer.Add("*");
    entry.gr_mem = buffer.AddEmptyList();
    return entry.gr_name != nullptr && entry.gr_passwd != nullptr && entry.gr_mem != nullptr;
}

struct Outcome {
    enum nss_status status;
    int error;
};

template <class Key, class Record>
Outcome LookUp(Key key, Record& entry, Buffer buffer) noexcept {
    try {
        const auto account = FindAccount(key, SourceOfNames());
        if (!account || IsTaken(*account)) return {NSS_STATUS_NOTFOUND, ENOENT};
        if (!Fill(*account, entry, buffer)) return {NSS_STATUS_TRYAGAIN, ERANGE};
        return {NSS_STATUS_SUCCESS, 0};
    } catch (const DirectoryError&) {
        return {NSS_STATUS_UNAVAIL, EIO};
    } catch (...) {
        return {NSS_STATUS_UNAVAIL, ENOMEM};
    }
}

// Looks the account up and fills the entry. Nothing is thrown into the C library. It passes its own errno as
// `errorNumber`: that is put back first and written after.
template <class Key, class Record>
enum nss_status Answer(Key key, Record* entry, char* buffer, std::size_t size, int* errorNumber) noexcept {
    const nimbrel::kit::CancellationShield shield;
    const int callersError = errno;
    const Outcome outcome = LookUp(key, *entry, Buffer(buffer, size));
    errno = callersError;
    if (outcome.status != NSS_STATUS_SUCCESS) *errorNumber = outcome.error;
    return outcome.status;
}

}  // namespace

extern "C" {

enum nss_status _nss_nimembedded_getpwnam_r(const char* name, struct passwd* entry, char* buffer, std::size_t size,
                                            int* errorNumber) {
    return Answer(name, entry, buffer, size, errorNumber);
}

enum nss_status _nss_nimembedded_getpwuid_r(uid_t uid, struct passwd* entry, char* buffer, std::size_t size,
                                            int* errorNumber) {
    return Answer(uid, entry, buffer, size, errorNumber);
}

enum nss_status _nss_nimembedded_getgrnam_r(const char* name, struct group* entry, char* buffer, std::size_t size,
                                            int* errorNumber) {
    return Answer(name, entry, buffer, size, errorNumber);
}

enum nss_status _nss_nimembedded_getgrgid_r(gid_t gid, struct group* entry, char* buffer, std::size_t size,
                                            int* errorNumber) {
    return Answer(gid, entry, buffer, size, errorNumber);
}

}  // extern "C"

#pragma GCC visibility pop
