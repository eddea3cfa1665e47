#include "tools/nimauthctl/catalogue.h"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <typeinfo>

#include "authentication/exceptions.h"
#include "support/files.h"

namespace nimbrel::nimauthctl {
namespace {

std::string ClassFor(std::uint32_t status) {
    try {
        authentication::ThrowMappedException(status);
    } catch (const authentication::Exception& error) {
        const std::unique_ptr<char, decltype(&std::free)> name(
            abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, nullptr), &std::free);
        const std::string whole = name.get();
        return whole.substr(whole.rfind(':') + 1);
    }
}

TEST(CatalogueTest, EveryStatusNamesTheClassThatTheLibraryThrows) {
    for (const StatusEntry& entry : StatusEntries()) EXPECT_EQ(ClassFor(entry.status), entry.exception) << entry.status;
}

TEST(CatalogueTest, All47MappedCodesAreThere) {
    int mapped = 0;
    for (std::uint32_t status = 0; status <= 11001; ++status) {
        if (ClassFor(status) == "UnknownException") continue;
        ++mapped;
        EXPECT_NE(nullptr, FindStatus(status)) << status;
    }
    EXPECT_EQ(47, mapped);
}

TEST(CatalogueTest, CommonUnmappedCodesAreThere) {
    constexpr std::array kCommon = {53u, 64u,   1316u, 1722u, 1789u, 1793u, 1907u, 1909u, 2224u,       2453u,
                                    64u, 2692u, 2694u, 2713u, 2732u, 8557u, 145u,  183u,  4294901760u, 4294901761u};
    for (const std::uint32_t status : kCommon) EXPECT_NE(nullptr, FindStatus(status)) << status;
}

template <typename Entries>
void ExpectSorted(const Entries& entries) {
    for (std::size_t at = 1; at < entries.size(); ++at) EXPECT_LT(entries[at - 1].status, entries[at].status);
}

TEST(CatalogueTest, CodesAreInOrderAndUnique) {
    ExpectSorted(StatusEntries());
    ExpectSorted(DirectoryEditEntries());
    ExpectSorted(ProxyEntries());
}

template <typename Entry>
void ExpectAdvice(const Entry& entry) {
    for (const std::string_view text : {entry.cause, entry.remedy}) {
        EXPECT_FALSE(text.empty());
        EXPECT_FALSE(text.ends_with('.')) << text;
        EXPECT_EQ(std::string_view::npos, text.find('\n')) << text;
    }
}

TEST(CatalogueTest, EveryEntryHasCauseAndRemedyInOneLine) {
    for (const StatusEntry& entry : StatusEntries()) ExpectAdvice(entry);
    for (const StatusEntry& entry : DirectoryEditEntries()) ExpectAdvice(entry);
    for (const StatusEntry& entry : ProxyEntries()) ExpectAdvice(entry);
    for (const ClassEntry& entry : ClassEntries()) ExpectAdvice(entry);
}

TEST(CatalogueTest, ClassesAreUnique) {
    std::set<std::pair<std::string_view, std::string_view>> entries;
    for (const ClassEntry& entry : ClassEntries()) {
        EXPECT_TRUE(entries.emplace(entry.exception, entry.text).second) << entry.exception << entry.text;
    }
}

TEST(CatalogueTest, TextTellsTheMeaningsOfAClassApart) {
    for (const ClassEntry& entry : ClassEntries()) {
        EXPECT_EQ(&entry, FindClass(entry.exception, "x " + std::string(entry.text) + " y")) << entry.text;
        EXPECT_EQ(entry.text.empty(), &entry == FindClass(entry.exception)) << entry.text;
    }
}

TEST(CatalogueTest, EveryStatusOfTheProvidersIsExplained) {
    const std::string text = ReadFile(NIMAUTH_SOURCE "/plugins/kit/include/pluginkit/status_error.h");
    const std::regex pattern("kStatus\\w+ = (\\d+);");
    int found = 0;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match, ++found) {
        EXPECT_NE(nullptr, FindStatus(std::stoul((*match)[1]))) << match->str();
    }
    EXPECT_GT(found, 30);
}

TEST(CatalogueTest, EveryStatusOfTheProxyIsExplainedAsTheProxys) {
    const std::regex pattern("constexpr std::uint32_t k\\w+ = (\\d+);");
    int found = 0;
    for (const char* const source : {"/services/apxd/back_end.h", "/plugins/apxhttps/client.h"}) {
        const std::string text = ReadFile(std::string(NIMAUTH_SOURCE) + source);
        for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
            if ((*match)[1] == "0") continue;
            ++found;
            EXPECT_NE(nullptr, FindProxyStatus(std::stoul((*match)[1]))) << match->str();
        }
    }
    EXPECT_GT(found, 10);
}

TEST(CatalogueTest, ProxysStatusEndsAsTheSameStatusOfADomainDoes) {
    for (const StatusEntry& entry : ProxyEntries()) {
        ASSERT_NE(nullptr, FindStatus(entry.status)) << entry.status;
        EXPECT_EQ(FindStatus(entry.status)->exitCode, entry.exitCode) << entry.status;
    }
}

struct ExitCodeCase {
    std::uint32_t status;
    ExitCode exitCode;
};

TEST(CatalogueTest, ExitCodesFollowTheKindOfFailure) {
    constexpr ExitCodeCase kCases[] = {
        {5, ExitCode::Permission},        {1210, ExitCode::HostName},       {1222, ExitCode::Network},
        {1225, ExitCode::Network},        {1311, ExitCode::Network},        {1326, ExitCode::Authentication},
        {1330, ExitCode::Authentication}, {1331, ExitCode::Authentication}, {1355, ExitCode::Network},
        {1793, ExitCode::Authentication}, {1907, ExitCode::Authentication}, {1909, ExitCode::Authentication},
        {2691, ExitCode::OtherState},     {2692, ExitCode::NotJoined},      {10060, ExitCode::Network},
        {1359, ExitCode::Failure}};
    for (const ExitCodeCase& expected : kCases) {
        EXPECT_EQ(expected.exitCode, FindStatus(expected.status)->exitCode) << expected.status;
    }
}

TEST(CatalogueTest, UnknownCodeAndClassAreNotFound) {
    EXPECT_EQ(nullptr, FindStatus(4660));
    EXPECT_EQ(nullptr, FindStatus(0x1'0000'0005));
    EXPECT_EQ(nullptr, FindDirectoryEdit(1326));
    EXPECT_EQ(nullptr, FindClass("NoSuchException"));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
