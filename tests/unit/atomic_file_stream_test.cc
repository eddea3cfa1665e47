// Replacing a file in one step, on real files.

#include "authentication/atomic_file_stream.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <regex>
#include <thread>
#include <type_traits>

#include "authentication/exceptions.h"
#include "support/temporary_folder.h"
#include "unit/without_file_capabilities.h"

namespace {

using nimbrel::authentication::AtomicFileStream;
using nimbrel::authentication::IOError;

using Names = std::vector<std::string>;

class AtomicFile : public ::testing::Test {
 protected:
    void Replace(const std::string& name, const std::string& text) const {
        AtomicFileStream stream(_folder.Path(name).c_str(), std::ios_base::out);
        stream << text;
        stream.Commit();
    }

    // The text of the IOError that `action` ends with.
    static std::string ErrorOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const IOError& error) {
            return error.what();
        }
        return "no error";
    }
    std::string OpenErrorOf(const std::string& path) const {
        return ErrorOf([&] { AtomicFileStream(path.c_str(), std::ios_base::out); });
    }
    static std::string CannotCreate(const std::string& path, const std::string& reason) {
        return "Unable to create temporary file to write '" + path + "': " + reason;
    }

    // The one file that lies beside `name`, "" if there is not exactly one.
    std::string TemporaryOf(const std::string& name) const {
        const std::regex form(name + "\\.[A-Za-z0-9]{6}");
        std::string found;
        for (const std::string& candidate : _folder.Names()) {
            if (!std::regex_match(candidate, form)) continue;
            if (!found.empty()) return "";
            found = candidate;
        }
        return found;
    }

    TemporaryFolder _folder;
};

TEST_F(AtomicFile, ModeOfTheTargetIsKept) {
    const mode_t old = umask(077);
    for (const mode_t mode : {0644U, 0600U, 0640U, 0666U, 0755U, 0777U, 0444U, 0000U, 04755U, 02755U, 01644U}) {
        _folder.Put("file", "old", mode);
        Replace("file", "new");
        EXPECT_EQ(_folder.Mode("file"), mode);
        unlink(_folder.Path("file").c_str());
    }
    umask(old);
}

TEST_F(AtomicFile, NewTargetIsForItsOwnerAloneWhateverTheMask) {
    for (const mode_t mask : {0000U, 0022U, 0077U}) {
        const mode_t old = umask(mask);
        Replace("file", "new");
        umask(old);
        EXPECT_EQ(_folder.Mode("file"), 0600U) << mask;
        EXPECT_EQ(_folder.Get("file"), "new");
        unlink(_folder.Path("file").c_str());
    }
}

TEST_F(AtomicFile, ContentsAreReplacedWholeAndNothingStaysBeside) {
    _folder.Put("file", "a much longer old text");
    Replace("file", "new");
    EXPECT_EQ(_folder.Get("file"), "new");
    Replace("file", "");
    EXPECT_EQ(_folder.Get("file"), "");
    EXPECT_EQ(_folder.Names(), Names{"file"});
}

TEST_F(AtomicFile, TargetIsUntouchedBeforeTheCommit) {
    _folder.Put("file", "old");
    AtomicFileStream stream(_folder.Path("file").c_str(), std::ios_base::out);
    stream << "new" << std::flush;
    EXPECT_EQ(_folder.Get("file"), "old");
    EXPECT_EQ(_folder.Get(TemporaryOf("file")), "new");
    EXPECT_EQ(_folder.Mode(TemporaryOf("file")), 0600U);
}

TEST_F(AtomicFile, AbandonedStreamLeavesTheTargetAndItsTemporaryFile) {
    _folder.Put("file", "old");
    { AtomicFileStream(_folder.Path("file").c_str(), std::ios_base::out) << "half"; }
    EXPECT_EQ(_folder.Get("file"), "old");
    EXPECT_EQ(_folder.Get(TemporaryOf("file")), "half");
    EXPECT_EQ(_folder.Names().size(), 2U);
}

TEST_F(AtomicFile, StreamIsClosedAndGoodAfterTheCommit) {
    AtomicFileStream stream(_folder.Path("file").c_str(), std::ios_base::out);
    stream << "text";
    stream.Commit();
    EXPECT_TRUE(stream.good());
    EXPECT_FALSE(stream.is_open());
}

TEST_F(AtomicFile, FolderThatDoesNotExistIsReported) {
    const std::string path = _folder.Path("none/file");
    EXPECT_EQ(OpenErrorOf(path), CannotCreate(path, "No such file or directory"));
}

TEST_F(AtomicFile, FileInTheFoldersPlaceIsReported) {
    _folder.Put("file", "");
    EXPECT_EQ(OpenErrorOf(_folder.Path("file/below")), CannotCreate(_folder.Path("file/below"), "Not a directory"));
}

