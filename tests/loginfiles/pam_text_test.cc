#include "tools/loginfiles/pam_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

#include "support/temporary_folder.h"

namespace nimbrel::logins {
namespace {

using ::testing::ElementsAre;

constexpr char kSample[] =
    "# who may log in\n"
    "auth     [success=1 default=ignore]  pam_unix.so nullok \\\n"
    "          try_first_pass\n"
    "-session optional  pam_systemd.so     # may be missing\n"
    "account  include   system-auth\n"
    "@include common-session\n";

TEST(PamTextTest, SampleIsReadAsToldInTheHeader) {
    const std::vector<PamLine> lines = ParsePam(kSample);
    ASSERT_EQ(5U, lines.size());
    EXPECT_EQ(PamLine::Kind::Nothing, lines[0].kind);
    EXPECT_EQ("[success=1 default=ignore]", lines[1].control);
    EXPECT_THAT(lines[1].arguments, ElementsAre("nullok", "try_first_pass"));
    EXPECT_TRUE(lines[2].optional);
    EXPECT_EQ("session", lines[2].type);
    EXPECT_TRUE(lines[2].arguments.empty());
    EXPECT_EQ(4, lines[2].number);
    EXPECT_TRUE(lines[3].IncludesAnother());
    EXPECT_EQ(PamLine::Kind::Include, lines[4].kind);
    EXPECT_EQ("common-session", lines[4].module);
}

TEST(PamTextTest, UnreadableLinesAreToldApart) {
    for (const char* const text : {"auth\n", "auth required\n", "bogus required x.so\n", "@include\n"}) {
        EXPECT_EQ(PamLine::Kind::Unreadable, ParsePam(text).front().kind) << text;
    }
}

TEST(PamTextTest, RawLinesTogetherAreTheFile) {
    int files = 0;
    for (const auto& item : std::filesystem::directory_iterator(NIMAUTH_LOGIN_FILES "/pam")) {
        const std::string text = ReadFile(item.path());
        std::string together;
        for (const PamLine& line : ParsePam(text)) together += line.raw;
        EXPECT_EQ(text, together) << item.path();
        ++files;
    }
    EXPECT_GT(files, 50);
}

TEST(PamTextTest, JumpsAreCounted) {
    EXPECT_EQ(0, LongestJump("required"));
    EXPECT_EQ(0, LongestJump("[success=ok default=bad]"));
    EXPECT_EQ(12, LongestJump("[success=1 new_authtok_reqd=12 default=ignore]"));
    EXPECT_EQ(std::numeric_limits<int>::max(), LongestJump("[success=99999999999999999999]"));
}

PamFiles Files() {
    return {{"login", "auth required a.so\n@include common\nsession include deep\nauth substack deep\n"},
            {"common", "auth required b.so\naccount required c.so\n"},
            {"deep", "auth required d.so\nsession required e.so\n"},
            {"circle", "auth include circle\n"},
            {"lost", "auth include nowhere\n"},
            {"other", "auth required pam_deny.so\n"}};
}

std::vector<std::string> Modules(const std::string& service, std::string_view type) {
    std::vector<std::string> modules;
    for (const EffectiveRule& rule : EffectiveStack(Files(), service, type)) modules.push_back(rule.line.module);
    return modules;
}

TEST(PamTextTest, IncludedFilesArePutInPlace) {
    EXPECT_THAT(Modules("login", "auth"), ElementsAre("a.so", "b.so", "d.so"));
    EXPECT_THAT(Modules("login", "account"), ElementsAre("c.so"));
    EXPECT_THAT(Modules("login", "session"), ElementsAre("e.so"));
    EXPECT_THAT(Modules("login", ""), ElementsAre("a.so", "b.so", "c.so", "e.so", "d.so"));
}

TEST(PamTextTest, UnknownServicesAreOther) { EXPECT_THAT(Modules("bogus", "auth"), ElementsAre("pam_deny.so")); }

TEST(PamTextTest, CirclesAndMissingFilesEnd) {
    EXPECT_THAT(Modules("circle", "auth"), ElementsAre("circle"));
    EXPECT_THAT(Modules("lost", "auth"), ElementsAre("nowhere"));
}

TEST(PamTextTest, FilesThatNameThemselvesTwiceEndSoon) {
    const PamFiles twice = {{"a", "auth include b\nauth include b\n"}, {"b", "@include a\n@include a\n"}};
    EXPECT_EQ(EffectiveStack(twice, "a").size(), 4U) << "the two names of the circle, from each of two places";
}

// Each file takes the next one in twice: a line of the last one would stand there two to the thirtieth times.
TEST(PamTextTest, FilesThatMultiplyEachOtherAreBounded) {
    PamFiles files;
    for (int i = 0; i < 30; ++i) {
        const std::string next = "@include " + std::to_string(i + 1) + '\n';
        files[std::to_string(i)] = next + next;
    }
    files["30"] = "auth required a.so\n";
    EXPECT_LE(EffectiveStack(files, "0").size(), 2000U);
}

}  // namespace
}  // namespace nimbrel::logins
