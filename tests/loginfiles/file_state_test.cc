#include "tools/loginfiles/file_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>

#include "support/temporary_folder.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {
namespace {

class FileStateTest : public ::testing::Test {
 protected:
    void SetUp() override { WriteFile(path, "old\n"); }

    void Put(const FileState& state) {
        Stage(path, 7, state);
        Replace(path, 7, state);
    }

    const TemporaryFolder folder;
    const std::string path = folder / "file";
};

TEST_F(FileStateTest, ReplacementKeepsModeOwnerAndAttributes) {
    ASSERT_EQ(0, chmod(path.c_str(), 0640));
    // An access control list: user 1234 may read. Every file system that holds login files has those.
    const unsigned char list[] = {2, 0,    0,   0,   1,   0,   6,  0, 255, 255, 255, 255, 2,   0,  4,
                                  0, 0xd2, 4,   0,   0,   4,   0,  4, 0,   255, 255, 255, 255, 16, 0,
                                  4, 0,    255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};
    ASSERT_EQ(0, setxattr(path.c_str(), "system.posix_acl_access", list, sizeof list, 0));
    const FileState before = ReadState(path);
    ASSERT_EQ(1U, before.attributes.count("system.posix_acl_access"));
    Put(before.With("new\n"));
    const FileState after = ReadState(path);
    EXPECT_EQ("new\n", after.content);
    EXPECT_EQ(before.attributes, after.attributes);
    EXPECT_EQ(before.mode, after.mode);
    Put(before);
    EXPECT_EQ(before, ReadState(path));
}

// The folder gives user 1234 rights to every new file.
TEST_F(FileStateTest, RightsThatTheFolderGivesToNewFilesAreNotTaken) {
    const unsigned char list[] = {2, 0,    0,   0,   1,   0,   7,  0, 255, 255, 255, 255, 2,   0,  4,
                                  0, 0xd2, 4,   0,   0,   4,   0,  5, 0,   255, 255, 255, 255, 16, 0,
                                  5, 0,    255, 255, 255, 255, 32, 0, 5,   0,   255, 255, 255, 255};
    ASSERT_EQ(0, setxattr(folder.Path().c_str(), "system.posix_acl_default", list, sizeof list, 0));
    const FileState before = ReadState(path);
    ASSERT_TRUE(before.attributes.empty());
    Put(before.With("new\n"));
    EXPECT_EQ(before.With("new\n"), ReadState(path));
    Put(before);
    EXPECT_EQ(before, ReadState(path));
}

TEST_F(FileStateTest, StagedFileIsNotTheFile) {
    Stage(path, 7, ReadState(path).With("new\n"));
    EXPECT_EQ("old\n", ReadFile(path));
    EXPECT_EQ("new\n", ReadFile(StagedName(path, 7)));
    Unstage(path, 7);
    EXPECT_FALSE(std::filesystem::exists(StagedName(path, 7)));
    Unstage(path, 7);
}

TEST_F(FileStateTest, AbsentAndLinkAreStates) {
    Put({});
    EXPECT_EQ(FileState(), ReadState(path));
    FileState link;
    link.kind = FileState::Kind::Symlink;
    link.content = "elsewhere";
    Put(link);
    EXPECT_EQ("elsewhere", std::filesystem::read_symlink(path));
    EXPECT_EQ(FileState::Kind::Symlink, ReadState(path).kind);
}

TEST_F(FileStateTest, LinksAreFollowedToTheirFile) {
    std::filesystem::create_symlink("file", folder / "link");
    std::filesystem::create_symlink("nowhere", folder / "lost");
    EXPECT_EQ(std::filesystem::canonical(path), Resolve(folder / "link"));
    EXPECT_EQ(folder / "missing", Resolve(folder / "missing"));
    EXPECT_THROW(Resolve(folder / "lost"), LoginsError);
}

TEST_F(FileStateTest, FoldersAndHardLinksAreRefused) {
    EXPECT_THROW(ReadState(folder.Path()), LoginsError);
    std::filesystem::create_hard_link(path, folder / "second");
    EXPECT_THROW(ReadState(path), LoginsError);
    EXPECT_THROW(ReadLinkedState(folder.Path()), LoginsError);
    EXPECT_EQ("old\n", ReadLinkedState(path).content);
}

TEST_F(FileStateTest, ContentIsTheSameUnderOtherRights) {
    const FileState state = ReadState(path);
    FileState other = state;
    other.mode = 0600;
    other.owner = 7;
    other.attributes = {{"user.a", "b"}};
    EXPECT_TRUE(SameContent(state, other));
    EXPECT_FALSE(SameContent(state, state.With("new\n")));
    other.kind = FileState::Kind::Symlink;
    EXPECT_FALSE(SameContent(state, other));
}

TEST_F(FileStateTest, WhatGoesBackIsPreparedApart) {
    Stage(path, 7, ReadState(path).With("new\n"));
    Stage(path, 7, ReadState(path), Prepared::Before);
    Replace(path, 7, ReadState(path));
    EXPECT_EQ("new\n", ReadFile(path));
    EXPECT_EQ("old\n", ReadFile(StagedName(path, 7, Prepared::Before)));
    Replace(path, 7, ReadState(path), Prepared::Before);
    EXPECT_EQ("old\n", ReadFile(path));
    Stage(path, 7, ReadState(path), Prepared::Before);
    Unstage(path, 7, Prepared::Before);
    EXPECT_FALSE(std::filesystem::exists(StagedName(path, 7, Prepared::Before)));
}

}  // namespace
}  // namespace nimbrel::logins
