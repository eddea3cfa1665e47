#include "tools/loginfiles/unified_diff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace nimbrel::logins {
namespace {

std::string Diff(const std::string& before, const std::string& after) { return UnifiedDiff("f", &before, &after); }

TEST(UnifiedDiffTest, EqualTextsHaveNone) {
    for (const char* const text : {"", "a\n", "a", "a\nb\n"}) EXPECT_EQ("", Diff(text, text));
}

TEST(UnifiedDiffTest, ShowsThreeLinesAroundAChange) {
    EXPECT_EQ("--- f\n+++ f\n@@ -2,7 +2,7 @@\n b\n c\n d\n-e\n+E\n f\n g\n h\n",
              Diff("a\nb\nc\nd\ne\nf\ng\nh\ni\n", "a\nb\nc\nd\nE\nf\ng\nh\ni\n"));
}

TEST(UnifiedDiffTest, NearChangesShareAHunkAndFarOnesDoNot) {
    EXPECT_EQ("--- f\n+++ f\n@@ -1,8 +1,8 @@\n-a\n+A\n b\n c\n d\n e\n f\n g\n-h\n+H\n",
              Diff("a\nb\nc\nd\ne\nf\ng\nh\n", "A\nb\nc\nd\ne\nf\ng\nH\n"));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,4 +1,4 @@\n-a\n+A\n b\n c\n d\n@@ -6,4 +6,4 @@\n f\n g\n h\n-i\n+I\n",
              Diff("a\nb\nc\nd\ne\nf\ng\nh\ni\n", "A\nb\nc\nd\ne\nf\ng\nh\nI\n"));
}

TEST(UnifiedDiffTest, MissingFilesAreNamedAndMissingLineEndsTold) {
    const std::string text = "a\nb";
    EXPECT_EQ("--- /dev/null\n+++ f\n@@ -0,0 +1,2 @@\n+a\n+b\n\\ No newline at end of file\n",
              UnifiedDiff("f", nullptr, &text));
    EXPECT_EQ("--- f\n+++ /dev/null\n@@ -1,2 +0,0 @@\n-a\n-b\n\\ No newline at end of file\n",
              UnifiedDiff("f", &text, nullptr));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,2 +1,2 @@\n a\n-b\n\\ No newline at end of file\n+b\n", Diff("a\nb", "a\nb\n"));
}

TEST(UnifiedDiffTest, MostLinesAreKept) {
    EXPECT_EQ("--- f\n+++ f\n@@ -1,5 +1,4 @@\n-x\n-y\n a\n b\n c\n+z\n", Diff("x\ny\na\nb\nc\n", "a\nb\nc\nz\n"));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,4 +1,5 @@\n+x\n+y\n a\n b\n c\n-z\n", Diff("a\nb\nc\nz\n", "x\ny\na\nb\nc\n"));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,3 +1,3 @@\n a\n-b\n c\n+b\n", Diff("a\nb\nc\n", "a\nc\nb\n"));
}

// How many lines two texts of one-letter lines have in common at most, in their order.
std::size_t MostKept(const std::string& a, const std::string& b) {
    if (a.empty() || b.empty()) return 0;
    if (a[0] == b[0]) return 1 + MostKept(a.substr(1), b.substr(1));
    return std::max(MostKept(a.substr(1), b), MostKept(a, b.substr(1)));
}

std::vector<std::string> AllTexts(std::size_t longest) {
    std::vector<std::string> texts = {""};
    for (std::size_t index = 0; texts[index].size() < longest; ++index) {
        for (const char letter : {'a', 'b', 'c'}) texts.push_back(texts[index] + letter);
    }
    return texts;
}

std::string AsLines(const std::string& letters) {
    std::string lines;
    for (const char letter : letters) lines += std::string(1, letter) + '\n';
    return lines;
}

// Texts so short that all that is kept is in sight of a change.
TEST(UnifiedDiffTest, EveryShortTextBecomesEveryOtherAndMostIsKept) {
    const std::vector<std::string> texts = AllTexts(4);
    EXPECT_EQ(121U, texts.size());
    for (const std::string& a : texts) {
        for (const std::string& b : texts) {
            if (a == b) continue;
            const std::string diff = Diff(AsLines(a), AsLines(b));
            std::string before;
            std::string after;
            std::size_t kept = 0;
            for (std::size_t at = diff.find("@@\n") + 3; at < diff.size(); at += 3) {
                kept += diff[at] == ' ' ? 1 : 0;
                if (diff[at] != '+') before += diff[at + 1];
                if (diff[at] != '-') after += diff[at + 1];
            }
            ASSERT_EQ(a, before) << diff;
            ASSERT_EQ(b, after) << diff;
            ASSERT_EQ(MostKept(a, b), kept) << diff;
        }
    }
}

TEST(UnifiedDiffTest, EmptyFilesComeAndGo) {
    const std::string empty;
    EXPECT_EQ("--- /dev/null\n+++ f\n", UnifiedDiff("f", nullptr, &empty));
    EXPECT_EQ("--- f\n+++ /dev/null\n", UnifiedDiff("f", &empty, nullptr));
    EXPECT_EQ("", UnifiedDiff("f", nullptr, nullptr));
    EXPECT_EQ("--- f\n+++ f\n@@ -0,0 +1,1 @@\n+a\n", Diff("", "a\n"));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,1 +0,0 @@\n-a\n", Diff("a\n", ""));
}

TEST(UnifiedDiffTest, ManyHunksStandOneAfterTheOther) {
    std::string before;
    std::string after;
    for (int line = 0; line < 30; ++line) {
        before += std::to_string(line) + '\n';
        after += (line % 10 == 5 ? "x" : "") + std::to_string(line) + '\n';
    }
    EXPECT_EQ(
        "--- f\n+++ f\n@@ -3,7 +3,7 @@\n 2\n 3\n 4\n-5\n+x5\n 6\n 7\n 8\n"
        "@@ -13,7 +13,7 @@\n 12\n 13\n 14\n-15\n+x15\n 16\n 17\n 18\n"
        "@@ -23,7 +23,7 @@\n 22\n 23\n 24\n-25\n+x25\n 26\n 27\n 28\n",
        Diff(before, after));
}

TEST(UnifiedDiffTest, InsertedAndRemovedLinesStandAtTheirPlace) {
    EXPECT_EQ("--- f\n+++ f\n@@ -1,2 +1,3 @@\n a\n+x\n b\n", Diff("a\nb\n", "a\nx\nb\n"));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,3 +1,2 @@\n a\n-x\n b\n", Diff("a\nx\nb\n", "a\nb\n"));
}

}  // namespace
}  // namespace nimbrel::logins
