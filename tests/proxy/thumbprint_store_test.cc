// The file of proxy thumbprints.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "authentication/exceptions.h"
#include "authentication/proxy.h"
#include "proxy/root.h"

namespace {

bool chmodIsRefused = false;

}  // namespace

extern "C" {

int __real_chmod(const char* path, mode_t mode);
int __wrap_chmod(const char* path, mode_t mode);

int __wrap_chmod(const char* path, mode_t mode) {
    if (!chmodIsRefused) return __real_chmod(path, mode);
    errno = EPERM;
    return -1;
}

}  // extern "C"

namespace nimbrel::authentication::test {
namespace {

using ::testing::StartsWith;

const std::string kFolder = "/var/lib/thumbprints";
const std::string kFile = kFolder + "/known";
constexpr const char* kOld = "0A:1B:2C:3D:4E:5F:60:71:82:93:A4:B5:C6:D7:E8:F9:0A:1B:2C:3D";
constexpr const char* kNew = "FF:1B:2C:3D:4E:5F:60:71:82:93:A4:B5:C6:D7:E8:F9:0A:1B:2C:3D";

class ThumbprintStore : public ::testing::Test {
 protected:
    ThumbprintStore() { WriteSystemFile(kFile, std::string("192.0.2.7 = \"") + kOld + "\"\n"); }
    ~ThumbprintStore() override { Remove(kFolder); }

    static std::string Lookup(const std::string& server) { return APXThumbprintStore(kFile).LookupThumbprint(server); }
    static void Import(const std::string& thumbprint, const std::string& server) {
        APXThumbprintStore(kFile).ImportThumbprint(thumbprint, server);
    }

