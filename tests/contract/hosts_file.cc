// What an edit of the hosts file leaves byte for byte, and how the file is replaced.

#include "sysnet/hosts_file.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/xattr.h>

#include <chrono>
#include <sstream>

#include "host.h"
#include "platform/sysnet/src/text_file.h"

namespace {

bool isSlow = false;  // whether there is time between the writing of a file in place and its cutting

}  // namespace

extern "C" {

int __real_ftruncate(int descriptor, off_t size);
int __wrap_ftruncate(int descriptor, off_t size);

int __wrap_ftruncate(int descriptor, off_t size) {
    if (isSlow) usleep(1000);
    return __real_ftruncate(descriptor, size);
}

}  // extern "C"

namespace {

const auto* const kPrivateRoot = host::RequirePrivateRoot();

using HostMgmt::Lib::HostMgmtException;
using SysNet::Network::HostsFile;

class HostsFileTest : public ::testing::Test {
 protected:
    void Edit() { HostsFile(_path).AddOrReplaceEntry("192.0.2.10", "node01.corp.test", {"node01"}); }
    std::string Edited(const std::string& content) {
        WriteFile(_path, content);
        Edit();
        return ReadFile(_path);
    }
    // The text of the failure, or "no failure".
    std::string EditError() {
        try {
            Edit();
        } catch (const HostMgmtException& error) {
            return error.what();
        }
        return "no failure";
    }
    std::vector<std::string> FilesBeside() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(_folder.Path())) names.push_back(entry.path());
        return names;
    }

    const TemporaryFolder _folder;
    const std::string _path = _folder / "hosts";
    const std::string _old = "127.0.0.1\tlocalhost\n192.0.2.10\tnode01.old.test node01\n";
    const std::string _new = "127.0.0.1\tlocalhost\n192.0.2.10\tnode01.corp.test node01\n";
};

TEST_F(HostsFileTest, EditKeepsEveryByteThatIsNotTheEntry) {
    const std::string entry = "192.0.2.10\tnode01.corp.test node01";
    const struct {
        const char* name;
        std::string before;
        std::string after;
    } rows[] = {
        {"empty file", "", entry + "\n"},
        {"new address goes to the end", "127.0.0.1 localhost\n", "127.0.0.1 localhost\n" + entry + "\n"},
        {"no final newline", "127.0.0.1 localhost", "127.0.0.1 localhost\n" + entry + "\n"},
        {"replaced in place", "::1 a\n192.0.2.10 old\nff02::1 b\n", "::1 a\n" + entry + "\nff02::1 b\n"},
        {"replaced last line without newline", "::1 a\n192.0.2.10 old", "::1 a\n" + entry},
        {"blanks before and between", "\t 192.0.2.10 \t old \t older \n", entry + "\n"},
        {"other white space", "\r192.0.2.10\vold\folder\rmore\v\n", entry + "\n"},
        {"comment behind the entry", "192.0.2.10 old   # rack 4\n", entry + "   # rack 4\n"},
        {"comment touching the name", "192.0.2.10 old#rack 4\n", entry + "#rack 4\n"},
        {"entry that is commented out", "#192.0.2.10 old\n # 192.0.2.10 old\n",
         "#192.0.2.10 old\n # 192.0.2.10 old\n" + entry + "\n"},
        {"address inside a comment of another", "::1 a # 192.0.2.10\n", "::1 a # 192.0.2.10\n" + entry + "\n"},
        {"longer and shorter addresses", "192.0.2.1 a\n192.0.2.100 b\n192.0.2.10.5 c\n",
         "192.0.2.1 a\n192.0.2.100 b\n192.0.2.10.5 c\n" + entry + "\n"},
        {"name of another address", "127.0.1.1 node01.old.test node01\n",
         "127.0.1.1 node01.old.test node01\n" + entry + "\n"},
        {"address without a name", "192.0.2.10\n", entry + "\n"},
        {"several lines of the address", "192.0.2.10 old\n::1 a\n192.0.2.10 older\n", entry + "\n::1 a\n"},
        {"comment behind a dropped line stays", "192.0.2.10 old # one\n192.0.2.10 older # two\n",
         entry + " # one\n # two\n"},
        {"blank lines and odd lines", "\n \nnonsense\n\x01\xff\n", "\n \nnonsense\n\x01\xff\n" + entry + "\n"},
        {"CRLF kept and used", "::1 a\r\n192.0.2.10 old\r\n", "::1 a\r\n" + entry + "\r\n"},
        {"CRLF for a new line", "::1 a\r\n", "::1 a\r\n" + entry + "\r\n"},
        {"NUL bytes elsewhere", std::string("::1 a\0b\n", 8), std::string("::1 a\0b\n", 8) + entry + "\n"},
        {"entry that is right already", "::1 a\n192.0.2.10   node01.corp.test\tnode01 # x\n",
         "::1 a\n192.0.2.10   node01.corp.test\tnode01 # x\n"},
        {"right entry followed by an old one", "192.0.2.10 node01.corp.test node01\n192.0.2.10 old\n",
         "192.0.2.10 node01.corp.test node01\n"},
        {"right names in another order", "192.0.2.10 node01 node01.corp.test\n", entry + "\n"},
        {"one alias too many", "192.0.2.10 node01.corp.test node01 more\n", entry + "\n"},
    };
    for (const auto& row : rows) EXPECT_EQ(Edited(row.before), row.after) << row.name;
}

