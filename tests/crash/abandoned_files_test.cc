// What a killed process left beside a file is removed, and nothing else is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "crash/locked_file.h"
#include "embeddeddirectory/membership.h"
#include "support/temporary_folder.h"
#include "sysnet/hosts_file.h"

namespace nimbrel::crash {
namespace {

using ::testing::Test;
using ::testing::UnorderedElementsAre;

class AbandonedFiles : public Test {
 protected:
    void ReplaceHosts() const {
        SysNet::Network::HostsFile(folder.Path("hosts")).AddOrReplaceEntry("192.0.2.10", "node01.corp.test", {});
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
        const LockedFile maker(folder.Path("membership.db.lock"));
        WriteMembership();
        EXPECT_THAT(folder.Names(),
                    UnorderedElementsAre("membership.db", "membership.db.lock", "membership.db.new.aaaaaa"));
    }
    WriteMembership();
    EXPECT_THAT(folder.Names(), UnorderedElementsAre("membership.db"));
}

}  // namespace
}  // namespace nimbrel::crash
