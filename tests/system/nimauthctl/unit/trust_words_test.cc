#include "tools/nimauthctl/trust_words.h"

#include <gtest/gtest.h>

namespace nimbrel::nimauthctl {
namespace {

TEST(TrustWordsTest, StatesOfTheEmbeddedProviderAreTold) {
    EXPECT_EQ("healthy", TrustStateWords("embedded", 1));
    EXPECT_EQ("the machine account is disabled", TrustStateWords("embedded", 4));
    EXPECT_EQ("not a member", TrustStateWords("embedded", 7));
}

TEST(TrustWordsTest, StatesOfActiveDirectoryAreTold) {
    EXPECT_EQ("healthy", TrustStateWords("ad", 1));
    EXPECT_EQ("the clocks of host and domain are too far apart", TrustStateWords("ad", 10));
    EXPECT_EQ("no answer in time", TrustStateWords("ad", 2));
    EXPECT_EQ("as the provider defines it", TrustStateWords("ad", 11));
}

TEST(TrustWordsTest, RelationshipsOfActiveDirectoryHaveDirectionAndKind) {
    EXPECT_EQ("own domain", TrustRelationshipWords("ad", 1));
    EXPECT_EQ("users of either can log in at the other", TrustRelationshipWords("ad", 5));
    EXPECT_EQ("users of either can log in at the other, forest trust", TrustRelationshipWords("ad", 21));
    EXPECT_EQ("its users can log in here, Kerberos realm", TrustRelationshipWords("ad", 51));
    EXPECT_EQ("the provider cannot tell", TrustRelationshipWords("ad", 0));
    EXPECT_EQ("as the provider defines it", TrustRelationshipWords("ad", 69));
    EXPECT_EQ("as the provider defines it", TrustRelationshipWords("ad", -11));
}

TEST(TrustWordsTest, OtherProvidersKeepTheirSecrets) {
    EXPECT_EQ("as the provider defines it", TrustStateWords("other", 1));
    EXPECT_EQ("as the provider defines it", TrustRelationshipWords("other", 5));
    EXPECT_EQ("as the provider defines it", TrustStateWords("", 1));
}

TEST(TrustWordsTest, TheLibrarysOwnValuesAreToldForEveryProvider) {
    for (const char* const provider : {"embedded", "other", ""}) {
        EXPECT_EQ("no answer in time", TrustStateWords(provider, 2));
        EXPECT_EQ("the provider cannot tell", TrustStateWords(provider, 0));
        EXPECT_EQ("the provider cannot tell", TrustRelationshipWords(provider, 0));
        EXPECT_EQ("nothing known of this domain", TrustRelationshipWords(provider, 6));
    }
    EXPECT_EQ("not a member, or nothing known yet", TrustStateWords("other", 7));
}

TEST(TrustWordsTest, ValuesThatNobodyDefinedAreNotGuessed) {
    EXPECT_EQ("as the provider defines it", TrustStateWords("embedded", -1));
    EXPECT_EQ("as the provider defines it", TrustRelationshipWords("embedded", 2));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
