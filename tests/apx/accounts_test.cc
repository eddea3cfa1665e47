// Who gets which account, who is refused, and what survives the service's death.

#include "services/apxd/accounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "apx/memory_back_end.h"
#include "support/temporary_folder.h"

namespace nimbrel::apxd::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::int64_t kStart = 1767225600;

class ApxdAccounts : public ::testing::Test {
 protected:
    // A service that was killed and started again knows what is in the ledger, and nothing else.
    void Restart(std::set<std::string> preStaged = {}) {
        accounts.reset();
        ledger.reset();
        ledger = std::make_unique<Ledger>(file);
        accounts = std::make_unique<Accounts>(backEnd, *ledger, std::move(preStaged), 3600, [this] { return now; });
    }
    Accounts::Result Ask(const std::string& name = "NODE01", const std::string& client = "192.0.2.10") {
        return accounts->HandOut({name, "Hosts", client});
    }
    std::uint32_t Status(const std::string& name = "NODE01", const std::string& client = "192.0.2.10") {
        try {
            Ask(name, client);
            return 0;
        } catch (const Refusal& refusal) {
            return refusal.Status();
        }
    }
    void Use(const std::string& name = "NODE01") { backEnd.accounts.at(name).waiting = false; }
    // The service is killed while the directory works.
    void KilledDuringCreate(const char* moment) {
        auto& hook = std::string(moment) == "before" ? backEnd.beforeCreate : backEnd.afterCreate;
        hook = [] { throw std::runtime_error("killed"); };
        EXPECT_THROW(Ask(), std::runtime_error);
        hook = nullptr;
        Restart();
    }

    const TemporaryFolder folder;
    const std::string file = folder / "ledger";
    std::int64_t now = kStart;
    MemoryBackEnd backEnd;
    std::unique_ptr<Ledger> ledger = std::make_unique<Ledger>(file);
    std::unique_ptr<Accounts> accounts =
        std::make_unique<Accounts>(backEnd, *ledger, std::set<std::string>(), 3600, [this] { return now; });
};

TEST_F(ApxdAccounts, NewNameIsCreated) {
    const Accounts::Result result = Ask();
    EXPECT_EQ(result.way, Accounts::Way::Created);
    EXPECT_EQ(result.account.accountName, "NODE01$");
    EXPECT_EQ(backEnd.accounts.at("NODE01").unit, "Hosts");
}

// By its mark the service knows an account as its own: nobody is to guess one.
TEST_F(ApxdAccounts, MarksAreDrawnFromAllHexadecimalDigits) {
    std::set<std::string> marks;
    std::array<std::set<char>, 32> digits;
    for (int i = 0; i < 500; ++i) {
        const std::string name = "NODE" + std::to_string(i);
        Ask(name);
        const std::string mark = backEnd.accounts.at(name).mark;
        ASSERT_THAT(mark, ::testing::SizeIs(32));
        for (std::size_t place = 0; place < mark.size(); ++place) digits[place].insert(mark[place]);
        EXPECT_TRUE(marks.insert(mark).second);
    }
    for (const auto& place : digits) EXPECT_EQ(std::string(place.begin(), place.end()), "0123456789abcdef");
}

TEST_F(ApxdAccounts, SameClientGetsAFreshSecretUntilItIsUsed) {
    const std::string first(Ask().account.oneTimeSecret.Text());
    const Accounts::Result second = Ask();
    EXPECT_EQ(second.way, Accounts::Way::Renewed);
    EXPECT_NE(second.account.oneTimeSecret.Text(), first);
    Use();
    EXPECT_EQ(Status(), kAccountExists);
}

TEST_F(ApxdAccounts, AnotherClientIsRefused) {
    Ask();
    EXPECT_EQ(Status("NODE01", "192.0.2.11"), kAccountExists);
    EXPECT_EQ(Status("NODE01", "192.0.2.10+certificate"), kAccountExists);
    EXPECT_EQ(Ask().way, Accounts::Way::Renewed);
}

TEST_F(ApxdAccounts, AForeignAccountIsNeverTakenOver) {
    backEnd.accounts["NODE01"] = {};
    EXPECT_EQ(Status(), kAccountExists);
    EXPECT_EQ(Status(), kAccountExists);
    EXPECT_EQ(backEnd.accounts.at("NODE01").secret, "");
}

TEST_F(ApxdAccounts, KilledAfterCreatingTheRetryIsServed) {
    KilledDuringCreate("after");
    ASSERT_EQ(backEnd.accounts.count("NODE01"), 1U);
    EXPECT_EQ(Status("NODE01", "192.0.2.11"), kAccountExists);
    EXPECT_EQ(Ask().way, Accounts::Way::Renewed);
}

