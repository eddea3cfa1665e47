// The provider "embedded": joins, leaves and settings of a host, over the directory's file and the host's own.

#include "crash/files.h"
#include "crash/operation.h"
#include "embeddeddirectory/host.h"
#include "plugins/embedded/cheap_passwords.h"
#include "plugins/embedded/directory/src/database.h"
#include "plugins/embedded/directory/src/published_accounts.h"

namespace nimbrel::crash {
namespace {

using embedded::Directory;
using embedded::DirectoryError;
using embedded::Host;
using embedded::Membership;

constexpr char kFolder[] = "/var/lib";
constexpr char kDomain[] = "corp.test";
constexpr char kHostName[] = "node01.corp.test";
constexpr char kAccount[] = "NODE01";
constexpr char kPassword[] = "Winter-2031!";
constexpr embedded::UserCredentials kAdmin = {"admin1", kPassword};

void MakeDirectory() {
    Directory directory = Directory::Open(embedded::kDefaultDirectoryPath, embedded::OpenMode::CreateIfMissing);
    directory.AddDomain(kDomain);
    directory.AddUser(kDomain, "admin1", kPassword, {.mayJoin = true});
    embedded::test::MakePasswordsCheap(embedded::kDefaultDirectoryPath, kPassword);
}

bool IsJoined() { return !Host().ActiveDomain().dnsName.empty(); }

std::string Lines(const std::vector<std::string>& texts) {
    std::string lines;
    for (const auto& text : texts) lines += text + "\n";
    return lines;
}

Parts ReadHost() {
    Parts parts;
    const auto snapshot = Membership::Open().Export();
    parts["host"] = snapshot.membership ? snapshot.membership->distinguishedName : "not joined";
    parts["controllers"] = Lines(snapshot.preferredControllers);
    parts["services"] = Lines(snapshot.smartCardServices);
    for (const auto& computer : Directory::Open().ListComputers(kDomain)) {
        parts["account"] += computer.name + (computer.preStaged ? ", waiting" : ", taken");
    }
    parts.try_emplace("account", "none");
    return parts;
}

// ... and whether the two agree.
Parts ReadHostAndTrust() {
    Parts parts = ReadHost();
    parts["trust"] = std::to_string(Host().TrustState());
    return parts;
}

Operation OnTheHost(const char* name, std::function<void()> prepare, std::function<void()> run) {
    Operation operation;
    operation.name = name;
    operation.folders = {kFolder};
    operation.prepare = std::move(prepare);
    operation.run = std::move(run);
    operation.read = ReadHost;
    operation.isDocumented = IsOneOf<DirectoryError>;
    operation.killStride = 5;
    operation.powerStride = 5;
    operation.failureStride = 11;
    operation.allocationStride = 20;
    return operation;
}

void Join() { Host().Join(kDomain, kHostName, "", kAdmin); }

void MakeJoinedHost() {
    MakeDirectory();
    Join();
}

// The domain's side and the host's are two files, as they are two machines in real life: the account comes first, and a
// host that was killed then joins again.
Operation JoinAsUser() {
    Operation operation = OnTheHost("join", MakeDirectory, Join);
    operation.next = [] {
        if (!IsJoined()) Join();
    };
    operation.killedPartByPart = true;
    operation.exhaustedPartByPart = true;
    return operation;
}

std::string& OneTimeSecret() {
    static std::string secret;
    return secret;
}

void Stage() { OneTimeSecret() = Directory::Open().PreStageComputer(kDomain, kAccount).oneTimeSecret; }

void JoinAsMachine() {
    embedded::MachineAccountJoin join;
    join.hostName = kHostName;
    join.dnsName = kDomain;
    join.accountName = kAccount;
    join.oneTimeSecret = OneTimeSecret();
    Host().JoinWithMachineAccount(join);
}

// A host that was killed may have used its one-time secret up; then the domain's administrator makes the account anew.
Operation JoinWithMachineAccount() {
    Operation operation = OnTheHost(
        "join with machine account",
        [] {
            MakeDirectory();
            Stage();
        },
        JoinAsMachine);
    operation.next = [] {
        if (IsJoined()) return;
        Directory directory = Directory::Open();
        if (!directory.GetComputer(kDomain, kAccount).preStaged) {
            directory.RemoveComputer(kDomain, kAccount);
            Stage();
        }
        JoinAsMachine();
    };
    operation.killedPartByPart = true;
    operation.exhaustedPartByPart = true;
    return operation;
}

Operation Leave(const char* name, std::function<void()> run) {
    Operation operation = OnTheHost(name, MakeJoinedHost, run);
    operation.next = [run] {
        if (IsJoined()) run();
    };
    operation.killedPartByPart = true;
    operation.exhaustedPartByPart = true;
    return operation;
}

Operation JoinAgain() {
    Operation operation = OnTheHost(
        "join over an old account",
        [] {
            MakeJoinedHost();
            Host().Part(std::nullopt);
        },
        Join);
    operation.next = [] {
        if (!IsJoined()) Join();
    };
    operation.read = ReadHostAndTrust;
    operation.killedPartByPart = true;
    operation.exhaustedPartByPart = true;
    return operation;
}

Operation SetControllers() {
    return OnTheHost("preferred controllers", MakeJoinedHost, [] {
        Host().SetPreferredControllers({"dc1.corp.test", "dc2.corp.test"});
    });
}

Operation SetServices(const char* name, std::function<void()> prepare) {
    return OnTheHost(name, std::move(prepare), [] { Host().SetSmartCardServices({"login", "sshd"}); });
}

Operation CreateDirectory() {
    Operation operation;
    operation.name = "first domain of the directory";
    operation.folders = {kFolder};
    operation.prepare = [] {};
    operation.run = [] {
        Directory directory = Directory::Open(embedded::kDefaultDirectoryPath, embedded::OpenMode::CreateIfMissing);
        if (!directory.FindDomain(kDomain)) directory.AddDomain(kDomain);
    };
    operation.read = [] {
        try {
            const auto domains = Directory::Open().ListDomains();
            return Parts{{"domains", std::to_string(domains.size())}};
        } catch (const DirectoryError& error) {
            if (error.Status() != embedded::kStatusNoSuchDomain) throw;
            return Parts{{"domains", "0"}};
        }
    };
    operation.isDocumented = IsOneOf<DirectoryError>;
    operation.powerStride = 3;
    return operation;
}

// A change that was cut short has not published who can log in: the next log-in does.
std::vector<Operation> WithALogIn(std::vector<Operation> operations) {
    for (Operation& operation : operations) {
        if (!operation.next) continue;
        operation.next = [next = operation.next] {
            next();
            embedded::PublishAccounts();
        };
    }
    return operations;
}

}  // namespace

std::vector<Operation> Operations() {
    CoverFolder(kFolder);
    return WithALogIn({CreateDirectory(), JoinAsUser(), JoinAgain(), JoinWithMachineAccount(),
                       Leave("leave with credentials", [] { Host().Part(kAdmin); }),
                       Leave("leave without credentials", [] { Host().Part(std::nullopt); }), SetControllers(),
                       SetServices("smart card services", MakeJoinedHost),
                       SetServices("smart card services of a fresh host", MakeDirectory)});
}

}  // namespace nimbrel::crash
