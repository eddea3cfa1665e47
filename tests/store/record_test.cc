// Which store is active: reading the record, and making the local-only store active, with stores that need no provider.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

#include "authentication/configuration.h"
#include "authentication/exceptions.h"
#include "authentication/store_factory.h"
#include "authentication/stores.h"
#include "store/journal.h"
#include "store/root.h"
#include "store/thrown.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

void WriteDown(const std::string& what) { Journal::Add(what + ", record: " + ReadFile(kRecordFile)); }

// A remote store that tells the journal of its life, with the record as it is then.
class Remote : public RemoteAuthenticationStore {
 public:
    Remote() { WriteDown("made"); }
    ~Remote() override { WriteDown("destroyed"); }
    StoreConfiguration* GetStoreConfiguration() const override { return new StoreConfiguration; }
    std::string GetDisplayName() const override { return "Remote"; }
    void MakeActive() override { Journal::Add("made active"); }
    void MakeInactive() override { WriteDown("made inactive"); }
};

class Stubborn : public Remote {
    void MakeInactive() override { throw std::domain_error("not now"); }
};

class Unmakeable : public Remote {
 public:
    Unmakeable() { throw IOError("no provider"); }
};

// A store, but not a remote one.
class Local : public AuthenticationStore {
 public:
    ~Local() override { WriteDown("destroyed"); }
    StoreConfiguration* GetStoreConfiguration() const override { return new StoreConfiguration; }
    std::string GetDisplayName() const override { return "Local"; }
    bool IsActive() const override { return false; }
    void MakeActive() override { Journal::Add("made active"); }
};

std::unique_ptr<AuthenticationStore> MakeNothing() { return nullptr; }

class StoreRecord : public ::testing::Test {
 protected:
    static void SetUpTestSuite() {
        auto& factory = *Singleton<AuthenticationStoreFactory>::_instance;
        factory.RegisterType("Remote", Constructor<Remote>);
        factory.RegisterType("Stubborn", Constructor<Stubborn>);
        factory.RegisterType("Unmakeable", Constructor<Unmakeable>);
        factory.RegisterType("Local", Constructor<Local>);
        factory.RegisterType("Nothing", MakeNothing);
    }

    void SetUp() override {
        Remove(kSettingsFolder);
        Record("None");
        Journal::Clear();
    }

    static std::string Recorded() { return AuthenticationConfiguration()["remote-authentication-store"]; }

    NoRemoteAuthenticationStore none;
};

TEST_F(StoreRecord, NamesTheActiveStore) {
    const Remote remote;
    EXPECT_TRUE(none.IsActive());
    EXPECT_FALSE(remote.IsActive());
    Record("Remote");
    EXPECT_FALSE(none.IsActive());
    EXPECT_TRUE(remote.IsActive());
}

TEST_F(StoreRecord, IsReadAnewEachTimeSoThatTwoObjectsAgree) {
    const NoRemoteAuthenticationStore other;
    Record("LDAP");
    EXPECT_FALSE(none.IsActive());
    EXPECT_FALSE(other.IsActive());
    Record("None");
    EXPECT_TRUE(none.IsActive());
    EXPECT_TRUE(other.IsActive());
}

TEST_F(StoreRecord, IsComparedByteForByte) {
    for (const char* record : {"none", "NONE", "None ", " None", "Non", "Nonee", "", "None\r", "N\xC3\xB6ne"}) {
        Record(record);
        EXPECT_FALSE(none.IsActive()) << "'" << record << "'";
    }
}

TEST_F(StoreRecord, MayBeWrittenInAnyFormOfTheFile) {
    for (const char* line : {"remote-authentication-store=None", "'remote-authentication-store' = 'None'",
                             "\n \n\tremote-authentication-store\t=\t\"None\"\t",
                             "a=b\nremote-authentication-store=None\nremote-authentication-store=Remote\n"}) {
        WriteSystemFile(kRecordFile, line);
        EXPECT_TRUE(none.IsActive()) << line;
    }
}

TEST_F(StoreRecord, ThatNamesNoneAlreadyIsNotTouched) {
    const struct stat before = StatusOfFile(kRecordFile);
    none.MakeActive();
    const struct stat after = StatusOfFile(kRecordFile);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("authentication.conf"));
    EXPECT_THAT(Journal::Entries(), IsEmpty());
}

TEST_F(StoreRecord, IsChangedBeforeTheEarlierStoreIsMadeInactiveThroughANewObject) {
    Record("Remote");
    none.MakeActive();
    const std::string record = ", record: remote-authentication-store = \"None\"\n";
    EXPECT_THAT(Journal::Entries(), ElementsAre("made" + record, "made inactive" + record, "destroyed" + record));
}

