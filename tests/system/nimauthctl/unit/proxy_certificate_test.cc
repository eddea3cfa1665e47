#include "tools/nimauthctl/proxy_certificate.h"

#include <gtest/gtest.h>

#include "authentication/exceptions.h"
#include "support/pass_phrase.h"

namespace nimbrel::nimauthctl {
namespace {

TEST(ReadProxyCertificateTest, NobodyIsAskedForThePassPhraseOfAnEncryptedCertificate) {
    const testing::CountedPrompts prompts;
    EXPECT_THROW(ReadProxyCertificate(testing::kEncryptedCertificate), authentication::InvalidCertificateException);
    EXPECT_EQ(prompts.Asked(), 0);
}

TEST(SameThumbprintTest, ColonsAndCaseDoNotMatter) {
    EXPECT_TRUE(SameThumbprint("0A:1B:FF", "0a1bff"));
    EXPECT_TRUE(SameThumbprint("", ""));
    EXPECT_FALSE(SameThumbprint("0A:1B:FF", "0A:1B:FE"));
    EXPECT_FALSE(SameThumbprint("0A:1B:FF", "0A:1B"));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