TEST_F(AtomicFile, FolderWithoutWritePermissionIsReported) {
    ASSERT_EQ(chmod(_folder.Path("").c_str(), 0500), 0);
    {
        const WithoutFileCapabilities guard;
        EXPECT_EQ(OpenErrorOf(_folder.Path("file")), CannotCreate(_folder.Path("file"), "Permission denied"));
    }
    ASSERT_EQ(chmod(_folder.Path("").c_str(), 0700), 0);
}

TEST_F(AtomicFile, NameTooLongForTheTemporaryOneIsReported) {
    const std::string path = _folder.Path(std::string(250, 'n'));  // 255 is the most, and seven are added
    EXPECT_EQ(OpenErrorOf(path), CannotCreate(path, "File name too long"));
}

// The temporary name is made in 4096 bytes, its end included.
TEST_F(AtomicFile, PathOfUpTo4088BytesLeavesRoomForTheTemporaryName) {
    std::string path = _folder.Path("");
    const auto padded = [&path](std::size_t size) { return path + std::string(size - path.size() - 4, '/') + "file"; };
    AtomicFileStream stream(padded(4088).c_str(), std::ios_base::out);
    stream.Commit();
    EXPECT_EQ(_folder.Names(), Names{"file"});
    EXPECT_EQ(OpenErrorOf(padded(4089)), CannotCreate(padded(4089), "Invalid argument"));
    EXPECT_EQ(OpenErrorOf(padded(4096)), CannotCreate(padded(4096), "Invalid argument"));
    EXPECT_EQ(OpenErrorOf(padded(100000)), CannotCreate(padded(100000), "Invalid argument"));
    EXPECT_EQ(_folder.Names(), Names{"file"});
}

// The template is cut at 4095 bytes, and what is left is one if the path has the six letters there itself.
TEST_F(AtomicFile, LongerPathWithTheSixLettersAtTheCutIsNotRefusedByTheirMaker) {
    const std::string folder = _folder.Path("");
    const std::string path = folder + std::string(4089 - folder.size(), '/') + "XXXXXX";
    AtomicFileStream stream(path.c_str(), std::ios_base::out);
    stream.Commit();
    EXPECT_EQ(_folder.Names(), Names{"XXXXXX"});

    const std::string longer = path + "rest";
    AtomicFileStream unplaceable(longer.c_str(), std::ios_base::out);
    EXPECT_NE(ErrorOf([&] { unplaceable.Commit(); }).find("File name too long"), std::string::npos);
}

TEST_F(AtomicFile, RelativePathIsTakenFromTheWorkingDirectory) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(_folder.Path(""));
    AtomicFileStream stream("file", std::ios_base::out);
    stream << "here";
    stream.Commit();
    std::filesystem::current_path(before);
    EXPECT_EQ(_folder.Get("file"), "here");
}

TEST_F(AtomicFile, DirectoryInTheTargetsPlaceStaysAndSoDoesTheTemporaryFile) {
    std::filesystem::create_directory(_folder.Path("file"));
    AtomicFileStream stream(_folder.Path("file").c_str(), std::ios_base::out);
    stream << "new";
    const std::string error = ErrorOf([&] { stream.Commit(); });
    EXPECT_EQ(error, "Unable to rename '" + _folder.Path(TemporaryOf("file")) + "' to '" + _folder.Path("file") +
                         "': Is a directory");
    EXPECT_EQ(_folder.Get(TemporaryOf("file")), "new");
    EXPECT_TRUE(std::filesystem::is_directory(_folder.Path("file")));
    EXPECT_FALSE(stream.is_open());
}

TEST_F(AtomicFile, TemporaryFileThatIsGoneIsReportedAndTheTargetStays) {
    _folder.Put("file", "old");
    AtomicFileStream stream(_folder.Path("file").c_str(), std::ios_base::out);
    const std::string temporary = _folder.Path(TemporaryOf("file"));
    unlink(temporary.c_str());
    EXPECT_EQ(ErrorOf([&] { stream.Commit(); }),
              "Unable to rename '" + temporary + "' to '" + _folder.Path("file") + "': No such file or directory");
    EXPECT_EQ(_folder.Get("file"), "old");
}

TEST_F(AtomicFile, LinkInTheTargetsPlaceIsReplacedAndGivesTheModeOfItsFile) {
    _folder.Put("real", "old", 0640);
    ASSERT_EQ(symlink("real", _folder.Path("file").c_str()), 0);
    Replace("file", "new");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(_folder.Path("file"))));
    EXPECT_EQ(_folder.Mode("file"), 0640U);
    EXPECT_EQ(_folder.Get("real"), "old");
}

TEST_F(AtomicFile, LinkToNothingCountsAsNoTarget) {
    ASSERT_EQ(symlink("nothing", _folder.Path("file").c_str()), 0);
    Replace("file", "new");
    EXPECT_EQ(_folder.Names(), Names{"file"});
    EXPECT_EQ(_folder.Mode("file"), 0600U);
}