TEST_F(StoreRecord, KeepsOtherSettingsAndPermissions) {
    WriteSystemFile(kRecordFile, "z = 1\nremote-authentication-store = Remote\nz = 2\na = ' x '\n");
    ASSERT_EQ(chmod(kRecordFile, 0640), 0);
    none.MakeActive();
    EXPECT_EQ(ReadFile(kRecordFile), "a = \" x \"\nremote-authentication-store = \"None\"\nz = \"1\"\n");
    EXPECT_EQ(StatusOfFile(kRecordFile).st_mode & 07777u, 0640u);
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("authentication.conf"));
}

TEST_F(StoreRecord, OfAnUnknownStoreIsRepairedByTheFirstCall) {
    Record("LDAP");
    EXPECT_EQ(TextOf<UnknownRemoteAuthenticationStoreException>([&] { none.MakeActive(); }),
              "The specified store 'LDAP' is unknown");
    EXPECT_EQ(Recorded(), "None");
    const ino_t repaired = StatusOfFile(kRecordFile).st_ino;
    none.MakeActive();
    EXPECT_EQ(StatusOfFile(kRecordFile).st_ino, repaired);
}

TEST_F(StoreRecord, InAnotherLetterCaseIsAnUnknownStore) {
    Record("none");
    EXPECT_FALSE(none.IsActive());
    EXPECT_EQ(TextOf<UnknownRemoteAuthenticationStoreException>([&] { none.MakeActive(); }),
              "The specified store 'none' is unknown");
    EXPECT_TRUE(none.IsActive());
}

TEST_F(StoreRecord, ThatIsEmptyIsAnUnknownStore) {
    Record("");
    EXPECT_EQ(TextOf<UnknownRemoteAuthenticationStoreException>([&] { none.MakeActive(); }),
              "The specified store '' is unknown");
    EXPECT_TRUE(none.IsActive());
}

TEST_F(StoreRecord, OfAStoreWhoseConstructorMakesNothingIsAnUnknownStore) {
    Record("Nothing");
    EXPECT_EQ(TextOf<UnknownRemoteAuthenticationStoreException>([&] { none.MakeActive(); }),
              "The specified store 'Nothing' is unknown");
    EXPECT_TRUE(none.IsActive());
}

TEST_F(StoreRecord, OfAStoreThatIsNotRemoteIsInvalidAndTheStoreIsDestroyed) {
    Record("Local");
    EXPECT_EQ(TextOf<InvalidRemoteAuthenticationStoreException>([&] { none.MakeActive(); }),
              "The specified store 'Local' is invalid");
    EXPECT_TRUE(none.IsActive());
    EXPECT_THAT(Journal::Entries(), ElementsAre("destroyed, record: remote-authentication-store = \"None\"\n"));
}

TEST_F(StoreRecord, StaysNoneWhenTheEarlierStoreRefusesToBecomeInactive) {
    Record("Stubborn");
    EXPECT_EQ(TextOf<std::domain_error>([&] { none.MakeActive(); }), "not now");
    const std::string record = ", record: remote-authentication-store = \"None\"\n";
    EXPECT_THAT(Journal::Entries(), ElementsAre("made" + record, "destroyed" + record));
}

TEST_F(StoreRecord, StaysNoneWhenTheEarlierStoreCannotBeMade) {
    Record("Unmakeable");
    EXPECT_EQ(TextOf<IOError>([&] { none.MakeActive(); }), "no provider");
    EXPECT_TRUE(none.IsActive());
}

TEST_F(StoreRecord, IsNotReadWhenNoneRefusesToBecomeInactive) {
    for (const char* record : {"None", "Remote"}) {
        Record(record);
        EXPECT_EQ(TextOf<std::runtime_error>([&] { none.MakeInactive(); }), "Attempted to disable None Store");
        EXPECT_EQ(Recorded(), record);
    }
    Remove(kSettingsFolder);
    EXPECT_EQ(TextOf<std::runtime_error>([&] { none.MakeInactive(); }), "Attempted to disable None Store");
}

TEST_F(StoreRecord, IsWholeForAReaderWhileTwoActivationsRace) {
    std::atomic<bool> reading = true;
    std::thread reader([&] {
        while (reading) EXPECT_NO_THROW(none.IsActive());
    });
    const auto activate = [] {
        for (int i = 0; i < 100; ++i) {
            AuthenticationConfiguration configuration;
            configuration["remote-authentication-store"] = "Remote";
            configuration.Write();
            NoRemoteAuthenticationStore().MakeActive();
        }
    };
    std::thread one(activate);
    std::thread other(activate);
    one.join();
    other.join();
    reading = false;
    reader.join();
    EXPECT_TRUE(none.IsActive());
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("authentication.conf"));
}

}  // namespace
}  // namespace nimbrel::authentication::test
