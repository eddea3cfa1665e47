// What the stores do when authentication.conf is missing, damaged, unreadable, or cannot be replaced: the error reaches
// the caller and the file stays as it was.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <memory>

#include "authentication/configuration.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "authentication/store_factory.h"
#include "authentication/stores.h"
#include "store/journal.h"
#include "store/root.h"
#include "store/scripted_control.h"
#include "store/thrown.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kDirectoryRecord = "remote-authentication-store = \"Active Directory\"\n";

// Both stores over the provider "scripted", which must not be called unless the test says so.
class DamagedRecord : public ::testing::Test {
 protected:
    DamagedRecord() {
        Record("Active Directory");
        Journal::Clear();
    }
    ~DamagedRecord() override {
        Remove(kRecordFile);
        Journal::Clear();
    }

    // The four operations that read the record.
    std::map<std::string, std::function<void()>> Readers() {
        return {{"is None active", [this] { none.IsActive(); }},
                {"is the directory active", [this] { directory.IsActive(); }},
                {"make None active", [this] { none.MakeActive(); }},
                {"make the directory active", [this] { directory.MakeActive(); }}};
    }

    template <typename Error>
    void ExpectFromAllReaders(const std::string& text) {
        for (const auto& [name, read] : Readers()) EXPECT_EQ(TextOf<Error>(read), text) << name;
        EXPECT_THAT(Journal::Entries(), IsEmpty());
    }

    ScriptedControl provider;
    ActiveDirectoryStore directory{60};
    NoRemoteAuthenticationStore none;
};

TEST_F(DamagedRecord, MissingFileIsAnErrorAndNoneIsMade) {
    Remove(kRecordFile);
    ExpectFromAllReaders<IOError>(
        "Unable to open '/etc/nimbrel/nimauth/authentication.conf': No such file or directory");
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("provider.conf"));
}

TEST_F(DamagedRecord, MissingKeyIsAnErrorAndNothingIsWritten) {
    for (const std::string& contents : {std::string(), std::string("\n\n"), std::string("other = \"1\"\n"),
                                        std::string("Remote-Authentication-Store = \"None\"\n"),
                                        std::string("remote-authentication-store\0 = \"None\"\n", 38)}) {
        WriteSystemFile(kRecordFile, contents);
        const ino_t before = StatusOfFile(kRecordFile).st_ino;
        ExpectFromAllReaders<InvalidKeyException>(
            "The specified key 'remote-authentication-store' was not found in this configuration");
        EXPECT_EQ(ReadFile(kRecordFile), contents);
        EXPECT_EQ(StatusOfFile(kRecordFile).st_ino, before);
    }
}

TEST_F(DamagedRecord, MalformedFileIsAnErrorAndStays) {
    const std::map<std::string, std::string> rows = {
        {"remote-authentication-sto", "on line 1: no delimiter found"},
        {"remote-authentication-store = \"", "at line 1: invalid quoting"},
        {"remote-authentication-store = \"None\"\n# comment\n", "on line 2: no delimiter found"},
        {"\xFF\xFE\r\n", "on line 1: no delimiter found"},
        {"\n\n' = 1\n", "at line 3: invalid quoting"},
        {std::string(100000, 'x'), "on line 1: no delimiter found"},
    };
    for (const auto& [contents, detail] : rows) {
        WriteSystemFile(kRecordFile, contents);
        ExpectFromAllReaders<ConfigurationError>("Error parsing configuration " + detail);
        EXPECT_EQ(ReadFile(kRecordFile), contents);
    }
}

TEST_F(DamagedRecord, AFolderInItsPlaceIsAnErrorAndStays) {
    Remove(kRecordFile);
    MakeFolder(kRecordFile);
    ExpectFromAllReaders<IOError>("Unable to read '/etc/nimbrel/nimauth/authentication.conf': Is a directory");
    EXPECT_THAT(Names(kRecordFile), IsEmpty());
}

TEST_F(DamagedRecord, ALinkToNowhereIsAnErrorAndStays) {
    Remove(kRecordFile);
    ASSERT_EQ(symlink("nowhere", kRecordFile), 0);
    ExpectFromAllReaders<IOError>(
        "Unable to open '/etc/nimbrel/nimauth/authentication.conf': No such file or directory");
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("authentication.conf", "provider.conf"));
}

