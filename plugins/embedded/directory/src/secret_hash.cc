#include "secret_hash.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <memory>

#include "embeddeddirectory/directory_error.h"
#include "exit_gate.h"
#include "hex.h"
#include "pluginkit/secret.h"

namespace nimbrel::embedded {
namespace {

constexpr std::size_t kSaltBytes = 16;
constexpr std::size_t kKeyBytes = 32;
constexpr std::uint64_t kMaximumMemory = 256ULL * 1024 * 1024;
constexpr std::uint64_t kOverhead = 1024ULL * 1024;

struct Costs {
    std::uint32_t logarithm;
    std::uint32_t blockSize;
    std::uint32_t parallelism;
};

constexpr Costs kPasswordCosts = {15, 8, 1};
constexpr Costs kRandomSecretCosts = {1, 8, 1};
// What a hash from a file may ask for at most.
constexpr Costs kMaximumCosts = {18, 8, 16};

using Salt = std::array<unsigned char, kSaltBytes>;

struct Key {
    std::array<unsigned char, kKeyBytes> bytes = {};
    Key() = default;
    Key(const Key&) = default;
    Key& operator=(const Key&) = default;
    ~Key() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

struct ContextFree {
    void operator()(OSSL_LIB_CTX* context) const { OSSL_LIB_CTX_free(context); }
    void operator()(EVP_KDF* kdf) const { EVP_KDF_free(kdf); }
    void operator()(EVP_KDF_CTX* context) const { EVP_KDF_CTX_free(context); }
};

[[noreturn]] void FailHash() { throw DirectoryError(kStatusInternalError, "A password hash could not be computed"); }

bool Scrypt(std::string_view secret, const Salt& salt, const Costs& costs, Key& key) {
    const ExitGate gate;
    if (!gate.IsOpen()) {
        return false;
    }
    // A library context of its own: what the process has configured for the shared one may lack this algorithm.
    const std::unique_ptr<OSSL_LIB_CTX, ContextFree> library(OSSL_LIB_CTX_new());
    const std::unique_ptr<EVP_KDF, ContextFree> kdf(library ? EVP_KDF_fetch(library.get(), "SCRYPT", nullptr)
                                                            : nullptr);
    const std::unique_ptr<EVP_KDF_CTX, ContextFree> context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
    if (!context) {
        return false;
    }
    std::uint64_t n = std::uint64_t{1} << costs.logarithm;
    std::uint64_t r = costs.blockSize;
    std::uint64_t p = costs.parallelism;
    std::uint64_t memory = kMaximumMemory + kOverhead;
    // The parameters are only read.
    auto* secretBytes = const_cast<char*>(secret.empty() ? "" : secret.data());
    auto* saltBytes = const_cast<unsigned char*>(salt.data());
    const std::array<OSSL_PARAM, 7> parameters = {
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, secretBytes, secret.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, saltBytes, salt.size()),
        OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_N, &n),
        OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_R, &r),
        OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_P, &p),
        OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_MAXMEM, &memory),
        OSSL_PARAM_construct_end(),
    };
    return EVP_KDF_derive(context.get(), key.bytes.data(), key.bytes.size(), parameters.data()) > 0;
}

Key DeriveKey(std::string_view secret, const Salt& salt, const Costs& costs) {
    Key key;
    if (!Scrypt(secret, salt, costs, key)) {
        FailHash();
    }
    return key;
}

struct ParsedHash {
    Costs costs = {};
    Salt salt = {};
    Key key;
};

// Takes the text up to the next "$" off the front.
std::string_view TakeField(std::string_view& text) {
    const auto end = text.find('$');
    const auto field = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return field;
}

bool TakeNumber(std::string_view& text, std::uint32_t maximum, std::uint32_t& number) {
    const auto field = TakeField(text);
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
    return error == std::errc() && end == field.data() + field.size() && number >= 1 && number <= maximum;
}

ParsedHash Parse(std::string_view text) {
    ParsedHash hash;
    const bool wellFormed = TakeField(text) == "scrypt" &&
                            TakeNumber(text, kMaximumCosts.logarithm, hash.costs.logarithm) &&
                            TakeNumber(text, kMaximumCosts.blockSize, hash.costs.blockSize) &&
                            TakeNumber(text, kMaximumCosts.parallelism, hash.costs.parallelism) &&
                            DecodeHex(TakeField(text), hash.salt.data(), hash.salt.size()) &&
                            DecodeHex(text, hash.key.bytes.data(), hash.key.bytes.size());
    if (!wellFormed) {
        throw DirectoryError(kStatusInternalError, "A stored password hash is damaged");
    }
    return hash;
}

std::string HashWith(std::string_view secret, const Costs& costs, const Salt& salt) {
    const Key key = DeriveKey(secret, salt, costs);
    return "scrypt$" + std::to_string(costs.logarithm) + "$" + std::to_string(costs.blockSize) + "$" +
           std::to_string(costs.parallelism) + "$" + EncodeHex(salt.data(), salt.size()) + "$" +
           EncodeHex(key.bytes.data(), key.bytes.size());
}

}  // namespace

std::string HashSecret(std::string_view secret, HashCost cost) {
    Salt salt = {};
    kit::FillRandom(salt.data(), salt.size());
    return HashWith(secret, cost == HashCost::Password ? kPasswordCosts : kRandomSecretCosts, salt);
}

std::string HashMarkedSecret(std::string_view secret, const std::string& salt) {
    Salt bytes = {};
    if (!DecodeHex(salt, bytes.data(), bytes.size())) {
        throw DirectoryError(kStatusInvalidParameter, "A mark is not 32 hexadecimal digits");
    }
    return HashWith(secret, kRandomSecretCosts, bytes);
}

std::string SaltOf(const std::string& hash) {
    const ParsedHash parsed = Parse(hash);
    return EncodeHex(parsed.salt.data(), parsed.salt.size());
}

bool SecretMatches(std::string_view secret, std::string_view hash) {
    const ParsedHash expected = Parse(hash);
    const Key key = DeriveKey(secret, expected.salt, expected.costs);
    return CRYPTO_memcmp(key.bytes.data(), expected.key.bytes.data(), key.bytes.size()) == 0;
}

void PretendToCheck(std::string_view secret) { DeriveKey(secret, Salt{}, kPasswordCosts); }

}  // namespace nimbrel::embedded
