// A settings file on a disk that is full, out of inodes or read-only, all of them real.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

#include "support/temporary_folder.h"
#include "unit/configuration_outcome.h"

namespace {

using nimbrel::authentication::Configuration;
using nimbrel::authentication::IOError;

// A folder on a small memory file system of its own. Needs a private root.
class SmallDisk : public ::testing::Test {
 protected:
    void Mount(const char* options) {
        ASSERT_EQ(mount("tmpfs", _folder.Path("").c_str(), "tmpfs", 0, options), 0) << strerror(errno);
        _mounted = true;
        _folder.Put("file", kOld, 0640);
    }
    ~SmallDisk() override {
        if (_mounted) umount2(_folder.Path("").c_str(), MNT_DETACH);
    }

    // Fills the disk until just so many bytes are free.
    void LeaveFree(std::size_t bytes) const {
        {
            std::ofstream filler(_folder.Path("filler"));
            const std::string block(4096, 'f');
            while (filler.write(block.data(), 4096).flush()) continue;
        }
        const auto size = std::filesystem::file_size(_folder.Path("filler"));
        std::filesystem::resize_file(_folder.Path("filler"), size - bytes);
    }

    // The text of the IOError that writing one setting of this size ends with.
    std::string WriteError(std::size_t valueSize) const {
        Configuration configuration(_folder.Path("file"));
        configuration["new"] = std::string(valueSize, 'n');
        configuration.emplace("next", "1");
        try {
            configuration.Write();
        } catch (const IOError& error) {
            return error.what();
        }
        return "no error";
    }
    std::string Unable(const std::string& what) const { return what + " '" + _folder.Path("file") + "': "; }

    void ExpectOldFile() const {
        EXPECT_EQ(_folder.Get("file"), kOld);
        EXPECT_EQ(_folder.Mode("file"), 0640U);
    }

    static constexpr const char* kOld = "new = \"old\"\n";
    TemporaryFolder _folder;

 private:
    bool _mounted = false;
};

TEST_F(SmallDisk, FullDiskKeepsTheOldFile) {
    Mount("size=64k");
    LeaveFree(0);
    EXPECT_EQ(WriteError(10), Unable("Unable to write") + "No space left on device");
    ExpectOldFile();
}

// The first entry fits, the second does not: a torn file must not replace the whole one.
TEST_F(SmallDisk, DiskThatFillsUpWhileWritingKeepsTheOldFile) {
    Mount("size=64k");
    LeaveFree(4096);
    EXPECT_EQ(WriteError(4096 - sizeof("new = \"\"\n") + 1), Unable("Unable to write") + "No space left on device");
    ExpectOldFile();
}

TEST_F(SmallDisk, EntryThatFitsOnlyInPartKeepsTheOldFile) {
    Mount("size=64k");
    LeaveFree(8192);
    EXPECT_EQ(WriteError(30000), Unable("Unable to write") + "No space left on device");
    ExpectOldFile();
}

TEST_F(SmallDisk, WriteSucceedsAgainOnceThereIsRoom) {
    Mount("size=64k");
    LeaveFree(0);
    EXPECT_NE(WriteError(10), "no error");
    unlink(_folder.Path("filler").c_str());
    EXPECT_EQ(WriteError(10), "no error");
    EXPECT_EQ(_folder.Get("file"), "new = \"nnnnnnnnnn\"\nnext = \"1\"\n");
    EXPECT_EQ(_folder.Mode("file"), 0640U);
}

TEST_F(SmallDisk, DiskWithoutInodesIsReportedAndKeepsTheOldFile) {
    Mount("size=64k,nr_inodes=2");  // the folder and the file
    EXPECT_EQ(WriteError(10), Unable("Unable to create temporary file to write") + "No space left on device");
    ExpectOldFile();
}

TEST_F(SmallDisk, ReadOnlyDiskIsReportedAndKeepsTheOldFile) {
    Mount("size=64k");
    ASSERT_EQ(mount(nullptr, _folder.Path("").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(WriteError(10), Unable("Unable to create temporary file to write") + "Read-only file system");
    ExpectOldFile();
}

}  // namespace