TEST_F(DamagedRecord, WithoutReadPermissionIsAnError) {
    ASSERT_EQ(chmod(kRecordFile, 0200), 0);
    const WithoutPrivileges ordinary;
    ExpectFromAllReaders<IOError>("Unable to open '/etc/nimbrel/nimauth/authentication.conf': Permission denied");
}

TEST_F(DamagedRecord, WithMegabytesOfOtherSettingsIsStillRead) {
    std::string contents;
    for (int i = 0; i < 50000; ++i) contents += "setting" + std::to_string(i) + " = \"" + std::string(40, 'x') + "\"\n";
    WriteSystemFile(kRecordFile, contents + kDirectoryRecord);
    EXPECT_TRUE(directory.IsActive());
    none.MakeActive();
    EXPECT_TRUE(none.IsActive());
    EXPECT_EQ(AuthenticationConfiguration().size(), 50001u);
}

TEST_F(DamagedRecord, ANameWithFormatCharactersIsOnlyText) {
    Record("%s%n'; rm -rf /\x1b[2J");
    EXPECT_EQ(TextOf<UnknownRemoteAuthenticationStoreException>([this] { none.MakeActive(); }),
              "The specified store '%s%n'; rm -rf /\x1b[2J' is unknown");
    EXPECT_TRUE(none.IsActive());
}

// The settings folder on a file system of its own, which then fails.
class UnwritableRecord : public DamagedRecord {
 protected:
    // Neither store can be made active, for this reason; the record says what it said, and no provider call was made.
    template <typename Matcher>
    void ExpectUnchanged(const Matcher& reason) {
        EXPECT_THAT(TextOf<IOError>([this] { none.MakeActive(); }), reason);
        EXPECT_THAT(TextOf<IOError>([this] { directory.MakeActive(); }), reason);
        EXPECT_EQ(ReadFile(kRecordFile), kDirectoryRecord);
        EXPECT_TRUE(directory.IsActive());
        EXPECT_THAT(Journal::Entries(), IsEmpty());
    }
};

TEST_F(UnwritableRecord, StaysOnAFullFileSystem) {
    const MountedOver settings(kSettingsFolder, "size=64k");
    Record("Active Directory");
    settings.Fill();
    ExpectUnchanged("Unable to write '/etc/nimbrel/nimauth/authentication.conf': No space left on device");
}

TEST_F(UnwritableRecord, StaysOnAFileSystemWithoutRoomForAnotherFile) {
    const MountedOver settings(kSettingsFolder, "nr_inodes=2");
    Record("Active Directory");
    ExpectUnchanged(
        "Unable to create temporary file to write '/etc/nimbrel/nimauth/authentication.conf': No space left on device");
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("authentication.conf"));
}

TEST_F(UnwritableRecord, StaysOnAReadOnlyFileSystem) {
    const MountedOver settings(kSettingsFolder, "size=64k");
    Record("Active Directory");
    settings.MakeReadOnly();
    ExpectUnchanged(
        "Unable to create temporary file to write '/etc/nimbrel/nimauth/authentication.conf': Read-only file system");
}

TEST_F(UnwritableRecord, StaysInAFolderWithoutWritePermission) {
    const MountedOver settings(kSettingsFolder, "mode=0555");
    Record("Active Directory");
    const WithoutPrivileges ordinary;
    ExpectUnchanged(
        "Unable to create temporary file to write '/etc/nimbrel/nimauth/authentication.conf': Permission denied");
}

TEST_F(UnwritableRecord, StaysWhereItIsAMountPoint) {
    // As a container engine lays a single file over the host's.
    const MountedOver settings(kSettingsFolder, "size=64k");
    Record("Active Directory");
    const MountedOnItself mounted(kRecordFile);
    ExpectUnchanged(AllOf(StartsWith("Unable to rename '/etc/nimbrel/nimauth/authentication.conf."),
                          EndsWith("to '/etc/nimbrel/nimauth/authentication.conf': Device or resource busy")));
}

}  // namespace
}  // namespace nimbrel::authentication::test
