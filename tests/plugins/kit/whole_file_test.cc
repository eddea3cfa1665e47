#include "pluginkit/whole_file.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/temporary_folder.h"

namespace nimbrel::kit {
namespace {

class WholeFile : public ::testing::Test {
 protected:
    std::string Put(const std::string& bytes) const {
        folder.Put("file", bytes);
        return folder / "file";
    }
    // The reason why it cannot be read; 0 if it can.
    static int Error(const std::string& path, std::size_t most = std::string::npos) {
        errno = 0;
        return ReadWholeFile(path, most) ? 0 : errno;
    }

    const TemporaryFolder folder;
};

TEST_F(WholeFile, IsReadToItsLastByte) {
    for (const std::size_t size : {0, 1, 4095, 4096, 4097, 100000}) {
        std::string bytes(size, '\0');
        if (size > 0) bytes.back() = 'x';
        EXPECT_EQ(ReadWholeFile(Put(bytes)), bytes) << size;
    }
}

TEST_F(WholeFile, ReasonIsTold) {
    EXPECT_EQ(Error(folder / "none"), ENOENT);
    EXPECT_EQ(Error(folder.Path()), EISDIR);
}

TEST_F(WholeFile, LimitIsTheLargestThatIsRead) {
    const std::string path = Put(std::string(5000, 'x'));
    EXPECT_EQ(Error(path, 5000), 0);
    EXPECT_EQ(Error(path, 4999), EFBIG);
    EXPECT_EQ(Error("/dev/zero", 100), EFBIG);
}

}  // namespace
}  // namespace nimbrel::kit
