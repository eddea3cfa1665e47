// What a killed process left of a new configuration store is removed, and nothing else is.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "crash/locked_file.h"
#include "platform/orbconfigstore/src/sqlite_store.h"
#include "support/temporary_folder.h"

namespace nimbrel::crash {
namespace {

using ::testing::UnorderedElementsAre;

class AbandonedStore : public ::testing::Test {
 protected:
    void WriteStore() const {
        const OrbConfigStore::ConfigStoreObjectId id("key", "group", "component");
        std::uint32_t word = 0;
        OrbConfigStore::SqliteStore(folder.Path("configstore.db"), "global")
            .SetObject(std::make_shared<OrbConfigStore::ConfigStoreObject>(id), word);
    }

    const TemporaryFolder folder;
};

TEST_F(AbandonedStore, NewFilesAreRemovedUnlessSomebodyIsAtThem) {
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

TEST_F(AbandonedStore, FirstNameOfTheStoreIsRemoved) {
    WriteStore();
    std::filesystem::create_hard_link(folder.Path("configstore.db"), folder.Path("configstore.db.new.aaaaaa"));
    WriteStore();
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("configstore.db"));
}

}  // namespace
}  // namespace nimbrel::crash
