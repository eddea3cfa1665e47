// Which system calls a replacement makes, and what each of them does when it fails.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <memory>

#include "authentication/atomic_file_stream.h"
#include "authentication/exceptions.h"
#include "support/temporary_folder.h"

namespace {

std::vector<std::string> calls;       // what was called while `recording`, in order
std::map<std::string, int> failures;  // the error number that a call fails with
bool recording = false;
mode_t chmodMode = 0;
bool replaceTemporaryByDirectory = false;
const std::ofstream* observed = nullptr;  // whose state `openAtStat` tells
bool openAtStat = false;

// Notes a call; true if it is to fail, with errno set.
bool Fails(const char* call) {
    if (!recording) return false;
    calls.emplace_back(call);
    const auto failure = failures.find(call);
    if (failure == failures.end()) return false;
    errno = failure->second;
    return true;
}

}  // namespace

extern "C" {

int __real_mkstemp(char* name);
int __real_close(int descriptor);
int __real_stat(const char* path, struct stat* status);
int __real_chmod(const char* path, mode_t mode);
int __real_rename(const char* from, const char* to);

int __wrap_mkstemp(char* name);
int __wrap_close(int descriptor);
int __wrap_stat(const char* path, struct stat* status);
int __wrap_chmod(const char* path, mode_t mode);
int __wrap_rename(const char* from, const char* to);

int __wrap_mkstemp(char* name) {
    if (Fails("mkstemp")) return -1;
    const int descriptor = __real_mkstemp(name);
    if (replaceTemporaryByDirectory && (unlink(name) != 0 || mkdir(name, 0700) != 0)) abort();
    return descriptor;
}
int __wrap_stat(const char* path, struct stat* status) {
    if (observed != nullptr) openAtStat = observed->is_open();
    return Fails("stat") ? -1 : __real_stat(path, status);
}
int __wrap_rename(const char* from, const char* to) { return Fails("rename") ? -1 : __real_rename(from, to); }
int __wrap_chmod(const char* path, mode_t mode) {
    chmodMode = mode;
    return Fails("chmod") ? -1 : __real_chmod(path, mode);
}
int __wrap_close(int descriptor) {
    const bool fails = Fails("close");
    const int error = errno;
    const int result = __real_close(descriptor);
    if (!fails) return result;
    errno = error;
    return -1;
}

}  // extern "C"

namespace {

using nimbrel::authentication::AtomicFileStream;
using nimbrel::authentication::FilePermissionError;
using nimbrel::authentication::IOError;

using Calls = std::vector<std::string>;

class AtomicFileCalls : public ::testing::Test {
 protected:
    AtomicFileCalls() {
        calls.clear();
        failures.clear();
        replaceTemporaryByDirectory = false;
    }
    ~AtomicFileCalls() override {
        recording = false;
        observed = nullptr;
    }

    void Open() {
        recording = true;
        _stream = std::make_unique<AtomicFileStream>(_folder.Path("file").c_str(), std::ios_base::out);
        recording = false;
    }
    void Commit() {
        recording = true;
        _stream->Commit();
        recording = false;
    }
    void Replace() {
        Open();
        *_stream << "new";
        Commit();
    }

    // The text of the exception of this class that replacing the file ends with.
    template <typename Error>
    std::string ReplaceError() {
        try {
            Replace();
        } catch (const Error& error) {
            recording = false;
            EXPECT_EQ(error.GetCode(), 0U);
            return error.what();
        }
        return "no error";
    }

    static std::string PermissionText(const std::string& reason) {
        return "Failed to save file permissions, file permissions may be incorrect: " + reason;
    }
    std::string TemporaryPath() const {
        for (const std::string& name : _folder.Names()) {
            if (name != "file") return _folder.Path(name);
        }
        return "";
    }

    TemporaryFolder _folder;
    std::unique_ptr<AtomicFileStream> _stream;
};

// The descriptor of this process that is open on a path.
int DescriptorOf(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == path) return std::stoi(entry.path().filename());
    }
    return -1;
}

TEST_F(AtomicFileCalls, ExistingTargetIsAskedForItsModeBeforeItIsReplaced) {
    _folder.Put("file", "old", 0640);
    Replace();
    EXPECT_EQ(calls, (Calls{"mkstemp", "close", "stat", "rename", "chmod"}));
    EXPECT_EQ(chmodMode & 07777U, 0640U);
}

TEST_F(AtomicFileCalls, StreamIsClosedBeforeTheTargetIsAskedForItsMode) {
    Open();
    observed = _stream.get();
    openAtStat = true;
    Commit();
    EXPECT_FALSE(openAtStat);
}

