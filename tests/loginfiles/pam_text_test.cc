#include "tools/loginfiles/pam_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

#include "loginfiles/pam_lines.h"
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

TEST(PamTextTest, EveryLineHasItsNumber) {
    std::vector<int> numbers;
    for (const PamLine& line : ParsePam(kSample)) numbers.push_back(line.number);
    EXPECT_THAT(numbers, ElementsAre(1, 2, 4, 5, 6));
}

TEST(PamTextTest, LinesAreReadAsLibpamReadsThem) {
    for (const testing::PamLinesRow& row : testing::kPamLines) {
        EXPECT_EQ(row.shown, testing::Shown(row.text)) << row.text;
    }
}

TEST(PamTextTest, ModuleIsNamedWithoutItsFolder) {
    for (const char* const module : {"pam_unix.so", "/pam_unix.so", "/lib/security/pam_unix.so"}) {
        EXPECT_EQ("pam_unix.so", ModuleName({.raw = "", .module = module}));
    }
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
    EXPECT_EQ(12, LongestJump("[new_authtok_reqd=12 success=1]"));
    EXPECT_EQ(3, LongestJump("[success = \t3 default=ignore]"));
    EXPECT_EQ(5, LongestJump("[success==5]"));
    EXPECT_EQ(5, LongestJump("=5"));
    EXPECT_EQ(0, LongestJump("[success=-1]"));
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

TEST(PamTextTest, WithoutOtherAnUnknownServiceHasNoRules) {
    EXPECT_TRUE(EffectiveStack({{"login", "auth required a.so\n"}}, "bogus").empty());
}

TEST(PamTextTest, UnreadableLinesAreOfEveryType) {
    const PamFiles files = {{"a", "bogus\n# c\nauth required a.so\naccount include b\n"},
                            {"b", "bogus\n@include c\n"},
                            {"c", "account required c.so\nauth required d.so\n"}};
    std::string shown;
    for (const char* const type : {"auth", "account", ""}) {
        for (const EffectiveRule& rule : EffectiveStack(files, "a", type)) {
            shown += rule.file + ':' + rule.line.module + ' ';
        }
        shown += '/';
    }
    EXPECT_EQ("a: a:a.so /a: b: c:c.so /a: a:a.so b: c:c.so /", shown);
}

TEST(PamTextTest, ModulesOfIncludedFilesAreUsed) {
    EXPECT_TRUE(Uses(Files(), "login", "auth", "d.so"));
    EXPECT_FALSE(Uses(Files(), "login", "account", "d.so"));
    EXPECT_FALSE(Uses(Files(), "login", "auth", "c.so"));
}

TEST(PamTextTest, IncludesAreFollowedThirtyTwoDeep) {
    PamFiles files;
    for (int i = 0; i < 40; ++i) files[std::to_string(i)] = "@include " + std::to_string(i + 1) + '\n';
    const auto rules = EffectiveStack(files, "0");
    ASSERT_EQ(1U, rules.size());
    EXPECT_EQ("33", rules[0].line.module);
}

TEST(PamTextTest, ThousandIncludesAreFollowed) {
    PamFiles files = {{"a", "auth required a.so\n"}, {"login", ""}};
    for (int i = 0; i < 1001; ++i) files["login"] += "@include a\n";
    const auto rules = EffectiveStack(files, "login");
    ASSERT_EQ(1001U, rules.size());
    EXPECT_EQ("a.so", rules[999].line.module);
    EXPECT_EQ("a", rules[1000].line.module);
}

TEST(PamTextTest, FilesOfTheHostComeBeforeThoseOfItsPackages) {
    const TemporaryFolder root;
    const auto write = [&](const std::string& path) {
        std::filesystem::create_directories(std::filesystem::path(root / path).parent_path());
        WriteFile(root / path, path);
    };
    for (const char* const path :
         {"etc/pam.d/login", "etc/pam.d/.hidden", "etc/pam.d/login~", "etc/pam.d/folder/sshd", "usr/lib/pam.d/login",
          "usr/lib/pam.d/cron", "usr/etc/pam.d/cron", "usr/etc/pam.d/su"}) {
        write(path);
    }
    std::filesystem::create_symlink(root / "usr/lib/pam.d/cron", root / "etc/pam.d/at");
    const PamFiles expected = {{"login", "etc/pam.d/login"},
                               {"cron", "usr/lib/pam.d/cron"},
                               {"at", "usr/lib/pam.d/cron"},
                               {"su", "usr/etc/pam.d/su"}};
    EXPECT_EQ(expected, ReadPamFiles(root / ""));
    EXPECT_TRUE(ReadPamFiles(root / "nowhere").empty());
}

TEST(PamTextTest, FilesOfTheFolderHaveOneNameHoweverTheyAreIncluded) {
    const struct {
        const char* module;
        const char* name;
    } rows[] = {{"common", "common"},
                {"/etc/pam.d/common", "common"},
                {"/etc//pam.d/./common", "common"},
                {"../pam.d/common", "common"},
                {"/usr/lib/pam.d/common", "/usr/lib/pam.d/common"},
                {"../agent/rules", "/etc/agent/rules"},
                {"/opt/rules", "/opt/rules"},
                {"/etc/pam.d/sub/common", "/etc/pam.d/sub/common"}};
    for (const auto& row : rows) EXPECT_EQ(row.name, IncludedName(row.module)) << row.module;
}

TEST(PamTextTest, BackupCopiesAreNoServices) {
    const TemporaryFolder root;
    std::filesystem::create_directories(root / "etc/pam.d");
    for (const char* const ending : {".bak",     ".bak-2",  ".orig",    ".old",      ".save",
                                     ".rpmsave", ".rpmnew", ".rpmorig", ".dpkg-old", ".dpkg-dist",
                                     ".ucf-new", ".pacnew", ".pacsave", ".pam-old",  ".pam-config-backup",
                                     ".augsave", "~",       "-l",       ".d",        ".v2",
                                     "bak",      ".au"}) {
        WriteFile(root / ("etc/pam.d/su" + std::string(ending)), "");
    }
    EXPECT_EQ((PamFiles{{"su-l", ""}, {"su.au", ""}, {"su.d", ""}, {"su.v2", ""}, {"subak", ""}}),
              ReadPamFiles(root / ""));
}

TEST(PamTextTest, IncludedFilesAreReadWhereverTheyAre) {
    const TemporaryFolder root;
    const auto write = [&](const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(root / path).parent_path());
        WriteFile(root / path, text);
    };
    write("etc/pam.d/login", "auth include /opt/rules\n@include kept~\n@include /opt\n@include /opt/missing\n");
    write("usr/etc/pam.d/kept~", "auth required kept.so\n");
    write("etc/pam.d/lost~", "");
    write("opt/rules", "auth substack ../more\nauth include /opt/rules\n");
    write("etc/more", "auth required more.so\nauth include login\n");
    const PamFiles files = ReadPamFiles(root / "");
    std::vector<std::string> names;
    for (const auto& [name, text] : files) names.push_back(name);
    EXPECT_THAT(names, ElementsAre("/etc/more", "/opt/rules", "kept~", "login"));
    EXPECT_TRUE(Uses(files, "login", "auth", "more.so"));
    EXPECT_TRUE(Uses(files, "login", "auth", "kept.so"));
}

TEST(PamTextTest, LinksInACircleAreNoFiles) {
    const TemporaryFolder root;
    std::filesystem::create_directories(root / "etc/pam.d");
    WriteFile(root / "etc/pam.d/login", "");
    std::filesystem::create_symlink("loop", root / "etc/pam.d/loop");
    std::filesystem::create_symlink("nowhere", root / "etc/pam.d/lost");
    EXPECT_EQ((PamFiles{{"login", ""}}), ReadPamFiles(root / ""));
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