TEST_F(ApxdAccounts, KilledBeforeCreatingTheRetryIsServed) {
    KilledDuringCreate("before");
    EXPECT_EQ(Ask().way, Accounts::Way::Created);
}

TEST_F(ApxdAccounts, KilledBeforeCreatingAndSomebodyElseCreatesItMeanwhile) {
    KilledDuringCreate("before");
    backEnd.accounts["NODE01"] = {};
    EXPECT_EQ(Status(), kAccountExists);
}

TEST_F(ApxdAccounts, TheTimeToAskAgainRunsOut) {
    Ask();
    now += 3600;
    EXPECT_EQ(Ask().way, Accounts::Way::Renewed);
    now += 3601;
    EXPECT_EQ(Status(), kAccountExists);
}

TEST_F(ApxdAccounts, ADeletedAccountIsCreatedAgain) {
    Ask();
    backEnd.accounts.clear();
    EXPECT_EQ(Ask().way, Accounts::Way::Created);
}

TEST_F(ApxdAccounts, PreStagedAccountGoesToOneClient) {
    backEnd.accounts["NODE07"] = {};
    EXPECT_EQ(Status("NODE07"), kAccountExists);
    Restart({"NODE07"});
    EXPECT_EQ(Ask("NODE07").way, Accounts::Way::TakenOver);
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), kAccountExists);
    Restart({"NODE07"});
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), kAccountExists);
    EXPECT_EQ(Ask("NODE07").way, Accounts::Way::Renewed);
    Use("NODE07");
    EXPECT_EQ(Status("NODE07"), kAccountExists);
}

TEST_F(ApxdAccounts, PreStagedButMissingIsToldAndLeavesNoClaim) {
    Restart({"NODE07"});
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), kNoSuchAccount);
    backEnd.accounts["NODE07"] = {};
    EXPECT_EQ(Ask("NODE07").way, Accounts::Way::TakenOver);
}

TEST_F(ApxdAccounts, PreStagedIsHandedOutAnewAfterItsNameLeftTheConfiguration) {
    backEnd.accounts["NODE07"] = {};
    Restart({"NODE07"});
    Ask("NODE07");
    ledger->Prune(0, {"NODE07"});
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), kAccountExists);
    ledger->Prune(0, {});
    EXPECT_EQ(Ask("NODE07", "192.0.2.11").way, Accounts::Way::TakenOver);
}

TEST_F(ApxdAccounts, OfManyClientsAtOnceOneGetsTheName) {
    std::atomic<int> granted = 0;
    std::vector<std::thread> clients;
    for (int client = 0; client < 8; ++client) {
        clients.emplace_back([&, client] { granted += Status("NODE01", "192.0.2." + std::to_string(client)) == 0; });
    }
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(granted, 1);
}

// --- The ledger ---