TEST_F(AtomicFileCalls, NewTargetIsNotGivenAMode) {
    Replace();
    EXPECT_EQ(calls, (Calls{"mkstemp", "close", "stat", "rename"}));
}

TEST_F(AtomicFileCalls, MkstempFailureIsAnIOErrorAndLeavesNothing) {
    failures["mkstemp"] = EMFILE;
    EXPECT_EQ(ReplaceError<IOError>(),
              "Unable to create temporary file to write '" + _folder.Path("file") + "': Too many open files");
    EXPECT_EQ(calls, Calls{"mkstemp"});
    EXPECT_TRUE(_folder.Names().empty());
}

TEST_F(AtomicFileCalls, FailureToCloseTheEmptyTemporaryFileIsIgnored) {
    failures["close"] = EIO;
    Replace();
    EXPECT_TRUE(_stream->good());
    EXPECT_EQ(_folder.Get("file"), "new");
}

// The stream opens the temporary file by its name, so it can be made to find a directory there.
TEST_F(AtomicFileCalls, TemporaryFileThatCannotBeOpenedSetsFailbit) {
    replaceTemporaryByDirectory = true;
    Open();
    EXPECT_EQ(_stream->rdstate(), std::ios_base::failbit);
    EXPECT_FALSE(_stream->is_open());
}

TEST_F(AtomicFileCalls, FailureToCloseSetsFailbitAndTheCommitGoesOn) {
    _folder.Put("file", "old", 0640);
    Open();
    *_stream << "new" << std::flush;
    close(DescriptorOf(TemporaryPath()));  // so that the stream's own close fails
    Commit();
    EXPECT_EQ(_stream->rdstate(), std::ios_base::failbit);
    EXPECT_EQ(_folder.Get("file"), "new");
    EXPECT_EQ(_folder.Mode("file"), 0640U);
}

TEST_F(AtomicFileCalls, UnwrittenRestThatIsLostSetsTheStateAndTheCommitGoesOn) {
    _folder.Put("file", "old");
    Open();
    *_stream << "lost";
    close(DescriptorOf(TemporaryPath()));
    Commit();
    EXPECT_TRUE(_stream->fail());
    EXPECT_EQ(_folder.Get("file"), "");
}

TEST_F(AtomicFileCalls, StatFailureOtherThanAbsenceIsReportedAfterTheReplacement) {
    _folder.Put("file", "old", 0640);
    failures["stat"] = EACCES;
    EXPECT_EQ(ReplaceError<FilePermissionError>(), PermissionText("Permission denied"));
    EXPECT_EQ(calls, (Calls{"mkstemp", "close", "stat", "rename"}));
    EXPECT_EQ(_folder.Get("file"), "new");
    EXPECT_EQ(_folder.Mode("file"), 0600U);
}

TEST_F(AtomicFileCalls, ChmodFailureIsReportedAfterTheReplacement) {
    _folder.Put("file", "old", 0640);
    failures["chmod"] = EPERM;
    EXPECT_EQ(ReplaceError<FilePermissionError>(), PermissionText("Operation not permitted"));
    EXPECT_EQ(_folder.Get("file"), "new");
    EXPECT_EQ(_folder.Mode("file"), 0600U);
}

TEST_F(AtomicFileCalls, RenameFailureKeepsTheTargetAndTheTemporaryFile) {
    for (const bool exists : {false, true}) {
        if (exists) _folder.Put("file", "old", 0640);
        failures["rename"] = EXDEV;
        const std::string error = ReplaceError<IOError>();
        EXPECT_EQ(error, "Unable to rename '" + TemporaryPath() + "' to '" + _folder.Path("file") +
                             "': Invalid cross-device link");
        EXPECT_EQ(calls.back(), "rename");
        EXPECT_EQ(std::filesystem::exists(_folder.Path("file")), exists);
        if (exists) {
            EXPECT_EQ(_folder.Get("file"), "old");
        }
        unlink(TemporaryPath().c_str());
    }
}

// The reason of the rename counts, not that of the earlier failure.
TEST_F(AtomicFileCalls, RenameFailureAfterAStatFailureIsTheOneReported) {
    _folder.Put("file", "old");
    failures = {{"stat", EACCES}, {"rename", EBUSY}};
    const std::string error = ReplaceError<IOError>();
    EXPECT_NE(error.find("': Device or resource busy"), std::string::npos) << error;
    EXPECT_EQ(_folder.Get("file"), "old");
}

}  // namespace
