// What any C++ library costs that links libcrypto and SQLite: it has one function of each, and one of the language.

#include <openssl/crypto.h>
#include <sqlite3.h>

#include <iostream>

extern "C" __attribute__((visibility("default"))) void ShowVersions() {
    std::cout << OpenSSL_version(OPENSSL_VERSION) << ' ' << sqlite3_libversion() << '\n';
}
