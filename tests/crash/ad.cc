// The provider "ad": the files that it keeps on the host. No domain is needed.

#include <unistd.h>

#include <cstdint>
#include <ctime>

#include "addirectory/ad_error.h"
#include "adlogins/log_ins.h"
#include "crash/files.h"
#include "crash/operation.h"
#include "plugins/ad/directory/src/host_state.h"
#include "plugins/ad/directory/src/keytab.h"
#include "plugins/ad/directory/src/unfinished_join.h"

// The clock stands, so that keytabs with the same keys are equal.
extern "C" __attribute__((visibility("default"))) time_t time(time_t* seconds) noexcept {
    constexpr time_t kNow = 1'900'000'000;
    if (seconds != nullptr) *seconds = kNow;
    return kNow;
}

namespace nimbrel::crash {
namespace {

using ad::AdError;
using ad::HostState;
using ad::LogIns;

constexpr std::int32_t kAes256 = 18;
constexpr char kRoot[] = "/srv";
constexpr char kMembership[] = "/srv/var/lib/nimbrel/ad/membership";
constexpr char kKeytab[] = "/srv/etc/krb5.keytab";

// --- Membership file ---

HostState Joined() {
    HostState state;
    state.membership = ad::Membership{"corp.test", "CORP", "S-1-5-21-1-2-3", "NODE01", "CN=NODE01,DC=corp,DC=test"};
    return state;
}

void Save(const HostState& state) { state.Save(kMembership); }

Parts ReadMembership() { return {{"membership", HostState::Load(kMembership).Format()}}; }

// A file is in place before its folder is synchronised, and a failure of that is told.
Operation OnTheMembership(const char* name, std::function<void()> prepare, std::function<void()> run) {
    Operation operation;
    operation.name = name;
    operation.folders = {kRoot};
    operation.prepare = std::move(prepare);
    operation.run = std::move(run);
    operation.read = ReadMembership;
    operation.isDocumented = IsOneOf<AdError>;
    operation.throwsUnchanged = false;
    return operation;
}

Operation RecordMembership() {
    return OnTheMembership(
        "membership, joined", [] {}, [] { Save(Joined()); });
}

Operation SetControllers() {
    return OnTheMembership(
        "membership, preferred controllers", [] { Save(Joined()); },
        [] {
            HostState state = HostState::Load(kMembership);
            state.preferredControllers = {"dc1.corp.test", "dc2.corp.test"};
            Save(state);
        });
}

Operation ForgetMembership() {
    return OnTheMembership(
        "membership, left", [] { Save(Joined()); }, [] { Save(HostState()); });
}

// --- Record of a join under way ---

ad::UnfinishedJoin TheRecord() {
    ad::Settings settings;
    settings.membership = kMembership;
    return ad::UnfinishedJoin(settings);
}

// The keys are 32 times one character.
void RecordJoin(const char* computer, char key) {
    ad::MachineKeys keys;
    keys.push_back({kAes256, kit::Secret(std::string(32, key))});
    TheRecord().Record({computer, "corp.test"}, keys);
}

Operation OnTheRecord(const char* name, std::function<void()> prepare, std::function<void()> run) {
    Operation operation = OnTheMembership(name, std::move(prepare), std::move(run));
    operation.read = [] {
        const auto left = TheRecord().Find();
        if (!left) return Parts{{"record", "none"}};
        std::string keys;
        for (const char key : {'a', 'b'}) {
            if (left->keytab.View().find(std::string(32, key)) != std::string_view::npos) keys += key;
        }
        return Parts{{"record", left->account.computer + ' ' + keys}};
    };
    return operation;
}

Operation BeginJoin() {
    return OnTheRecord(
        "join under way, recorded", [] {}, [] { RecordJoin("NODE01", 'a'); });
}

Operation BeginAnotherJoin() {
    return OnTheRecord(
        "join under way, after one that was cut short", [] { RecordJoin("NODE01", 'a'); },
        [] { RecordJoin("NODE02", 'b'); });
}

Operation EndJoin() {
    return OnTheRecord(
        "join under way, ended", [] { RecordJoin("NODE01", 'a'); }, [] { TheRecord().Forget(); });
}

// --- Keytab ---

void WriteKeys(const char* computer, const char* domain, std::uint32_t version) {
    ad::KeytabChange change(kKeytab);
    change.SetKeys({computer, domain, version}, kit::Secret("secret"));
    change.Commit();
}

Operation OnTheKeytab(const char* name, std::function<void()> prepare, std::function<void()> run) {
    Operation operation;
    operation.name = name;
    operation.folders = {kRoot};
    operation.prepare = [prepare = std::move(prepare)] {
        WriteFile("/srv/etc/motd", "");
        prepare();
    };
    operation.run = std::move(run);
    operation.read = [] { return Parts{{"keytab", ReadFile(kKeytab)}}; };
    operation.isDocumented = IsOneOf<AdError>;
    operation.throwsUnchanged = false;
    return operation;
}

// Keys are slow to make by design.
Operation MakingKeys(Operation operation) {
    operation.killStride = 5;
    operation.powerStride = 5;
    operation.failureStride = 7;
    operation.allocationStride = 20;
    return operation;
}

Operation FirstKeys() {
    return MakingKeys(OnTheKeytab(
        "keytab, first keys", [] {}, [] { WriteKeys("NODE01", "corp.test", 1); }));
}

Operation NewKeys() {
    return MakingKeys(OnTheKeytab(
        "keytab, new keys",
        [] {
            WriteKeys("NODE01", "other.test", 1);
            WriteKeys("NODE01", "corp.test", 1);
        },
        [] { WriteKeys("NODE01", "corp.test", 2); }));
}

Operation RemoveKeys() {
    return OnTheKeytab(
        "keytab, removed keys",
        [] {
            WriteKeys("NODE01", "other.test", 1);
            WriteKeys("NODE01", "corp.test", 1);
        },
        [] { ad::RemoveRealmFromKeytab(kKeytab, "CORP.TEST"); });
}

Operation RemoveLastKeys() {
    return OnTheKeytab(
        "keytab, last keys removed", [] { WriteKeys("NODE01", "corp.test", 1); },
        [] { ad::RemoveRealmFromKeytab(kKeytab, "CORP.TEST"); });
}

// --- Log-ins ---

constexpr const char* kLogInFiles[] = {
    "/etc/sssd/conf.d/50-nimauth-domain.conf", "/etc/sssd/conf.d/55-nimauth-controllers.conf",
    "/etc/sssd/conf.d/60-nimauth-smartcard.conf", "/var/lib/nimbrel/ad-log-ins.conf"};

ad::DomainLogIns Corp() {
    return {"corp.test", "CORP.TEST", "CORP", "node01.corp.test", "NODE01$", "/etc/krb5.keytab"};
}

void PutKeytab() { WriteFile(kKeytab, "keys", 0600); }

void EnableAll() {
    PutKeytab();
    LogIns logIns(kRoot);
    logIns.Enable(Corp());
    logIns.SetPreferredControllers({"dc1.corp.test"});
    logIns.SetSmartCardServices({"sshd"});
}

// Without SSSD on the host, so that there are only the files.
Operation OnTheLogIns(const char* name, std::function<void()> prepare, std::function<void(LogIns&)> run) {
    Operation operation;
    operation.name = name;
    operation.folders = {kRoot};
    operation.prepare = std::move(prepare);
    operation.run = [run = std::move(run)] {
        LogIns logIns(kRoot);
        run(logIns);
    };
    operation.read = [] {
        Parts parts;
        for (const char* const path : kLogInFiles) parts[path] = ReadFile(kRoot + std::string(path));
        return parts;
    };
    operation.isDocumented = IsOneOf<kit::StatusError>;
    operation.killedPartByPart = true;
    return operation;
}

Operation EnableLogIns() {
    return OnTheLogIns("log-ins enabled", PutKeytab, [](LogIns& logIns) { logIns.Enable(Corp()); });
}

Operation PreferControllers() {
    return OnTheLogIns("log-ins, preferred controllers", EnableAll,
                       [](LogIns& logIns) { logIns.SetPreferredControllers({"dc2.corp.test"}); });
}

Operation SetServices() {
    return OnTheLogIns("log-ins, smart card services", EnableAll, [](LogIns& logIns) {
        logIns.SetSmartCardServices({"login", "sshd"});
    });
}

Operation DisableLogIns() {
    // Cached data that cannot be removed is told once everything else is gone; the record stays, to try again.
    Operation operation = OnTheLogIns("log-ins disabled", EnableAll, [](LogIns& logIns) { logIns.Disable(); });
    operation.throwsPartByPart = true;
    return operation;
}

}  // namespace

std::vector<Operation> Operations() {
    CoverFolder(kRoot);
    return {RecordMembership(), SetControllers(),    ForgetMembership(), BeginJoin(),    BeginAnotherJoin(),
            EndJoin(),          FirstKeys(),         NewKeys(),          RemoveKeys(),   RemoveLastKeys(),
            EnableLogIns(),     PreferControllers(), SetServices(),      DisableLogIns()};
}

}  // namespace nimbrel::crash
