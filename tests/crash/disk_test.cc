// The disk that power cuts are tried on.

#include "crash/disk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "support/temporary_folder.h"

namespace nimbrel::crash {
namespace {

namespace fs = std::filesystem;

class Disks : public ::testing::Test {
 protected:
    Disks() {
        folder.Put("file", "old", 0640);
        fs::create_directory(folder / "inner");
        folder.Put("inner/deep", "old", 0600);
        fs::create_symlink("file", folder / "link");
    }

    void Synchronise(Disk& disk, const std::string& path) const {
        const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        disk.Synchronise(getpid(), descriptor);
        close(descriptor);
    }

    TemporaryFolder folder;
};

TEST_F(Disks, WhatWasThereBeforeStays) {
    const Disk disk({folder.Path()});
    disk.CutPower(Loss::Both);
    EXPECT_EQ(folder.Get("file"), "old");
    EXPECT_EQ(folder.Mode("file"), 0640U);
    EXPECT_EQ(folder.Get("inner/deep"), "old");
    EXPECT_EQ(fs::read_symlink(folder / "link"), "file");
    EXPECT_EQ(folder.Names(), (std::vector<std::string>{"file", "inner", "link"}));
}

TEST_F(Disks, BytesAreLostWithoutTheFilesSynchronisation) {
    Disk disk({folder.Path()});
    folder.Put("file", "new");
    folder.Put("made", "new");
    disk.CutPower(Loss::Bytes);
    EXPECT_EQ(folder.Get("file"), "old");
    EXPECT_EQ(folder.Get("made"), "");
}

TEST_F(Disks, SynchronisedBytesStayAndLaterOnesDoNot) {
    Disk disk({folder.Path()});
    folder.Put("file", "new");
    Synchronise(disk, folder / "file");
    folder.Put("file", "newer");
    disk.CutPower(Loss::Both);
    EXPECT_EQ(folder.Get("file"), "new");
}

TEST_F(Disks, NamesAreLostWithoutTheFoldersSynchronisation) {
    const Disk disk({folder.Path()});
    folder.Put("made", "new");
    fs::remove(folder / "file");
    fs::rename(folder / "inner", folder / "renamed");
    fs::remove(folder / "link");
    disk.CutPower(Loss::Names);
    EXPECT_EQ(folder.Names(), (std::vector<std::string>{"file", "inner", "link"}));
    EXPECT_EQ(folder.Get("file"), "old");
    EXPECT_EQ(folder.Mode("file"), 0640U);
    EXPECT_EQ(folder.Get("inner/deep"), "old");
    EXPECT_EQ(fs::read_symlink(folder / "link"), "file");
}

TEST_F(Disks, ReplacementWithoutSynchronisationLeavesAnEmptyFile) {
    Disk disk({folder.Path()});
    folder.Put("file.new", "new");
    fs::rename(folder / "file.new", folder / "file");
    Synchronise(disk, folder.Path());
    disk.CutPower(Loss::Both);
    EXPECT_EQ(folder.Get("file"), "");
    EXPECT_EQ(folder.Names(), (std::vector<std::string>{"file", "inner", "link"}));
}

TEST_F(Disks, DurableReplacementStays) {
    Disk disk({folder.Path()});
    folder.Put("file.new", "new");
    Synchronise(disk, folder / "file.new");
    fs::rename(folder / "file.new", folder / "file");
    Synchronise(disk, folder.Path());
    disk.CutPower(Loss::Both);
    EXPECT_EQ(folder.Get("file"), "new");
}

TEST_F(Disks, FolderWhoseParentWasNotSynchronisedIsGoneWithAllThatIsInIt) {
    Disk disk({folder.Path()});
    fs::create_directory(folder / "made");
    folder.Put("made/file", "new");
    Synchronise(disk, folder / "made/file");
    Synchronise(disk, folder / "made");
    disk.CutPower(Loss::Names);
    EXPECT_FALSE(fs::exists(folder / "made"));
}

TEST_F(Disks, FolderThatWasNotSynchronisedItselfIsEmpty) {
    Disk disk({folder.Path()});
    fs::create_directory(folder / "made");
    folder.Put("made/file", "new");
    Synchronise(disk, folder.Path());
    disk.CutPower(Loss::Names);
    EXPECT_TRUE(fs::is_empty(folder / "made"));
}

TEST_F(Disks, SecondNamesStaySecondNames) {
    Disk disk({folder.Path()});
    fs::create_hard_link(folder / "file", folder / "second");
    Synchronise(disk, folder.Path());
    fs::remove(folder / "file");
    disk.CutPower(Loss::Names);
    EXPECT_EQ(StatusOfFile(folder / "file").st_ino, StatusOfFile(folder / "second").st_ino);
    EXPECT_EQ(folder.Get("second"), "old");
}

}  // namespace
}  // namespace nimbrel::crash
