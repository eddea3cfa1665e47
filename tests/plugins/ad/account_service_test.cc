// Machine accounts made for other hosts.

#include "addirectory/account_service.h"

#include <gmock/gmock.h>

#include <chrono>
#include <utility>

#include "controller_locator.h"
#include "joining_host.h"
#include "keytab.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::IsEmpty;

constexpr char kMark[] = "0123456789abcdef0123456789abcdef";
constexpr char kOtherMark[] = "ffffffffffffffffffffffffffffffff";

class Accounts : public JoiningHost {
 protected:
    Accounts() {
        KeytabChange keys(_keytab);
        keys.SetKeys({"APX01", "corp.test", 1}, kit::Secret("service"));
        keys.Commit();
        corp.keys.SetPassword("APX01$", "service", MachineSalt("APX01", "corp.test"));
    }

    AccountService Service() const { return {settings, {"corp.test", "APX01$", _keytab}}; }
    std::uint32_t CreateStatus(const std::string& name, const std::string& mark = kMark) {
        return StatusOf([&] { Service().Create(name, "", mark); });
    }
    std::uint32_t RenewStatus(const std::string& mark = kMark) {
        return StatusOf([&] { Service().Renew("NODE01", mark); });
    }
    std::uint32_t TakeOverStatus() {
        return StatusOf([&] { Service().TakeOver("NODE01", kMark); });
    }
    void SetAttribute(const std::string& name, const std::string& value) {
        corp.entries.Put(kAccount, {{name, {value}}});
    }
    // As if it had been made long ago, and its secret set since.
    void MakeOld() { corp.entries.Put(Account()->name, {{"whenCreated", {"20250101000000.0Z"}}}); }
    // Breaks the connection at one of the requests to the controller, which carries it out before that or does not. False
    // if the call was over before.
    template <class Call>
    bool InterruptedAt(int step, bool carriedOut, const Call& call) {
        int asked = 0;
        corp.controller.SetBehave([&](const std::string& operation, const std::string& name) {
            // A search without a name opens the session; it is tried again.
            const bool counts = operation == "add" || operation == "modify" || (operation == "search" && !name.empty());
            return counts && ++asked >= step ? Behaviour::HangsUp : Behaviour::Answers;
        });
        corp.controller.SetRefuse([&](const std::string& operation, const std::string&) {
            const bool changes = operation == "add" || operation == "modify";
            const bool refused = changes && !carriedOut && asked >= step;
            return refused ? std::optional(Result{kUnavailable, ""}) : std::nullopt;
        });
        const std::uint32_t status = StatusOf(call);
        corp.controller.SetBehave(nullptr);
        corp.controller.SetRefuse(nullptr);
        EXPECT_EQ(status != 0, asked >= step) << step;
        return asked >= step;
    }
    std::uint32_t JoinWith(const HandedOutAccount& account) {
        return StatusOf([&] {
            TheHost().JoinWithMachineAccount(
                {"node01", "corp.test", "CORP", "", account.accountName, account.oneTimeSecret.View()});
        });
    }

    // Nothing can be read any more once such a request has come.
    void RefuseAfter(const std::string& change, int code) {
        corp.controller.SetRefuse([=, changed = false](const std::string& operation, const std::string& name) mutable {
            changed = changed || operation == change;
            const bool refused = changed && operation == "search" && !name.empty();
            return refused ? std::optional(Result{code, ""}) : std::nullopt;
        });
    }

    // What the call's failure tells about the accounts.
    enum class Failure { None, ChangedNothing, Open };
    template <class Call>
    static Failure FailureOf(const Call& call) {
        try {
            call();
        } catch (const UnchangedError&) {
            return Failure::ChangedNothing;
        } catch (const AdError&) {
            return Failure::Open;
        }
        return Failure::None;
    }
    Failure Creating() {
        return FailureOf([&] { Service().Create("NODE02", "", kMark); });
    }
    Failure TakingOver() {
        return FailureOf([&] { Service().TakeOver("NODE01", kMark); });
    }

    static constexpr int kReferral = 10;
    static constexpr int kNoSuchObject = 32;
    static constexpr int kBusy = 51;
    static constexpr int kUnavailable = 52;
    static constexpr int kUnwilling = 53;

    const std::string _keytab = Path("service.keytab");
};

TEST_F(Accounts, ServiceKnowsItsDomain) {
    const ServiceDomain domain = Service().Domain();
    EXPECT_EQ(domain.dnsName, "corp.test");
    EXPECT_EQ(domain.netbiosName, "CORP");
    EXPECT_EQ(domain.sid, "S-1-5-21-1-2-3");
}

