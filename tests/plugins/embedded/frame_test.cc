// The frame around the operations: exceptions become statuses, results are one allocation each.

#include <gtest/gtest.h>

#include <new>

#include "call.h"
#include "results.h"
#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

template <class Exception>
std::uint32_t Translate(const Exception& exception) {
    try {
        throw exception;
    } catch (...) {
        return StatusOfCurrentException();
    }
}

TEST(Frame, EveryExceptionHasAStatus) {
    EXPECT_EQ(Translate(DirectoryError(1326, "refused")), 1326U);
    EXPECT_EQ(Translate(std::bad_alloc()), 8U);
    EXPECT_EQ(Translate(std::runtime_error("anything")), 1359U);
    EXPECT_EQ(Translate(42), 1359U);
}

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
    ReturnDomains({{"a.test", "A", ""}, {"", "", ""}}, &domains, &release);
    EXPECT_STREQ(domains[0]->dnsName, "a.test");
    EXPECT_STREQ(domains[0]->netbiosName, "A");
    EXPECT_STREQ(domains[1]->dnsName, "");
    EXPECT_EQ(domains[2], nullptr);
    release(domains);
}

TEST(Results, TextsOfADomainAreReleasedEachOnItsOwn) {
    NimauthDomainRecord domain = {};
    NimauthRelease release = nullptr;
    ReturnDomain({"a.test", "A", "S-1-5-21-1-2-3"}, &domain, &release);
    EXPECT_STREQ(domain.dnsName, "a.test");
    EXPECT_STREQ(domain.netbiosName, "A");
    release(domain.netbiosName);
    release(domain.dnsName);
}

}  // namespace
}  // namespace nimbrel::embedded::test
