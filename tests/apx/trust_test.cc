#include "trust.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "support/pass_phrase.h"

namespace nimbrel::apxhttps {
namespace {

constexpr char kThumbprint[] = "00:11:22:33:44:55:66:77:88:99:AA:BB:CC:DD:EE:FF:00:11:22:33";

TEST(TrustTest, NobodyIsAskedForThePassPhraseOfAnEncryptedCertificate) {
    const testing::CountedPrompts prompts;
    const Trust trust(kThumbprint, testing::kEncryptedCertificate);
    EXPECT_TRUE(trust.IsEmpty());
    EXPECT_STREQ(trust.Reason(), "the trusted certificate cannot be read");
    EXPECT_EQ(prompts.Asked(), 0);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(TrustTest, AHandshakeWithoutACertificateIsARefusal) {
    Trust trust(kThumbprint, "");
    EXPECT_EQ(trust.Reason(), nullptr);
    EXPECT_FALSE(trust.HasAccepted());
    EXPECT_STREQ(trust.Reason(), "it has shown no certificate");
}

TEST(TrustTest, AThumbprintOfAnotherFormTrustsNobody) {
    const std::string good = kThumbprint;
    EXPECT_FALSE(Trust(good, "").IsEmpty());
    for (const std::string& text : {std::string(), good.substr(3), good + ":44", good + ":", good.substr(0, 58),
                                    "G" + good.substr(1), good.substr(0, 2) + "-" + good.substr(3)}) {
        EXPECT_TRUE(Trust(text, "").IsEmpty()) << text;
    }
}

}  // namespace
}  // namespace nimbrel::apxhttps