TEST_F(ApxdAccounts, NoSecretIsWritten) {
    backEnd.accounts["NODE07"] = {};
    Restart({"NODE07"});
    Ask();
    Ask();
    Ask("NODE07");
    EXPECT_THAT(ReadFile(file), HasSubstr("H NODE01 192.0.2.10 " + backEnd.accounts.at("NODE01").mark));
    EXPECT_THAT(ReadFile(file), Not(HasSubstr("a-secret")));
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(ApxdAccounts, RefusalThatMadeNothingLeavesNoEntry) {
    for (const std::uint32_t status : {2U, 5U, 267U, 1210U, 1316U, 1325U, 1326U, 1331U, 1398U, 1787U, 8557U}) {
        backEnd.beforeCreate = [=] { throw Refusal(status, "refused"); };
        EXPECT_EQ(Status(), status);
        EXPECT_FALSE(ledger->Find("NODE01", "192.0.2.10")) << status;
    }
    Restart();
    EXPECT_EQ(ReadFile(file), "nimbrel-apxd ledger 1\n");
}

TEST_F(ApxdAccounts, RefusalThatLeavesTheOutcomeOpenLeavesTheEntry) {
    for (const std::uint32_t status : {1355U, 1359U, 8U, 112U}) {
        backEnd.beforeCreate = [=] { throw Refusal(status, "interrupted"); };
        EXPECT_EQ(Status("NODE" + std::to_string(status)), status);
        EXPECT_TRUE(ledger->Find("NODE" + std::to_string(status), "192.0.2.10")) << status;
    }
}

// Whatever its status is: a controller that is busy, for one.
TEST_F(ApxdAccounts, RefusalThatTellsThatNothingWasChangedLeavesNoEntry) {
    Restart({"NODE07"});
    backEnd.accounts["NODE07"] = {};
    for (const std::uint32_t status : {1355U, 1359U, 8U}) {
        backEnd.beforeTakeOver = backEnd.beforeCreate = [=] { throw NothingChanged(status, "busy"); };
        EXPECT_EQ(Status("NODE07", "192.0.2.11"), status);
        EXPECT_EQ(Status("NODE01", "192.0.2.11"), status);
        EXPECT_EQ(ledger->TakenOverBy("NODE07"), "") << status;
        EXPECT_FALSE(ledger->Find("NODE01", "192.0.2.11")) << status;
    }
    backEnd.beforeTakeOver = nullptr;
    EXPECT_EQ(Ask("NODE07").way, Accounts::Way::TakenOver);
}

// The directory may have given it to that client before.
TEST_F(ApxdAccounts, ClaimOfAnOpenTakeOverOutlivesALaterRefusal) {
    Restart({"NODE07"});
    backEnd.accounts["NODE07"] = {};
    backEnd.beforeTakeOver = [] { throw Refusal(kNoSuchDomain, "interrupted"); };
    EXPECT_EQ(Status("NODE07"), kNoSuchDomain);
    backEnd.beforeTakeOver = [] { throw NothingChanged(kNoSuchDomain, "busy"); };
    EXPECT_EQ(Status("NODE07"), kNoSuchDomain);
    EXPECT_EQ(ledger->TakenOverBy("NODE07"), "192.0.2.10");
}

TEST_F(ApxdAccounts, RefusedTakeOverLeavesNoClaim) {
    Restart({"NODE07"});
    backEnd.accounts["NODE07"] = {};
    backEnd.beforeTakeOver = [] { throw Refusal(1331, "disabled"); };
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), 1331U);
    EXPECT_EQ(ledger->TakenOverBy("NODE07"), "");
    backEnd.beforeTakeOver = [] { throw Refusal(kNoSuchDomain, "interrupted"); };
    EXPECT_EQ(Status("NODE07", "192.0.2.10"), kNoSuchDomain);
    EXPECT_EQ(ledger->TakenOverBy("NODE07"), "192.0.2.10") << "it may be that client's by now";
    backEnd.beforeTakeOver = nullptr;
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), kAccountExists);
    EXPECT_EQ(Ask("NODE07").way, Accounts::Way::TakenOver);
}

// Else a pre-staged account would be that client's for good, and each try during an outage a line.
TEST_F(ApxdAccounts, NothingIsNotedForADirectoryThatIsNotAsked) {
    Restart({"NODE07"});
    backEnd.accounts["NODE07"] = {};
    const std::string before = ReadFile(file);
    backEnd.reachable = false;
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), kNoSuchDomain);
    EXPECT_EQ(Status("NODE01", "192.0.2.11"), kNoSuchDomain);
    EXPECT_EQ(ReadFile(file), before);
    backEnd.reachable = true;
    EXPECT_EQ(Ask("NODE07").way, Accounts::Way::TakenOver);
}

TEST_F(ApxdAccounts, DirectoryThatTurnsOutToBeOutOfReachLeavesNoEntry) {
    Restart({"NODE07"});
    backEnd.accounts["NODE07"] = {};
    backEnd.beforeTakeOver = backEnd.beforeCreate = [] { throw Unreachable("no controller answers"); };
    EXPECT_EQ(Status("NODE07", "192.0.2.11"), kNoSuchDomain);
    EXPECT_EQ(Status("NODE01", "192.0.2.11"), kNoSuchDomain);
    EXPECT_EQ(ledger->TakenOverBy("NODE07"), "");
    EXPECT_FALSE(ledger->Find("NODE01", "192.0.2.11"));
}

TEST_F(ApxdAccounts, LedgerIsUsedByOneProcessAtATime) {
    EXPECT_THROW(Ledger second(file), std::runtime_error);
    accounts.reset();
    ledger.reset();
    EXPECT_NO_THROW(Ledger second(file));
}

TEST_F(ApxdAccounts, ALineWithoutItsEndIsNotRead) {
    Ask();
    accounts.reset();
    ledger.reset();
    WriteFile(file, ReadFile(file) + "H NODE02 192.0.2.11 0123456789abcdef0123456789abcdef 17");
    Restart();
    EXPECT_TRUE(ledger->Find("NODE01", "192.0.2.10"));
    EXPECT_FALSE(ledger->Find("NODE02", "192.0.2.11"));
}

TEST_F(ApxdAccounts, AFileThatIsNoLedgerIsRefusedAndKept) {
    accounts.reset();
    ledger.reset();
    for (const char* const text :
         {"", "something else\n", "nimbrel-apxd ledger 1\nH NODE01\n", "nimbrel-apxd ledger 1\nX a b c 1\n"}) {
        WriteFile(file, text);
        EXPECT_THROW(Ledger damaged(file), std::runtime_error) << text;
        EXPECT_EQ(ReadFile(file), text);
    }
}