// Every file of up to four lines of these kinds: a second edit changes nothing, other lines keep their order, and no
// comment is lost.
TEST_F(HostsFileTest, SecondEditChangesNothingWhateverTheFile) {
    const std::vector<std::string> kinds = {
        "", "# comment", "::1 a", "192.0.2.10 old", "192.0.2.10 old # kept", "192.0.2.10 node01.corp.test node01"};
    const auto withoutEntries = [](const std::string& content) {
        std::string others;
        std::istringstream lines(content);
        for (std::string line; std::getline(lines, line);) {
            const bool isEntry = line.rfind("192.0.2.10", 0) == 0;
            if (!isEntry) others += line + "\n";
            if (line.find("# kept") != std::string::npos) others += "# kept\n";
        }
        return others;
    };
    int files = 0;
    for (std::size_t code = 0; code < kinds.size() * kinds.size() * kinds.size() * kinds.size(); ++code, ++files) {
        std::string content;
        for (std::size_t rest = code; rest > 0; rest /= kinds.size()) content += kinds[rest % kinds.size()] + "\n";
        const std::string once = Edited(content);
        const std::string twice = Edited(once);
        ASSERT_EQ(once, twice) << content;
        // A dropped line's comment becomes a line of its own.
        std::string left = withoutEntries(once);
        for (std::size_t at = left.find(" # kept\n"); at != std::string::npos; at = left.find(" # kept\n")) {
            left.erase(at, 8);
        }
        ASSERT_EQ(left, withoutEntries(content)) << content;
    }
    EXPECT_EQ(files, 1296);
}