TEST_F(Accounts, KeytabIsLookedAtBeforeAnybodyIsAsked) {
    const auto errorWith = [this](const std::string& keytab, const std::string& account = "APX01$") -> std::string {
        try {
            AccountService(settings, {"Corp.test", account, keytab}).RequireKey();
        } catch (const AdError& error) {
            EXPECT_EQ(error.Status(), kStatusBadConfiguration);
            return error.what();
        }
        return "in order";
    };
    EXPECT_EQ(errorWith(_keytab), "in order");
    const std::string start = "The keytab '" + _keytab + "' cannot be used: ";
    EXPECT_EQ(errorWith(_keytab, "apxd"), start + "it holds no AES key of 'apxd@CORP.TEST'");
    EXPECT_EQ(errorWith(Folder()), "The keytab '" + Folder() + "' cannot be used: it is no file");
    EXPECT_EQ(errorWith(_keytab + ".gone"),
              "The keytab '" + _keytab + ".gone' cannot be used: No such file or directory");
    for (const std::string& text : {std::string(), std::string("no keytab"), ReadFile(_keytab).substr(0, 9)}) {
        WriteFile(_keytab, text);
        EXPECT_THAT(errorWith(_keytab), ::testing::StartsWith(start)) << text.size();
    }
    EXPECT_TRUE(corp.controller.Requests().empty());
}