    struct stat Status() const {
        struct stat status = {};
        EXPECT_EQ(stat(kFile.c_str(), &status), 0);
        return status;
    }
    // Whether the file is the very one that `before` describes, unwritten.
    bool IsStill(const struct stat& before) const {
        const struct stat now = Status();
        return now.st_ino == before.st_ino && now.st_mtim.tv_sec == before.st_mtim.tv_sec &&
               now.st_mtim.tv_nsec == before.st_mtim.tv_nsec && now.st_ctim.tv_sec == before.st_ctim.tv_sec &&
               now.st_ctim.tv_nsec == before.st_ctim.tv_nsec;
    }
};

// ---------------------------------------------------------------- reading

TEST_F(ThumbprintStore, AKnownServerHasItsThumbprint) { EXPECT_EQ(Lookup("192.0.2.7"), kOld); }

TEST_F(ThumbprintStore, AnUnknownServerHasTheEmptyOne) {
    for (const char* server : {"192.0.2.8", "192.0.2.07", "192.0.2.7 ", "192.0.2", "", "%s"}) {
        EXPECT_EQ(Lookup(server), "") << server;
    }
}

TEST_F(ThumbprintStore, LookingUpAddsNothing) {
    APXThumbprintStore store(kFile);
    store.LookupThumbprint("192.0.2.8");
    EXPECT_EQ(store.size(), 1u);
}

TEST_F(ThumbprintStore, IsAConfiguration) {
    APXThumbprintStore store(kFile);
    Configuration& configuration = store;
    EXPECT_EQ(configuration["192.0.2.7"], kOld);
    EXPECT_THROW(configuration["192.0.2.8"], InvalidKeyException);
}

TEST_F(ThumbprintStore, AMissingFileIsReported) {
    EXPECT_EQ(TextOf<IOError>([] { APXThumbprintStore(kFolder + "/absent"); }),
              "Unable to open '/var/lib/thumbprints/absent': No such file or directory");
}

TEST_F(ThumbprintStore, AMalformedFileIsReported) {
    WriteSystemFile(kFile, "192.0.2.7\n");
    EXPECT_EQ(TextOf<ConfigurationError>([] { APXThumbprintStore{kFile}; }),
              "Error parsing configuration on line 1: no delimiter found");
}

// ---------------------------------------------------------------- importing

TEST_F(ThumbprintStore, ANewServerIsAddedAndWritten) {
    Import(kNew, "192.0.2.8");
    EXPECT_EQ(ReadFile(kFile), std::string("192.0.2.7 = \"") + kOld + "\"\n" + "192.0.2.8 = \"" + kNew + "\"\n");
}

TEST_F(ThumbprintStore, AnotherThumbprintReplacesTheOldOne) {
    Import(kNew, "192.0.2.7");
    EXPECT_EQ(ReadFile(kFile), std::string("192.0.2.7 = \"") + kNew + "\"\n");
}

TEST_F(ThumbprintStore, TheSameThumbprintLeavesTheFileUntouched) {
    const struct stat before = Status();
    Import(kOld, "192.0.2.7");
    EXPECT_TRUE(IsStill(before));
}

TEST_F(ThumbprintStore, TheSameThumbprintLeavesEvenAFileInAnotherFormUntouched) {
    const std::string contents = std::string("\n\t192.0.2.7='") + kOld + "'";
    WriteSystemFile(kFile, contents);
    Import(kOld, "192.0.2.7");
    EXPECT_EQ(ReadFile(kFile), contents);
}

TEST_F(ThumbprintStore, AnotherThumbprintMakesAnotherFile) {
    const struct stat before = Status();
    Import(kNew, "192.0.2.7");
    EXPECT_NE(Status().st_ino, before.st_ino);
}

TEST_F(ThumbprintStore, ThumbprintsAreComparedExactly) {
    Import("0a:1b:2c:3d:4e:5f:60:71:82:93:a4:b5:c6:d7:e8:f9:0a:1b:2c:3d", "192.0.2.7");
    EXPECT_EQ(Lookup("192.0.2.7"), "0a:1b:2c:3d:4e:5f:60:71:82:93:a4:b5:c6:d7:e8:f9:0a:1b:2c:3d");
}

TEST_F(ThumbprintStore, TheEmptyThumbprintOfANewServerIsWritten) {
    Import("", "192.0.2.8");
    EXPECT_EQ(ReadFile(kFile), std::string("192.0.2.7 = \"") + kOld + "\"\n" + "192.0.2.8 = \"\"\n");
}

TEST_F(ThumbprintStore, ImportingTwiceWritesOnce) {
    APXThumbprintStore store(kFile);
    store.ImportThumbprint(kNew, "192.0.2.8");
    const struct stat before = Status();
    store.ImportThumbprint(kNew, "192.0.2.8");
    EXPECT_TRUE(IsStill(before));
}

TEST_F(ThumbprintStore, TheFilesPermissionsAreKept) {
    ASSERT_EQ(chmod(kFile.c_str(), 0640), 0);
    Import(kNew, "192.0.2.7");
    EXPECT_EQ(Status().st_mode & 07777, 0640u);
}

TEST_F(ThumbprintStore, AFileThatHasGoneIsMadeAnew) {
    APXThumbprintStore store(kFile);
    Remove(kFile);
    store.ImportThumbprint(kNew, "192.0.2.7");
    EXPECT_EQ(Lookup("192.0.2.7"), kNew);
}

// ---------------------------------------------------------------- writes that fail

TEST_F(ThumbprintStore, AFullDiskIsReportedAndTheOldFileStays) {
    const MountedOver disk(kFolder, "size=8k");
    WriteSystemFile(kFile, std::string("192.0.2.7 = \"") + kOld + "\"\n");
    APXThumbprintStore store(kFile);
    disk.Fill();
    EXPECT_THAT(TextOf<IOError>([&] { store.ImportThumbprint(kNew, "192.0.2.7"); }),
                StartsWith("Unable to write '/var/lib/thumbprints/known': No space left on device"));
    EXPECT_EQ(Lookup("192.0.2.7"), kOld);
}

TEST_F(ThumbprintStore, AFolderThatHasGoneIsReported) {
    APXThumbprintStore store(kFile);
    Remove(kFolder);
    EXPECT_NE(TextOf<IOError>([&] { store.ImportThumbprint(kNew, "192.0.2.8"); }), "(nothing was thrown)");
}

TEST_F(ThumbprintStore, WhatCouldNotBeWrittenIsWrittenByTheNextImport) {
    APXThumbprintStore store(kFile);
    Remove(kFolder);
    EXPECT_THROW(store.ImportThumbprint(kNew, "192.0.2.7"), IOError);
    EXPECT_THROW(store.ImportThumbprint(kNew, "192.0.2.8"), IOError);
    EXPECT_EQ(store.LookupThumbprint("192.0.2.7"), kOld);
    EXPECT_EQ(store.count("192.0.2.8"), 0u);
    WriteSystemFile(kFile, "");
    store.ImportThumbprint(kNew, "192.0.2.7");
    store.ImportThumbprint(kNew, "192.0.2.8");
    EXPECT_EQ(ReadFile(kFile), std::string("192.0.2.7 = \"") + kNew + "\"\n192.0.2.8 = \"" + kNew + "\"\n");
}

// The permissions come last: the new file is in place by then.
TEST_F(ThumbprintStore, AnImportThatOnlyLosesThePermissionsIsKept) {
    APXThumbprintStore store(kFile);
    chmodIsRefused = true;
    EXPECT_THROW(store.ImportThumbprint(kNew, "192.0.2.7"), FilePermissionError);
    chmodIsRefused = false;
    EXPECT_EQ(Lookup("192.0.2.7"), kNew);
    EXPECT_EQ(store.LookupThumbprint("192.0.2.7"), kNew);
}

TEST_F(ThumbprintStore, AnEqualThumbprintNeedsNoRoom) {
    APXThumbprintStore store(kFile);
    Remove(kFolder);
    store.ImportThumbprint(kOld, "192.0.2.7");
    EXPECT_EQ(store.LookupThumbprint("192.0.2.7"), kOld);
}

}  // namespace
}  // namespace nimbrel::authentication::test
