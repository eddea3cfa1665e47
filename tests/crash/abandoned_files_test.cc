// What a killed process left beside a file is removed, and nothing else is.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "embeddeddirectory/membership.h"
#include "platform/orbconfigstore/src/sqlite_store.h"
#include "sysnet/hosts_file.h"
#include "unit/temporary_folder.h"

namespace nimbrel::crash {
namespace {

using ::testing::Test;
using ::testing::UnorderedElementsAre;

// A file of the name that is locked, as the one who makes it holds it.
class LockedFile {
 public:
    explicit LockedFile(const std::string& path) : _fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        EXPECT_EQ(0, flock(_fd, LOCK_EX | LOCK_NB)) << path;
    }
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;
    ~LockedFile() { close(_fd); }

 private:
    int _fd;
};

class AbandonedFiles : public Test {
 protected:
    void ReplaceHosts() const {
        SysNet::Network::HostsFile(folder.Path("hosts")).AddOrReplaceEntry("192.0.2.10", "node01.corp.test", {});
    }

    void WriteStore() const {
        const OrbConfigStore::ConfigStoreObjectId id("key", "group", "component");
        std::uint32_t word = 0;
        OrbConfigStore::SqliteStore(folder.Path("configstore.db"), "global")
            .SetObject(std::make_shared<OrbConfigStore::ConfigStoreObject>(id), word);
    }

    void WriteMembership() const {
        embedded::Membership::Open(folder.Path("membership.db")).SetSmartCardServices({"login"});
    }

    const TemporaryFolder folder;
};

TEST_F(AbandonedFiles, OfTheHostsFileAreRemovedUnlessSomebodyIsAtThem) {
    folder.Put("hosts", "127.0.0.1 localhost\n");
    folder.Put(".hosts.nimauth-aaaaaa", "half a f");
    folder.Put(".hosts.bbbbbb", "another program's");
    const LockedFile live(folder.Path(".hosts.nimauth-cccccc"));
    ReplaceHosts();
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("hosts", ".hosts.bbbbbb", ".hosts.nimauth-cccccc"));
}

TEST_F(AbandonedFiles, OfANewConfigurationStoreAreRemovedUnlessSomebodyIsAtThem) {
    for (const char* const name : {"configstore.db.new.aaaaaa", "configstore.db.new.aaaaaa-journal",
                                   "configstore.db.new.bbbbbb-wal", "configstore.db.backup"}) {
        folder.Put(name, "");
    }
    const LockedFile live(folder.Path("configstore.db.new.cccccc"));
    folder.Put("configstore.db.new.cccccc-wal", "");
    WriteStore();
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("configstore.db", "configstore.db.backup",
                                                     "configstore.db.new.cccccc", "configstore.db.new.cccccc-wal"));
}

TEST_F(AbandonedFiles, FirstNameOfTheConfigurationStoreIsRemoved) {
    WriteStore();
    std::filesystem::create_hard_link(folder.Path("configstore.db"), folder.Path("configstore.db.new.aaaaaa"));
    WriteStore();
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("configstore.db"));
}

TEST_F(AbandonedFiles, OfANewDatabaseOfTheEmbeddedDirectoryAreRemoved) {
    for (const char* const name :
         {"membership.db.new.aaaaaa", "membership.db.new.aaaaaa-journal", "membership.db.backup"}) {
        folder.Put(name, "");
    }
    WriteMembership();
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("membership.db", "membership.db.backup"));
}

TEST_F(AbandonedFiles, FirstNameOfADatabaseIsRemovedUnlessItsMakerIsAtIt) {
    WriteMembership();
    std::filesystem::create_hard_link(folder.Path("membership.db"), folder.Path("membership.db.new.aaaaaa"));
    {
        const int maker = open(folder.Path("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_EQ(0, flock(maker, LOCK_EX | LOCK_NB));
        WriteMembership();
        EXPECT_THAT(folder.Names(), UnorderedElementsAre("membership.db", "membership.db.new.aaaaaa"));
        close(maker);
    }
    WriteMembership();
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("membership.db"));
}

}  // namespace
}  // namespace nimbrel::crash
