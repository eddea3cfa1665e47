#include "tools/loginfiles/unified_diff.h"

#include <gtest/gtest.h>

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

TEST(UnifiedDiffTest, InsertedAndRemovedLinesStandAtTheirPlace) {
    EXPECT_EQ("--- f\n+++ f\n@@ -1,2 +1,3 @@\n a\n+x\n b\n", Diff("a\nb\n", "a\nx\nb\n"));
    EXPECT_EQ("--- f\n+++ f\n@@ -1,3 +1,2 @@\n a\n-x\n b\n", Diff("a\nx\nb\n", "a\nb\n"));
}

}  // namespace
}  // namespace nimbrel::logins
