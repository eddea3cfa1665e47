// The pages about the service's configuration against its reader: each tells every key, and no other.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace nimbrel::apxd::test {
namespace {

using Keys = std::set<std::string>;

// What the group of `pattern` takes from each match, without the manual page's escapes.
Keys Found(const std::string& file, const std::string& pattern) {
    std::ifstream stream(NIMAUTH_SOURCE + file);
    const std::string text = {std::istreambuf_iterator<char>(stream), {}};
    const std::regex regex(pattern);
    Keys keys;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        keys.insert(std::regex_replace((*match)[1].str(), std::regex("\\\\"), ""));
    }
    return keys;
}

Keys KeysOfReader() { return Found("/services/apxd/config.cc", R"(\n        \{"([a-z-]+)\", \{)"); }

TEST(ApxdPages, TheReadersKeysAreFound) { EXPECT_THAT(KeysOfReader(), testing::SizeIs(testing::Ge(22))); }

TEST(ApxdPages, TheManualPageTellsEveryKey) {
    EXPECT_EQ(Found("/services/apxd/apxd.8", R"(\\fB([a-z\\-]+)\\fR = )"), KeysOfReader());
}

TEST(ApxdPages, TheFormatsPageTellsEveryKey) {
    Keys keys = Found("/docs/formats/apxd-configuration.md", R"(\n\| `([a-z-]+)`)");
    keys.merge(Found("/docs/formats/apxd-configuration.md", R"(\n\| `[a-z-]+`, `([a-z-]+)`)"));
    EXPECT_EQ(keys, KeysOfReader());
}

}  // namespace
}  // namespace nimbrel::apxd::test
