// System calls that fail below a settings file, and how its descriptors are opened.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/temporary_folder.h"
#include "unit/configuration_outcome.h"

namespace {

int openFlags = 0;            // of the last open of the library
int interruptionsOfRead = 0;  // how many of the next reads fail with EINTR
int errorOfRead = 0;          // what the next read fails with
int reads = 0;                // how many there were
int errorOfStreamClose = 0;   // what closing a stream's file fails with
int errorOfStreamWrite = 0;   // what writing a stream's file fails with
int streamWrites = 0;         // how many of them there were

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
ssize_t __real_read(int descriptor, void* buffer, std::size_t size);

int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    openFlags = flags;
    return __real_open(path, flags, mode);
}

ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    ++reads;
    if (interruptionsOfRead > 0) {
        --interruptionsOfRead;
        errno = EINTR;
        return -1;
    }
    if (errorOfRead != 0) {
        errno = std::exchange(errorOfRead, 0);
        return -1;
    }
    return __real_read(descriptor, buffer, size);
}

// The C++ library closes a stream's file with this call; standing before the C library's, this one is found first.
__attribute__((visibility("default"))) int fclose(FILE* file) {
    static const auto real = reinterpret_cast<int (*)(FILE*)>(dlsym(RTLD_NEXT, "fclose"));
    const int result = real(file);
    if (errorOfStreamClose == 0) return result;
    errno = errorOfStreamClose;
    return EOF;
}

// The same for its writes.
__attribute__((visibility("default"))) ssize_t write(int descriptor, const void* data, std::size_t size) {
    static const auto real = reinterpret_cast<ssize_t (*)(int, const void*, std::size_t)>(dlsym(RTLD_NEXT, "write"));
    ++streamWrites;
    if (errorOfStreamWrite == 0) return real(descriptor, data, size);
    errno = errorOfStreamWrite;
    return -1;
}

}  // extern "C"

namespace {

using nimbrel::authentication::Configuration;
using nimbrel::authentication::IOError;

class ConfigurationCalls : public ::testing::Test {
 protected:
    ConfigurationCalls() { _folder.Put("file", "a = \"1\"\n"); }
    ~ConfigurationCalls() override { errorOfStreamWrite = errorOfStreamClose = errorOfRead = interruptionsOfRead = 0; }

    Configuration Read() const { return Configuration(_folder.Path("file")); }
    std::string Quoted() const { return "'" + _folder.Path("file") + "'"; }

    TemporaryFolder _folder;
};

TEST_F(ConfigurationCalls, InterruptedReadIsRepeated) {
    interruptionsOfRead = 3;
    EXPECT_EQ(Read()["a"], "1");
    EXPECT_EQ(interruptionsOfRead, 0);
}

// A terminal or a pipe could wait for more.
TEST_F(ConfigurationCalls, NothingIsReadBehindTheEnd) {
    _folder.Put("file", "a = 1\nb = 2");
    reads = 0;
    EXPECT_EQ(Read()["b"], "2");
    EXPECT_EQ(reads, 2);
}

TEST_F(ConfigurationCalls, FailedReadIsReportedWithTheReason) {
    errorOfRead = EIO;
    try {
        Read();
        ADD_FAILURE() << "the file was read";
    } catch (const IOError& error) {
        EXPECT_EQ(error.what(), "Unable to read " + Quoted() + ": Input/output error");
    }
}

TEST_F(ConfigurationCalls, FileIsNotInheritedByOtherPrograms) {
    openFlags = 0;
    Read();
    EXPECT_EQ(openFlags & O_CLOEXEC, O_CLOEXEC);
    EXPECT_EQ(openFlags & O_ACCMODE, O_RDONLY);
}

TEST_F(ConfigurationCalls, FileMayBeOpenedAsDescriptorZeroAndIsClosedThen) {
    const int kept = dup(0);
    close(0);
    EXPECT_EQ(Read()["a"], "1");
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    dup2(kept, 0);
    close(kept);
}

TEST_F(ConfigurationCalls, EveryLineIsWrittenOnItsOwn) {
    _folder.Put("file", "a = 1\nb = 2\nc = 3\n");
    const Configuration configuration = Read();
    streamWrites = 0;
    configuration.Write();
    EXPECT_EQ(streamWrites, 3);
}

TEST_F(ConfigurationCalls, FailedWriteIsReportedWithTheReasonOfTheFirstFailure) {
    const Configuration configuration = Read();
    errorOfStreamWrite = ENOSPC;
    errorOfStreamClose = EDQUOT;
    try {
        configuration.Write();
        ADD_FAILURE() << "the file was written";
    } catch (const IOError& error) {
        EXPECT_EQ(error.what(), "Unable to write " + Quoted() + ": No space left on device");
    }
    EXPECT_EQ(_folder.Get("file"), "a = \"1\"\n");
}

// Some file systems tell only at closing time that the disk is full.
TEST_F(ConfigurationCalls, FileThatFailsToCloseIsNotPutInPlace) {
    Configuration configuration = Read();
    configuration["a"] = "2";
    errorOfStreamClose = EDQUOT;
    try {
        configuration.Write();
        ADD_FAILURE() << "the file was written";
    } catch (const IOError& error) {
        EXPECT_EQ(error.what(), "Unable to write " + Quoted() + ": Disk quota exceeded");
    }
    errorOfStreamClose = 0;
    EXPECT_EQ(_folder.Get("file"), "a = \"1\"\n");
}

}  // namespace