TEST_F(HostsFileTest, EntryThatIsRightAlreadyIsNotWritten) {
    WriteFile(_path, _new);
    const ino_t before = host::InodeOf(_path);
    ASSERT_EQ(chmod(_path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(_folder.Path().c_str(), 0500), 0);
    {
        const host::Unprivileged unprivileged;
        EXPECT_EQ(EditError(), "no failure");
    }
    EXPECT_EQ(host::InodeOf(_path), before);
}

TEST_F(HostsFileTest, MissingFileIsCreatedReadableByAll) {
    const mode_t before = umask(0077);
    Edit();
    umask(before);
    EXPECT_EQ(ReadFile(_path), "192.0.2.10\tnode01.corp.test node01\n");
    EXPECT_EQ(ModeOf(_path), 0644U);
}

TEST_F(HostsFileTest, FileIsReplacedAndNothingIsLeftBeside) {
    WriteFile(_path, _old);
    const ino_t before = host::InodeOf(_path);
    Edit();
    EXPECT_NE(host::InodeOf(_path), before);
    EXPECT_EQ(FilesBeside(), std::vector<std::string>{_path});
}

// In an ordinary user's namespace there is one owner only, and the change of owner below does nothing.
TEST_F(HostsFileTest, ModeAndOwnerAreKept) {
    WriteFile(_path, _old);
    const bool changed = chown(_path.c_str(), 4711, 815) == 0;
    ASSERT_EQ(chmod(_path.c_str(), 0640), 0);
    struct stat before = {};
    ASSERT_EQ(stat(_path.c_str(), &before), 0);
    EXPECT_EQ(before.st_uid, changed ? 4711U : geteuid());
    Edit();
    struct stat after = {};
    ASSERT_EQ(stat(_path.c_str(), &after), 0);
    EXPECT_EQ(ReadFile(_path), _new);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST_F(HostsFileTest, AccessListIsKept) {
    constexpr char kAttribute[] = "system.posix_acl_access";
    // user::rw- user:0:r-- group::r-- mask::r-- other::r--, as the kernel keeps it.
    const std::string list(
        "\2\0\0\0"
        "\1\0\6\0\xff\xff\xff\xff"
        "\2\0\4\0\0\0\0\0"
        "\4\0\4\0\xff\xff\xff\xff"
        "\x10\0\4\0\xff\xff\xff\xff"
        "\x20\0\4\0\xff\xff\xff\xff",
        44);
    WriteFile(_path, _old);
    ASSERT_EQ(setxattr(_path.c_str(), kAttribute, list.data(), list.size(), 0), 0);
    Edit();
    EXPECT_EQ(ReadFile(_path), _new);
    std::string kept(256, '\0');
    const ssize_t size = getxattr(_path.c_str(), kAttribute, kept.data(), kept.size());
    ASSERT_GE(size, 0);
    EXPECT_EQ(kept.substr(0, static_cast<std::size_t>(size)), list);
}

TEST_F(HostsFileTest, SymbolicLinkStaysAndItsTargetIsReplaced) {
    std::filesystem::create_directory(_folder / "real");
    WriteFile(_folder / "real/hosts", _old);
    std::filesystem::create_symlink("real/hosts", _path);
    Edit();
    EXPECT_TRUE(std::filesystem::is_symlink(_path));
    EXPECT_EQ(ReadFile(_folder / "real/hosts"), _new);
}

TEST_F(HostsFileTest, DanglingSymbolicLinkIsAnError) {
    std::filesystem::create_symlink("missing", _path);
    EXPECT_EQ(EditError(), "Cannot follow the symbolic link " + _path + ": No such file or directory");
    EXPECT_EQ(FilesBeside(), std::vector<std::string>{_path});
}

TEST_F(HostsFileTest, MountedFileIsRewrittenInPlace) {
    WriteFile(_path, "");
    const std::string source = _folder / "source";
    const std::string comment = std::string(9000, '#') + "\n";
    const std::string entry = "192.0.2.10\tnode01.corp.test node01\n";
    const struct {
        const char* name;
        std::string before;
        std::string after;
    } rows[] = {
        {"of about the same size", _old, _new},
        {"shrinks", "192.0.2.10 " + std::string(5000, 'x') + "\n" + comment, entry + comment},
        {"grows", comment, comment + entry},
    };
    for (const auto& row : rows) {
        WriteFile(source, row.before);
        const host::Mount mount = host::Mount::Bind(source, _path);
        const ino_t before = host::InodeOf(_path);
        Edit();
        EXPECT_EQ(host::InodeOf(_path), before) << row.name;
        EXPECT_TRUE(ReadFile(source) == row.after) << row.name;
    }
}

TEST_F(HostsFileTest, MountedFileOnAFullDiskStaysWhole) {
    const std::string full = _folder / "full";
    std::filesystem::create_directory(full);
    const host::Mount disk = host::Mount::Memory(full, "64k");
    WriteFile(_path, "");
    // The edit makes the file one page longer.
    const std::string content = std::string(4095, '#') + "\n";
    WriteFile(full + "/source", content);
    const host::Mount mount = host::Mount::Bind(full + "/source", _path);
    host::FillUp(full + "/filler", 0);
    EXPECT_EQ(EditError(), "Cannot make room in " + _path + ": No space left on device");
    EXPECT_TRUE(ReadFile(_path) == content);
}

TEST_F(HostsFileTest, FullDiskKeepsTheOldFile) {
    const host::Mount disk = host::Mount::Memory(_folder.Path(), "64k");
    WriteFile(_path, _old);
    host::FillUp(_folder / "filler", 0);
    EXPECT_EQ(EditError(), "Cannot replace " + _path + ": No space left on device");
    EXPECT_EQ(ReadFile(_path), _old);
    std::filesystem::remove(_folder / "filler");
    EXPECT_EQ(FilesBeside(), std::vector<std::string>{_path});
}

TEST_F(HostsFileTest, ReadOnlyFileSystemIsNamed) {
    host::Mount disk = host::Mount::Memory(_folder.Path(), "64k");
    WriteFile(_path, _old);
    disk.Remount(true);
    EXPECT_EQ(EditError(), "Cannot rewrite " + _path + ": Read-only file system");
    EXPECT_EQ(ReadFile(_path), _old);
}

TEST_F(HostsFileTest, WritableFileInAFolderThatIsNotIsRewrittenInPlace) {
    WriteFile(_path, _old);
    ASSERT_EQ(chmod(_folder.Path().c_str(), 0500), 0);
    {
        const host::Unprivileged unprivileged;
        EXPECT_EQ(EditError(), "no failure");
    }
    EXPECT_EQ(ReadFile(_path), _new);
}

TEST_F(HostsFileTest, UnreadableFileIsNamed) {
    WriteFile(_path, _old);
    ASSERT_EQ(chmod(_path.c_str(), 0000), 0);
    const host::Unprivileged unprivileged;
    EXPECT_EQ(EditError(), "Cannot read " + _path + ": Permission denied");
}

TEST_F(HostsFileTest, WhatIsNoFileIsNamed) {
    std::filesystem::create_directory(_path);
    EXPECT_EQ(EditError(), "Cannot read " + _path + ": it is not a regular file");
    std::filesystem::remove(_path);
    ASSERT_EQ(mkfifo(_path.c_str(), 0600), 0);
    EXPECT_EQ(EditError(), "Cannot read " + _path + ": it is not a regular file");
}

TEST_F(HostsFileTest, MissingFolderIsNamed) {
    const std::string path = _folder / "missing/hosts";
    try {
        HostsFile(path).AddOrReplaceEntry("192.0.2.10", "node01", {});
        ADD_FAILURE() << "no failure";
    } catch (const HostMgmtException& error) {
        EXPECT_EQ(error.what(), "Cannot create " + path + ": No such file or directory");
    }
}

// A container's hosts file is mounted and written in place. Each writer's file is of another size.
TEST_F(HostsFileTest, WritersOfAMountedFileDoNotMixTheirs) {
    const std::string source = _folder / "source";
    WriteFile(_path, "");
    WriteFile(source, "");
    const host::Mount mount = host::Mount::Bind(source, _path);
    const std::string small = "::1 small\n";
    const std::string large = "::1 large " + std::string(400'000, '#') + "\n";
    const auto writer = [&](const std::string& content) {
        const pid_t child = fork();
        if (child != 0) return child;
        isSlow = true;
        try {
            const auto start = std::chrono::steady_clock::now();
            SysNet::Network::ReplaceTextFile(_path, content);
            // A writer waits for two seconds, and then no longer.
            _exit(std::chrono::steady_clock::now() - start < std::chrono::milliseconds(1900) ? 0 : 2);
        } catch (...) {
            _exit(1);
        }
    };
    int roundsThatCount = 0;
    for (int round = 0; round < 40; ++round) {
        const pid_t writers[] = {writer(small), writer(large)};
        bool counts = true;
        for (const pid_t child : writers) {
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFEXITED(status));
            EXPECT_NE(WEXITSTATUS(status), 1);
            counts = counts && WEXITSTATUS(status) == 0;
        }
        if (!counts) continue;
        ++roundsThatCount;
        const std::string content = ReadFile(_path);
        ASSERT_TRUE(content == small || content == large) << content.size() << ", round " << round;
    }
    EXPECT_GT(roundsThatCount, 20);
}

TEST_F(HostsFileTest, LockOnAMountedFileIsWaitedForOnlySoLong) {
    const std::string source = _folder / "source";
    WriteFile(_path, "");
    WriteFile(source, _old);
    const host::Mount mount = host::Mount::Bind(source, _path);
    const int reader = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(reader, LOCK_EX), 0);
    const auto before = std::chrono::steady_clock::now();
    Edit();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    close(reader);
    EXPECT_EQ(ReadFile(_path), _new);
}

extern "C" void* EditUntilCancelled(void* path) {
    for (int i = 0;; ++i) {
        HostsFile(*static_cast<const std::string*>(path))
            .AddOrReplaceEntry("192.0.2.10", i % 2 == 0 ? "even" : "odd", {});
        pthread_testcancel();
    }
}

TEST_F(HostsFileTest, CancelledThreadEndsAfterItsEdit) {
    WriteFile(_path, _old);
    for (int round = 0; round < 50; ++round) {
        pthread_t editor = {};
        std::string path = _path;
        const ino_t before = host::InodeOf(_path);
        ASSERT_EQ(pthread_create(&editor, nullptr, EditUntilCancelled, &path), 0);
        while (host::InodeOf(_path) == before) {
        }
        pthread_cancel(editor);
        void* result = nullptr;
        pthread_join(editor, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_EQ(FilesBeside().size(), 1U);
    }
}

// Readers that open the file again and again while it is being replaced see it whole every time.
TEST_F(HostsFileTest, ReadersNeverSeeATornFile) {
    const std::string rest(20'000, '#');
    WriteFile(_path, "192.0.2.10 a\n" + rest);
    const pid_t writer = fork();
    if (writer == 0) {
        for (int i = 0; i < 500; ++i) {
            HostsFile(_path).AddOrReplaceEntry("192.0.2.10", i % 2 == 0 ? "even" : "odd", {});
        }
        _exit(0);
    }
    int status = 0;
    int reads = 0;
    for (; waitpid(writer, &status, WNOHANG) == 0; ++reads) {
        const std::string content = ReadFile(_path);
        ASSERT_TRUE(content.size() > rest.size() && content.substr(content.size() - rest.size()) == rest);
    }
    EXPECT_EQ(status, 0);
    EXPECT_GT(reads, 0);
}

}  // namespace