TEST_F(AtomicFile, LaterCommitOfTwoWritersWins) {
    AtomicFileStream first(_folder.Path("file").c_str(), std::ios_base::out);
    AtomicFileStream second(_folder.Path("file").c_str(), std::ios_base::out);
    EXPECT_EQ(_folder.Names().size(), 2U) << "each writes a file of its own";
    first << "first";
    second << "second";
    second.Commit();
    EXPECT_EQ(_folder.Get("file"), "second");
    first.Commit();
    EXPECT_EQ(_folder.Get("file"), "first");
    EXPECT_EQ(_folder.Names(), Names{"file"});
}

TEST_F(AtomicFile, TornFileIsNeverVisible) {
    constexpr std::size_t kSize = 200000;
    Replace("file", std::string(kSize, 'a'));
    std::atomic<bool> stop = false;
    std::string torn;
    std::thread reader([&] {
        while (!stop) {
            const std::string seen = _folder.Get("file");
            if (seen != std::string(kSize, seen.empty() ? ' ' : seen[0])) torn = seen;
        }
    });
    for (int i = 0; i < 300; ++i) Replace("file", std::string(kSize, static_cast<char>('a' + i % 26)));
    stop = true;
    reader.join();
    EXPECT_EQ(torn.size(), 0U);
}

TEST_F(AtomicFile, ConcurrentWritersLeaveOneWholeFile) {
    const auto writer = [this](char letter) {
        for (int i = 0; i < 50; ++i) Replace("file", std::string(50000, letter));
    };
    std::thread other(writer, 'a');
    writer('b');
    other.join();
    const std::string text = _folder.Get("file");
    EXPECT_EQ(text, std::string(50000, text.at(0)));
    EXPECT_EQ(_folder.Names(), Names{"file"});
}

TEST_F(AtomicFile, ModeAlwaysIncludesOutput) {
    for (const std::ios_base::openmode mode :
         {std::ios_base::openmode{}, std::ios_base::in, std::ios_base::app, std::ios_base::trunc, std::ios_base::binary,
          std::ios_base::in | std::ios_base::out | std::ios_base::ate}) {
        AtomicFileStream stream(_folder.Path("file").c_str(), mode);
        stream << "text";
        EXPECT_TRUE(stream.good()) << static_cast<int>(mode);
        stream.Commit();
        EXPECT_EQ(_folder.Get("file"), "text") << static_cast<int>(mode);
    }
}

TEST_F(AtomicFile, ModeThatNoFileCanHaveSetsFailbitWithoutAnException) {
    AtomicFileStream stream(_folder.Path("file").c_str(), std::ios_base::app | std::ios_base::trunc);
    EXPECT_EQ(stream.rdstate(), std::ios_base::failbit);
    EXPECT_FALSE(stream.is_open());
}

TEST_F(AtomicFile, StreamMayBeOpenedAgainAfterACommit) {
    AtomicFileStream stream(_folder.Path("one").c_str(), std::ios_base::out);
    stream << "1";
    stream.Commit();
    stream.setstate(std::ios_base::failbit);
    stream.open(_folder.Path("two").c_str(), std::ios_base::out);
    EXPECT_TRUE(stream.good()) << "a successful open clears the state";
    stream << "2";
    stream.Commit();
    EXPECT_EQ(_folder.Get("one"), "1");
    EXPECT_EQ(_folder.Get("two"), "2");
}

TEST_F(AtomicFile, OpeningAgainWhileOpenSetsFailbit) {
    _folder.Put("two", "old");
    AtomicFileStream stream(_folder.Path("one").c_str(), std::ios_base::out);
    stream << "1";
    stream.open(_folder.Path("two").c_str(), std::ios_base::out);
    EXPECT_EQ(stream.rdstate(), std::ios_base::failbit);
    EXPECT_NE(TemporaryOf("one"), "");
    EXPECT_NE(TemporaryOf("two"), "");
    EXPECT_EQ(_folder.Get("two"), "old");
}

TEST_F(AtomicFile, FailedOpenLeavesTheStreamOnItsFirstTarget) {
    AtomicFileStream stream(_folder.Path("one").c_str(), std::ios_base::out);
    stream << "1";
    EXPECT_THROW(stream.open(_folder.Path("none/two").c_str(), std::ios_base::out), IOError);
    stream.Commit();
    EXPECT_EQ(_folder.Get("one"), "1");
}

TEST(AtomicFileShape, IsAnOutputFileStreamWithTwoPaths) {
    static_assert(std::is_base_of_v<std::ofstream, AtomicFileStream>);
    static_assert(std::has_virtual_destructor_v<AtomicFileStream>);
    EXPECT_GE(sizeof(AtomicFileStream), sizeof(std::ofstream) + 2 * sizeof(std::string));
}

}  // namespace