TEST_F(Accounts, CreatedAccountIsGoodForOneJoin) {
    const HandedOutAccount account = Service().Create("node01.corp.test", "Hosts", kMark);
    EXPECT_EQ(account.accountName, "NODE01$");
    EXPECT_EQ(Account()->name, "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    EXPECT_EQ(Account()->Text("admindescription"), std::string("nimauth:") + kMark + ":1");
    EXPECT_EQ(Account()->Text("operatingsystem"), "") << "the host's to tell";
    EXPECT_EQ(JoinWith(account), 0U);
}

TEST_F(Accounts, CreatingRefusesWhatItMust) {
    EXPECT_EQ(CreateStatus("NODE01", "mark"), kStatusInvalidParameter);
    EXPECT_EQ(CreateStatus("NODE01", std::string(32, 'A')), kStatusInvalidParameter);
    EXPECT_EQ(CreateStatus("no good"), kStatusInvalidComputerName);
    MakeAccount();
    EXPECT_EQ(CreateStatus("NODE01"), kStatusAccountExists);
    corp.keys.Remove("APX01$");
    EXPECT_EQ(CreateStatus("NODE02"), kStatusLogonFailure);
}

TEST_F(Accounts, UnusedAccountIsRenewed) {
    Service().Create("NODE01", "", kMark);
    const HandedOutAccount account = Service().Renew("NODE01", kMark);
    EXPECT_EQ(Account()->Text("admindescription"), std::string("nimauth:") + kMark + ":2");
    EXPECT_EQ(JoinWith(account), 0U);
    EXPECT_EQ(RenewStatus(), kStatusAccountExists) << "a host has joined with it";
}

TEST_F(Accounts, RenewingRefusesAccountsOfOthers) {
    EXPECT_EQ(RenewStatus(), kStatusNoSuchAccount);
    MakeAccount();
    EXPECT_EQ(RenewStatus(), kStatusAccountExists) << "without a mark";
    corp.entries.Delete(kAccount, true);
    Service().Create("NODE01", "", kMark);
    EXPECT_EQ(RenewStatus(kOtherMark), kStatusAccountExists);
}

// The maker was interrupted between making the account and noting its key version.
TEST_F(Accounts, MarkWithoutAKeyVersionCountsWhileTheSecretIsTheFirst) {
    MakeAccount({{"adminDescription", {std::string("nimauth:") + kMark}}, {"msDS-KeyVersionNumber", {"1"}}});
    EXPECT_EQ(RenewStatus(), kStatusAccountExists) << "it is not known when it was made";
    SetAttribute("whenCreated", "20261121054300.0Z");
    EXPECT_EQ(RenewStatus(), kStatusAccountExists) << "nor when its secret was set";
    SetAttribute("pwdLastSet", "134397133820000000");  // 05:43:02
    EXPECT_EQ(RenewStatus(), kStatusAccountExists) << "set again later";
    SetAttribute("pwdLastSet", "134397133810000000");  // 05:43:01
    EXPECT_EQ(RenewStatus(), 0U);
}

TEST_F(Accounts, RenewalMayBeInterruptedAnywhere) {
    for (const bool carriedOut : {false, true}) {
        Service().Create("NODE01", "", kMark);
        MakeOld();
        int step = 1;
        for (; InterruptedAt(step, carriedOut, [&] { Service().Renew("NODE01", kMark); }); ++step) {
            MakeOld();
            EXPECT_EQ(RenewStatus(), 0U) << "after request " << step << (carriedOut ? ", carried out" : "");
        }
        EXPECT_GT(step, 3) << "looked for, changed, looked at";
        EXPECT_EQ(JoinWith(Service().Renew("NODE01", kMark)), 0U);
        EXPECT_EQ(RenewStatus(), kStatusAccountExists);
        corp.entries.Delete(Account()->name, true);
        std::filesystem::remove(settings.membership);
    }
}

TEST_F(Accounts, TakeOverMayBeInterruptedAnywhere) {
    for (const bool carriedOut : {false, true}) {
        bool interrupted = true;
        for (int step = 1; interrupted; ++step) {
            MakeAccount({{"msDS-KeyVersionNumber", {"2"}}});
            MakeOld();
            interrupted = InterruptedAt(step, carriedOut, [&] { Service().TakeOver("NODE01", kMark); });
            MakeOld();
            // As the service goes on: what it has noted first.
            const bool isNoted = RenewStatus() == 0;
            EXPECT_TRUE(isNoted || TakeOverStatus() == 0)
                << "after request " << step << (carriedOut ? ", carried out" : "");
            EXPECT_EQ(JoinWith(Service().Renew("NODE01", kMark)), 0U);
            corp.entries.Delete(kAccount, true);
            std::filesystem::remove(settings.membership);
        }
    }
}

// To the caller every refusal with a status of its own says that nothing was made.
TEST_F(Accounts, AccountThatWasMadeButNotMarkedWholeIsNoPlainRefusal) {
    Refuse("modify", {kInsufficientAccess, ""});
    EXPECT_EQ(CreateStatus("NODE01"), kStatusInternalError);
    Refuse("modify", {}, 0);
    EXPECT_EQ(RenewStatus(), 0U);
}

TEST_F(Accounts, AccountThatWasChangedButCannotBeReadIsNoPlainRefusal) {
    for (const int code : {kInsufficientAccess, kNoSuchObject}) {
        RefuseAfter("add", code);
        EXPECT_EQ(CreateStatus("NODE01"), kStatusInternalError) << code;
        RefuseAfter("modify", code);
        EXPECT_EQ(RenewStatus(), kStatusInternalError) << code;
        corp.controller.SetRefuse(nullptr);
        EXPECT_EQ(RenewStatus(), 0U) << "its mark is there";
        corp.entries.Delete(Account()->name, true);
    }
}

TEST_F(Accounts, OnlyThatNobodyCanBeAskedIsUnreachable) {
    const auto isUnreachable = [this] {
        try {
            Service().Create("NODE01", "", kMark);
            ADD_FAILURE() << "made";
        } catch (const UnreachableError& error) {
            EXPECT_EQ(error.Status(), kStatusNoSuchDomain);
            return true;
        } catch (const AdError& error) {
            EXPECT_EQ(error.Status(), kStatusNoSuchDomain);
        }
        return false;
    };
    const auto patience = std::exchange(settings.controllerBudget, std::chrono::milliseconds(100));
    Behave("ping", Behaviour::Vanishes);
    EXPECT_TRUE(isUnreachable());
    settings.controllerBudget = patience;
    // Broken off at the look, and at the change.
    for (const char* const question : {"search", "add"}) {
        corp.controller.SetBehave([=](const std::string& operation, const std::string& name) {
            return operation == question && !name.empty() ? Behaviour::HangsUp : Behaviour::Answers;
        });
        EXPECT_FALSE(isUnreachable()) << question;
    }
}

TEST_F(Accounts, FailureBeforeAChangeHasChangedNothing) {
    MakeAccount();
    const auto fail = [this] {
        EXPECT_EQ(Creating(), Failure::ChangedNothing);
        EXPECT_EQ(TakingOver(), Failure::ChangedNothing);
    };
    corp.controller.SetBehave([](const std::string& operation, const std::string& name) {
        return operation == "search" && !name.empty() ? Behaviour::HangsUp : Behaviour::Answers;
    });
    fail();
    corp.controller.SetBehave(nullptr);
    for (const int code : {kReferral, kBusy, kUnavailable, kUnwilling}) {
        RefuseAfter("bind", code);
        fail();
    }
    corp.controller.SetRefuse(nullptr);
    corp.keys.Remove("APX01$");
    fail();
}

TEST_F(Accounts, ChangeThatIsRefusedHasChangedNothing) {
    MakeAccount();
    for (const int code : {kReferral, kBusy, kUnavailable, kUnwilling, kInsufficientAccess}) {
        Refuse("add", {code, ""});
        EXPECT_EQ(Creating(), Failure::ChangedNothing) << code;
        Refuse("modify", {code, ""});
        EXPECT_EQ(TakingOver(), Failure::ChangedNothing) << code;
    }
    Refuse("", {}, 0);
    EXPECT_EQ(TakingOver(), Failure::None);
}

TEST_F(Accounts, ChangeWithoutAnAnswerIsOpen) {
    MakeAccount();
    Behave("add", Behaviour::HangsUp);
    EXPECT_EQ(Creating(), Failure::Open);
    Behave("modify", Behaviour::HangsUp);
    EXPECT_EQ(TakingOver(), Failure::Open);
}

// --- With a second controller, that the DNS names after the first ---

class AccountsAtTwo : public Accounts {
 protected:
    AccountsAtTwo() {
        settings.avoidance = std::chrono::seconds(60);
        corp.names->AddService("_ldap._tcp.dc._msdcs.corp.test", "dc2.corp.test", {.priority = 10});
        BeginAnew();
    }
    ~AccountsAtTwo() override { BeginAnew(); }

    // Nobody is avoided, and the first is in use.
    void BeginAnew() const {
        Settings forgetting = settings;
        forgetting.avoidance = std::chrono::seconds(0);
        for (const char* name : {"dc1.corp.test", "dc2.corp.test"}) AvoidController(forgetting, name);
        LocateController(settings, "corp.test", {"dc1.corp.test"}, Deadline::After(std::chrono::seconds(20)));
    }
    // The first call fails at the first controller, and the next one does not.
    template <class Call>
    void ExpectAnotherIsAsked(const Call& call) {
        EXPECT_EQ(StatusOf(call), kStatusNoSuchDomain);
        EXPECT_EQ(StatusOf(call), 0U);
        BeginAnew();
        corp.entries.Delete(kAccount, true);
    }

    const std::unique_ptr<TestController> second = corp.MakeController("dc2.corp.test", "127.0.0.2");
};

TEST_F(AccountsAtTwo, OneThatAnswersNoQuestionIsAskedOnce) {
    const auto ask = [this] {
        ExpectAnotherIsAsked([this] { Service().Create("NODE01", "", kMark); });
        MakeAccount();
        ExpectAnotherIsAsked([this] { Service().TakeOver("NODE01", kMark); });
        ExpectAnotherIsAsked([this] { Service().Domain(); });
    };
    corp.controller.SetBehave([](const std::string& operation, const std::string& name) {
        return operation == "search" && !name.empty() ? Behaviour::HangsUp : Behaviour::Answers;
    });
    ask();
    corp.controller.SetBehave(nullptr);
    for (const int code : {kBusy, kUnavailable}) {
        RefuseAfter("bind", code);
        ask();
    }
}

TEST_F(AccountsAtTwo, OneThatRefusesChangesIsAskedOnce) {
    for (const int code : {kBusy, kUnavailable, kReferral}) {
        Refuse("add", {code, ""});
        ExpectAnotherIsAsked([this] { Service().Create("NODE01", "", kMark); });
        MakeAccount();
        Refuse("modify", {code, ""});
        ExpectAnotherIsAsked([this] { Service().TakeOver("NODE01", kMark); });
    }
}

// The other one need not know of the account yet.
TEST_F(AccountsAtTwo, AccountWhoseAnswerWasLostIsLookedForWhereItWasMade) {
    Behave("add", Behaviour::HangsUp);
    EXPECT_EQ(CreateStatus("NODE01"), kStatusNoSuchDomain);
    for (const char* step : {"search", "modify"}) {
        corp.controller.SetBehave([step](const std::string& operation, const std::string& name) {
            return operation == step && !name.empty() ? Behaviour::HangsUp : Behaviour::Answers;
        });
        EXPECT_EQ(RenewStatus(), kStatusNoSuchDomain) << step;
    }
    corp.controller.SetBehave(nullptr);
    EXPECT_EQ(RenewStatus(), 0U);
    EXPECT_THAT(second->Requests(), IsEmpty());
}

TEST_F(Accounts, ChangesGoToAControllerThatTakesThem) {
    const auto second = corp.MakeController("dc2.corp.test", "127.0.0.2");
    corp.names->AddService("_ldap._tcp.dc._msdcs.corp.test", "dc2.corp.test", {.priority = 10});
    // The first one is read-only.
    corp.controller.SetChangePing([](std::string reply) {
        reply[5] = static_cast<char>(reply[5] & ~1);
        return reply;
    });
    EXPECT_EQ(CreateStatus("NODE01"), 0U);
    EXPECT_THAT(corp.controller.Requests(), ::testing::Not(::testing::Contains("bind ")));
}

TEST_F(Accounts, UnitThatIsReferredToAnotherDomainDoesNotExist) {
    corp.controller.SetRefuse([](const std::string& operation, const std::string& name) {
        const bool isUnit = operation == "search" && name.starts_with("OU=");
        return isUnit ? std::optional(Result{kReferral, ""}) : std::nullopt;
    });
    EXPECT_EQ(StatusOf([&] { Service().Create("NODE01", "OU=Hosts", kMark); }), kStatusFileNotFound);
}

TEST_F(Accounts, CreationMayBeInterruptedAnywhere) {
    for (const bool carriedOut : {false, true}) {
        bool interrupted = true;
        for (int step = 1; interrupted; ++step) {
            interrupted = InterruptedAt(step, carriedOut, [&] { Service().Create("NODE01", "", kMark); });
            const std::uint32_t renewed = RenewStatus();
            EXPECT_EQ(renewed, Account() ? 0U : kStatusNoSuchAccount)
                << "after request " << step << (carriedOut ? ", carried out" : "");
            if (Account()) corp.entries.Delete(Account()->name, true);
        }
    }
}

// Somebody set the secret between the look and the change, or another controller had.
TEST_F(Accounts, KeyVersionThatWasCountedElsewhereIsNotedAsItIs) {
    Service().Create("NODE01", "", kMark);
    corp.controller.SetRefuse([this](const std::string& operation, const std::string& name) {
        if (operation == "modify" && Account()->Text("msds-keyversionnumber") == "1") {
            corp.entries.Put(name, {{"msDS-KeyVersionNumber", {"7"}}});
        }
        return std::optional<Result>();
    });
    const HandedOutAccount account = Service().Renew("NODE01", kMark);
    EXPECT_EQ(Account()->Text("admindescription"), std::string("nimauth:") + kMark + ":8");
    EXPECT_EQ(JoinWith(account), 0U);
}

TEST_F(Accounts, PreparedAccountIsTakenOverUnlessSomebodyUsesIt) {
    EXPECT_EQ(TakeOverStatus(), kStatusNoSuchAccount);
    MakeAccount();
    for (const char* sign : {"lastLogon", "lastLogonTimestamp", "logonCount"}) {
        SetAttribute(sign, "1");
        EXPECT_EQ(TakeOverStatus(), kStatusAccountExists) << sign;
        SetAttribute(sign, "0");
    }
    SetAttribute("adminDescription", "rack 4");
    EXPECT_EQ(TakeOverStatus(), kStatusAccountExists) << "somebody's note";
    corp.entries.Delete(kAccount, true);
    MakeAccount();
    const HandedOutAccount account = Service().TakeOver("NODE01", kMark);
    EXPECT_EQ(Account()->Text("admindescription"), std::string("nimauth:") + kMark + ":1");
    EXPECT_EQ(JoinWith(account), 0U);
}

TEST_F(Accounts, OnlyAHostsOwnAccountIsHandedOut) {
    const struct {
        std::vector<std::string> classes;
        const char* control;
        std::uint32_t status;
    } kRows[] = {
        {{"top", "computer"}, "4098", kStatusAccountDisabled},
        {{"top", "computer"}, "8192", kStatusAccountExists},      // a controller
        {{"top", "computer"}, "67112960", kStatusAccountExists},  // a read-only one
        {{"top", "user"}, "512", kStatusAccountExists},
        {{"top", "computer", "msDS-ManagedServiceAccount"}, "4096", kStatusAccountExists},
        {{"top", "computer", "msDS-GroupManagedServiceAccount"}, "4096", kStatusAccountExists},
    };
    for (const auto& row : kRows) {
        MakeAccount({{"objectClass", row.classes}, {"userAccountControl", {row.control}}});
        EXPECT_EQ(TakeOverStatus(), row.status) << row.control;
        EXPECT_EQ(RenewStatus(), row.status) << row.control;
        EXPECT_EQ(Account()->Text("admindescription"), "") << "nothing has been changed";
    }
}

}  // namespace
}  // namespace nimbrel::ad::test
