#include <gtest/gtest.h>

#include "sandbox.h"
#include "secret_hash.h"

namespace nimbrel::embedded::test {
namespace {

TEST(SecretHash, MatchesItsOwnSecretOnly) {
    const std::string hash = HashSecret("secret", HashCost::RandomSecret);
    EXPECT_TRUE(SecretMatches("secret", hash));
    EXPECT_FALSE(SecretMatches("Secret", hash));
    EXPECT_FALSE(SecretMatches("secret ", hash));
    EXPECT_FALSE(SecretMatches("", hash));
}

TEST(SecretHash, SaltMakesEqualSecretsLookDifferent) {
    EXPECT_NE(HashSecret("secret", HashCost::RandomSecret), HashSecret("secret", HashCost::RandomSecret));
}

TEST(SecretHash, PasswordsGetTheSlowHash) {
    const std::string hash = HashSecret(kPassword, HashCost::Password);
    EXPECT_EQ(hash.rfind("scrypt$15$8$1$", 0), 0U) << hash;
    EXPECT_TRUE(SecretMatches(kPassword, hash));
}

// The key was computed with Python's hashlib.scrypt.
TEST(SecretHash, AgreesWithAnotherImplementation) {
    EXPECT_TRUE(SecretMatches("pleaseletmein",
                              "scrypt$14$8$1$000102030405060708090a0b0c0d0e0f$"
                              "531604fe738df33ae62cd2b994bfe3f573ed28c0d9e5547f875b6413189ce59a"));
}

TEST(SecretHash, DamagedTextsAreRefused) {
    const std::string salt(32, '0');
    const std::string key(64, '0');
    for (const std::string& damaged :
         {std::string(), std::string("scrypt"), "crypt$1$8$1$" + salt + "$" + key, "scrypt$0$8$1$" + salt + "$" + key,
          "scrypt$40$8$1$" + salt + "$" + key, "scrypt$1$999$1$" + salt + "$" + key,
          "scrypt$1$8$99$" + salt + "$" + key, "scrypt$1$8$1$zz$" + key, "scrypt$1$8$1$" + salt + "$" + key + "0",
          "scrypt$1x$8$1$" + salt + "$" + key, "scrypt$1$8$1$" + salt + "$" + key.substr(1) + "g"}) {
        EXPECT_EQ(StatusOf([&] { SecretMatches("secret", damaged); }), 1359U) << damaged;
    }
}

}  // namespace
}  // namespace nimbrel::embedded::test
