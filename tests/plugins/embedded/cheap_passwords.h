// A password's hash takes 0.1 s by design, and each check of the password as long again. Where that is not what a test
// is about, its users have hashes that take no time: the costs are read back from the hash.

#ifndef NIMBREL_TESTS_PLUGINS_EMBEDDED_CHEAP_PASSWORDS_H_
#define NIMBREL_TESTS_PLUGINS_EMBEDDED_CHEAP_PASSWORDS_H_

#include <sqlite3.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "plugins/embedded/directory/src/secret_hash.h"

namespace nimbrel::embedded::test {

// Gives every user of the directory in that file this password.
inline void MakePasswordsCheap(const std::string& path, const std::string& password) {
    sqlite3* handle = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(handle, sqlite3_close);
    const std::string sql = "UPDATE users SET password_hash = '" + HashSecret(password, HashCost::RandomSecret) + "'";
    if (opened != SQLITE_OK || sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_changes(handle) == 0) {
        throw std::runtime_error(path + ": " + sqlite3_errmsg(handle));
    }
}

}  // namespace nimbrel::embedded::test

#endif  // NIMBREL_TESTS_PLUGINS_EMBEDDED_CHEAP_PASSWORDS_H_
