// Reading a settings file: its size, the pieces it comes in, and the files that cannot be read.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/temporary_folder.h"
#include "unit/configuration_outcome.h"
#include "unit/without_file_capabilities.h"

namespace {

using nimbrel::authentication::Configuration;
using nimbrel::authentication::IOError;

constexpr std::size_t kBuffer = 8128;  // what the reader asks for at once

class ConfigurationRead : public ::testing::Test {
 protected:
    void ExpectAgreement(const std::string& text) const {
        _file.Put(text);
        const Outcome outcome = LibraryOutcome(_file.Path());
        EXPECT_TRUE(outcome == LiteralOutcome(text))
            << text.size() << " bytes beginning " << Shown(text.substr(0, 40)) << ": " << outcome.error;
    }

    // The text of the IOError that reading `path` ends with.
    static std::string ErrorAt(const std::string& path) {
        try {
            const Configuration configuration(path);
        } catch (const IOError& error) {
            return error.what();
        }
        return "no error";
    }
    std::string ErrorOf(const std::string& name) const { return ErrorAt(_folder.Path(name)); }
    std::string Unable(const std::string& what, const std::string& name, const std::string& reason) const {
        return "Unable to " + what + " '" + _folder.Path(name) + "': " + reason;
    }

    TemporaryFolder _folder;

 private:
    MemoryFile _file;
};

std::string Setting(const std::string& key, std::size_t valueSize) {
    return key + " = \"" + std::string(valueSize, 'v') + "\"";
}

// Every byte of a few short lines once lies at the end of what one read brings.
TEST_F(ConfigurationRead, LinesMayBeCutAnywhereByABuffersEnd) {
    const std::string tail = "\n \n\"a\" = ' b '\n\n c\t=\"=\"\r\nlast = 1";
    for (const std::size_t buffer : {kBuffer, 2 * kBuffer, 3 * kBuffer, 8192UL, 65536UL}) {
        for (std::size_t before = 0; before <= tail.size() + 2; ++before) {
            ExpectAgreement(Setting("pad", buffer - 8 - before) + tail);
        }
    }
}

TEST_F(ConfigurationRead, MalformedLineAcrossABuffersEndKeepsItsNumber) {
    for (std::size_t before = 0; before <= 4; ++before) {
        ExpectAgreement(Setting("pad", kBuffer - 8 - before) + "\n\nno\n");
        ExpectAgreement(Setting("pad", kBuffer - 8 - before) + "\na='\n");
    }
}

TEST_F(ConfigurationRead, LinesLongerThanAnyBufferAreReadWhole) {
    for (const std::size_t size :
         {kBuffer - 1, kBuffer, kBuffer + 1, 8191UL, 65535UL, 65536UL, 65537UL, 131072UL, 1048576UL, 5000000UL}) {
        ExpectAgreement("a = 1\n" + Setting("long", size) + "\nb = 2");
        ExpectAgreement("a = 1\n" + Setting("long", size));
        ExpectAgreement(std::string(size, 'k') + " = 1\n");
        ExpectAgreement(std::string(size, ' ') + "\nb = 2\n");
        ExpectAgreement(std::string(size, 'x'));
        ExpectAgreement(std::string(size, '\0') + "=" + std::string(size, '\xff') + "\n");
    }
}

TEST_F(ConfigurationRead, ManyLinesInAnyOrderAreAllKept) {
    std::string ascending;
    std::string descending;
    for (int i = 100000; i < 120000; ++i) {
        ascending += std::to_string(i) + " = \"" + std::to_string(i) + "\"\n";
        descending += std::to_string(220000 - i) + "=" + std::to_string(i) + "\n";
    }
    ExpectAgreement(ascending);
    ExpectAgreement(descending);
    ExpectAgreement(ascending + descending + ascending);
}

// A pipe in packet mode hands out one write per read.
TEST_F(ConfigurationRead, FileMayComeByteByByte) {
    const std::string text = "a = \"1\"\n\n 'b' = \"2\" \nlong = " + std::string(40, 'x');
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_DIRECT | O_CLOEXEC), 0);
    ASSERT_GE(fcntl(ends[1], F_SETPIPE_SZ, 4096 * static_cast<int>(text.size())), 0);
    for (const char& character : text) ASSERT_EQ(write(ends[1], &character, 1), 1);

    close(ends[1]);
    EXPECT_EQ(LibraryOutcome("/proc/self/fd/" + std::to_string(ends[0])), LiteralOutcome(text));
    close(ends[0]);
}

TEST_F(ConfigurationRead, FileThatCannotBeOpenedIsNamedWithTheReason) {
    _folder.Put("file", "a = 1\n");
    ASSERT_EQ(symlink("loop", _folder.Path("loop").c_str()), 0);
    EXPECT_EQ(ErrorOf("missing"), Unable("open", "missing", "No such file or directory"));
    EXPECT_EQ(ErrorOf("file/below"), Unable("open", "file/below", "Not a directory"));
    EXPECT_EQ(ErrorOf("loop"), Unable("open", "loop", "Too many levels of symbolic links"));
    EXPECT_EQ(ErrorOf(std::string(300, 'n')), Unable("open", std::string(300, 'n'), "File name too long"));
    EXPECT_EQ(ErrorAt(""), "Unable to open '': No such file or directory");
}

TEST_F(ConfigurationRead, FileWithoutReadPermissionCannotBeOpened) {
    _folder.Put("secret", "a = 1\n", 0);
    const WithoutFileCapabilities guard;
    EXPECT_EQ(ErrorOf("secret"), Unable("open", "secret", "Permission denied"));
}

TEST_F(ConfigurationRead, DirectoryIsAnErrorAndNotAnEmptyConfiguration) {
    EXPECT_EQ(ErrorOf(""), Unable("read", "", "Is a directory"));
}

TEST_F(ConfigurationRead, DeviceThatFailsToReadIsAnError) {
    EXPECT_EQ(ErrorAt("/proc/self/mem"), "Unable to read '/proc/self/mem': Input/output error");
}

TEST_F(ConfigurationRead, FailedReadLeavesNoDescriptorOpen) {
    const int before = dup(0);
    close(before);
    ErrorOf("missing");
    ErrorOf("");
    _folder.Put("malformed", "x\n");
    LibraryOutcome(_folder.Path("malformed"));
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(ConfigurationRead, PathThroughALinkIsFollowed) {
    _folder.Put("file", "a = 1\n");
    ASSERT_EQ(symlink("file", _folder.Path("link").c_str()), 0);
    EXPECT_EQ(Configuration(_folder.Path("link")).at("a"), "1");
}

}  // namespace
