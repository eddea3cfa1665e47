#include "embeddeddirectory/secret.h"

#include <openssl/crypto.h>

#include <array>
#include <utility>

#include "hex.h"
#include "secret_hash.h"

namespace nimbrel::embedded {

Secret::Secret(std::string_view text) : _bytes(text.begin(), text.end()) {}

Secret::Secret(Secret&& other) noexcept : _bytes(std::exchange(other._bytes, {})) {}

Secret& Secret::operator=(Secret&& other) noexcept {
    if (this != &other) {
        Wipe();
        _bytes = std::exchange(other._bytes, {});
    }
    return *this;
}

Secret::~Secret() { Wipe(); }

void Secret::Wipe() noexcept {
    if (!_bytes.empty()) {
        OPENSSL_cleanse(_bytes.data(), _bytes.size());
    }
}

Secret Secret::Random() {
    std::array<unsigned char, 32> random = {};
    FillRandom(random.data(), random.size());
    Secret secret;
    secret._bytes.resize(2 * random.size());
    EncodeHexTo(secret._bytes.data(), random.data(), random.size());
    OPENSSL_cleanse(random.data(), random.size());
    return secret;
}

}  // namespace nimbrel::embedded
