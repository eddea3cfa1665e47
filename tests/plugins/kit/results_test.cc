// Results for the C border are one allocation each, or one for each text of a domain.

#include "pluginkit/results.h"

#include <gtest/gtest.h>

namespace nimbrel::kit {
namespace {

TEST(Results, TextsAreCopied) {
    char* text = nullptr;
    NimauthRelease release = nullptr;
    ReturnText("", &text, &release);
    EXPECT_STREQ(text, "");
    release(text);
    ReturnText("J\xc3\xb6rg", &text, &release);
    EXPECT_STREQ(text, "J\xc3\xb6rg");
    release(text);
}

TEST(Results, ListsEndWithNull) {
    char** texts = nullptr;
    NimauthRelease release = nullptr;
    ReturnTexts({}, &texts, &release);
    EXPECT_EQ(texts[0], nullptr);
    release(texts);
    ReturnTexts({"a", "", "ccc"}, &texts, &release);
    EXPECT_STREQ(texts[0], "a");
    EXPECT_STREQ(texts[1], "");
    EXPECT_STREQ(texts[2], "ccc");
    EXPECT_EQ(texts[3], nullptr);
    release(texts);
}

TEST(Results, DomainsEndWithNull) {
    NimauthDomainRecord** domains = nullptr;
    NimauthRelease release = nullptr;
    ReturnDomains({}, &domains, &release);
    EXPECT_EQ(domains[0], nullptr);
    release(domains);
    ReturnDomains({{"a.test", "A"}, {"", ""}}, &domains, &release);
    EXPECT_STREQ(domains[0]->dnsName, "a.test");
    EXPECT_STREQ(domains[0]->netbiosName, "A");
    EXPECT_STREQ(domains[1]->dnsName, "");
    EXPECT_EQ(domains[2], nullptr);
    release(domains);
}

TEST(Results, TextsOfADomainAreReleasedEachOnItsOwn) {
    NimauthDomainRecord domain = {};
    NimauthRelease release = nullptr;
    ReturnDomain({"a.test", "A"}, &domain, &release);
    EXPECT_STREQ(domain.dnsName, "a.test");
    EXPECT_STREQ(domain.netbiosName, "A");
    release(domain.netbiosName);
    release(domain.dnsName);
}

}  // namespace
}  // namespace nimbrel::kit