// --- The ledger by itself ---

const std::string kMark = "0123456789abcdef0123456789abcdef";

TEST(ApxdLedger, LinesAreThoseOfTheDocumentation) {
    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
    const std::string header = "nimbrel-apxd ledger 1\n";
    const std::string takenOver = "T NODE07 192.0.2.17 " + kMark + " 18\n";
    {
        Ledger ledger(path);
        EXPECT_EQ(ReadFile(path), header);
        ledger.Note("NODE01", "192.0.2.10", {kMark, 16, false});
        ledger.Note("NODE01", "192.0.2.10", {kMark, 17, false});
        ledger.Note("NODE07", "192.0.2.17", {kMark, 18, true});
        ledger.Forget("NODE01", "192.0.2.10");
        EXPECT_EQ(ReadFile(path), header + "H NODE01 192.0.2.10 " + kMark + " 16\nH NODE01 192.0.2.10 " + kMark +
                                      " 17\n" + takenOver + "F NODE01 192.0.2.10\n");
        EXPECT_FALSE(ledger.Find("NODE01", "192.0.2.10"));
    }
    const Ledger again(path);
    EXPECT_EQ(ReadFile(path), header + takenOver);
    const auto entry = again.Find("NODE07", "192.0.2.17");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->mark, kMark);
    EXPECT_EQ(entry->time, 18);
    EXPECT_TRUE(entry->takenOver);
    EXPECT_FALSE(again.Find("NODE07", "192.0.2.18"));
    for (const std::string& file : {path, path + ".lock"}) {
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600)) << file;
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(ApxdLedger, ClientThatHasTakenAnAccountOverIsFoundAmongOthers) {
    const TemporaryFolder folder;
    Ledger ledger(folder / "ledger");
    ledger.Note("NODE07", "192.0.2.1", {kMark, 1, false});
    ledger.Note("NODE07", "192.0.2.2", {kMark, 1, true});
    ledger.Note("NODE08", "192.0.2.3", {kMark, 1, true});
    ledger.Note("NODE09", "192.0.2.4", {kMark, 1, false});
    EXPECT_EQ(ledger.TakenOverBy("NODE07"), "192.0.2.2");
    EXPECT_EQ(ledger.TakenOverBy("NODE08"), "192.0.2.3");
    EXPECT_EQ(ledger.TakenOverBy("NODE09"), "");
    EXPECT_EQ(ledger.TakenOverBy("NODE0"), "");
}

TEST(ApxdLedger, PruningKeepsWhatIsYoungAndWhatIsPreStaged) {
    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
    Ledger ledger(path);
    ledger.Note("OLD", "c", {kMark, 4, false});
    ledger.Note("YOUNG", "c", {kMark, 5, false});
    ledger.Note("STAGED", "c", {kMark, 1, true});
    ledger.Note("GONE", "c", {kMark, 9, true});
    ledger.Prune(5, {"STAGED", "OLD"});
    EXPECT_EQ(ReadFile(path), "nimbrel-apxd ledger 1\nT STAGED c " + kMark + " 1\nH YOUNG c " + kMark + " 5\n");
}

TEST(ApxdLedger, WhatIsWrongWithTheFileIsTold) {
    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
    const auto errorOf = [](const std::string& file) -> std::string {
        try {
            Ledger ledger(file);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "(none)";
    };
    EXPECT_EQ(errorOf(folder / "missing/ledger"),
              "Unable to open '" + folder / "missing/ledger.lock" + "': No such file or directory");
    for (const std::string line : {"H NODE01", "H NODE01 c m", "H NODE01 c m x", "T NODE01 c m", "X NODE01 c m 1",
                                   "F NODE01", "F", "", "HH NODE01 c m 1"}) {
        WriteFile(path, "nimbrel-apxd ledger 1\n" + line + "\n");
        EXPECT_EQ(errorOf(path), path + ": damaged: " + line);
    }
    WriteFile(path, "nimbrel-apxd ledger 2\n");
    EXPECT_EQ(errorOf(path), path + ": not a ledger");
    std::filesystem::remove(path);
    const Ledger first(path);
    EXPECT_EQ(errorOf(path), path + ": in use by another process");
}

TEST_F(ApxdAccounts, OldEntriesAreDropped) {
    Ask();
    now += 10;
    Ask("NODE02");
    ledger->Prune(kStart + 5, {});
    EXPECT_FALSE(ledger->Find("NODE01", "192.0.2.10"));
    Restart();
    EXPECT_TRUE(ledger->Find("NODE02", "192.0.2.10"));
    EXPECT_THAT(ReadFile(file), Not(HasSubstr("NODE01")));
}

}  // namespace
}  // namespace nimbrel::apxd::test
