#include "pluginkit/folders.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "pluginkit/status_error.h"
#include "support/temporary_folder.h"
#include "support/umask.h"

namespace nimbrel::kit {
namespace {

using Paths = std::vector<std::string>;

class Folders : public ::testing::Test {
 protected:
    const TemporaryFolder folder;
    const Umask strict{0077};
};

TEST_F(Folders, AreWhereTheFileIs) {
    EXPECT_EQ(FolderOf("/etc/hosts"), "/etc");
    EXPECT_EQ(FolderOf("/hosts"), "/");
    EXPECT_EQ(FolderOf("hosts"), ".");
    EXPECT_EQ(FolderOf("a/b/"), "a/b");
}

TEST_F(Folders, HaveTheirModeUnderAnyUmask) {
    EXPECT_TRUE(MakeFolder(folder / "made", 0711));
    EXPECT_EQ(folder.Mode("made"), 0711U);
}

TEST_F(Folders, ThatAreThereStayAsTheyAre) {
    ASSERT_TRUE(MakeFolder(folder / "made", 0700));
    EXPECT_FALSE(MakeFolder(folder / "made", 0755));
    EXPECT_EQ(MakeFolders(folder / "made", 0755), Paths());
    EXPECT_EQ(folder.Mode("made"), 0700U);
}

TEST_F(Folders, ComeWithTheirParents) {
    EXPECT_EQ(MakeFolders(folder / "a/b/c", 0700), (Paths{folder / "a", folder / "a/b", folder / "a/b/c"}));
    EXPECT_EQ(folder.Mode("a"), 0755U);
    EXPECT_EQ(folder.Mode("a/b"), 0755U);
    EXPECT_EQ(folder.Mode("a/b/c"), 0700U);
}

TEST_F(Folders, ThatCannotBeMadeAreTold) {
    folder.Put("file", "");
    try {
        MakeFolder(folder / "file/below", 0755);
        FAIL();
    } catch (const StatusError& error) {
        EXPECT_EQ(error.Status(), 1359U);
        EXPECT_EQ(error.what(), "Unable to make '" + (folder / "file/below") + "': Not a directory");
    }
    EXPECT_THROW(SyncFolder(folder / "missing"), StatusError);
}

}  // namespace
}  // namespace nimbrel::kit
