#include "embeddeddirectory/membership.h"

#include <algorithm>
#include <utility>

#include "database.h"
#include "names.h"

namespace nimbrel::embedded {
namespace {

constexpr std::size_t kMaximumListEntries = 256;
constexpr std::size_t kMaximumServiceName = 255;

constexpr FileFormat kMembershipFormat = {"host's membership file", 0x4e4d454d, 1, R"sql(
CREATE TABLE membership (
    id INTEGER PRIMARY KEY CHECK (id = 1),
    dns_name TEXT NOT NULL,
    netbios_name TEXT NOT NULL,
    sid TEXT NOT NULL,
    account_name TEXT NOT NULL,
    distinguished_name TEXT NOT NULL,
    organizational_unit TEXT NOT NULL,
    host_principal TEXT NOT NULL,
    key_version INTEGER NOT NULL,
    secret TEXT NOT NULL
) STRICT;
CREATE TABLE preferred_controllers (position INTEGER PRIMARY KEY, name TEXT NOT NULL) STRICT;
CREATE TABLE smart_card_services (position INTEGER PRIMARY KEY, name TEXT NOT NULL) STRICT;
)sql"};

// A list that is read and replaced as a whole.
struct ListTable {
    const char* select;
    const char* clear;
    const char* insert;
};

constexpr ListTable kPreferredControllers = {
    "SELECT name FROM preferred_controllers ORDER BY position",
    "DELETE FROM preferred_controllers",
    "INSERT INTO preferred_controllers (position, name) VALUES (?, ?)",
};

constexpr ListTable kSmartCardServices = {
    "SELECT name FROM smart_card_services ORDER BY position",
    "DELETE FROM smart_card_services",
    "INSERT INTO smart_card_services (position, name) VALUES (?, ?)",
};

std::vector<std::string> ReadList(const Database& db, const ListTable& table) {
    std::vector<std::string> names;
    auto rows = db.Prepare(table.select);
    while (rows.Step()) {
        names.push_back(rows.Text(0));
    }
    return names;
}

void WriteList(const std::string& path, const ListTable& table, const std::vector<std::string>& names) {
    const Database db = Database::OpenOrCreate(path, kMembershipFormat);
    Transaction transaction(db, Transaction::Kind::Write);
    db.Execute(table.clear);
    std::int64_t position = 0;
    for (const auto& name : names) {
        db.Prepare(table.insert).Bind(position++).Bind(name).Run();
    }
    transaction.Commit();
}

std::optional<MembershipInfo> ReadMembership(const Database& db) {
    auto rows = db.Prepare(
        "SELECT dns_name, netbios_name, sid, account_name, distinguished_name, organizational_unit, host_principal, "
        "key_version FROM membership");
    if (!rows.Step()) {
        return std::nullopt;
    }
    return MembershipInfo{
        {rows.Text(0), rows.Text(1), rows.Text(2)}, rows.Text(3), rows.Text(4), rows.Text(5), rows.Text(6),
        static_cast<std::uint32_t>(rows.Number(7))};
}

std::optional<Database> OpenToRead(const std::string& path, OpenMode mode) {
    return Database::OpenExisting(path, kMembershipFormat, AccessOf(mode));
}

[[noreturn]] void FailNotJoined() { throw DirectoryError(kStatusNotJoined, "This host is not joined to a domain"); }

void RequireListSize(const std::vector<std::string>& names) {
    if (names.size() > kMaximumListEntries) {
        throw DirectoryError(kStatusInvalidParameter, "The list has more than 256 entries");
    }
}

}  // namespace

Membership::Membership(Membership&&) noexcept = default;
Membership& Membership::operator=(Membership&&) noexcept = default;
Membership::~Membership() = default;

Membership Membership::Open(const std::string& path, OpenMode mode) { return {path, mode}; }

std::optional<MembershipInfo> Membership::Current() const { return Export().membership; }

std::vector<std::string> Membership::PreferredControllers() const { return Export().preferredControllers; }

std::vector<std::string> Membership::SmartCardServices() const { return Export().smartCardServices; }

kit::Secret Membership::MachineSecret() const {
    const auto db = OpenToRead(_path, _mode);
    if (!db) {
        FailNotJoined();
    }
    auto rows = db->Prepare("SELECT secret FROM membership");
    if (!rows.Step()) {
        FailNotJoined();
    }
    return kit::Secret(rows.TextInPlace(0));
}

void Membership::SetPreferredControllers(const std::vector<std::string>& controllers) {
    RequireListSize(controllers);
    std::vector<std::string> names;
    names.reserve(controllers.size());
    std::transform(controllers.begin(), controllers.end(), std::back_inserter(names),
                   [](const std::string& name) { return ControllerName(name); });
    WriteList(_path, kPreferredControllers, names);
}

void Membership::SetSmartCardServices(const std::vector<std::string>& services) {
    RequireListSize(services);
    for (const auto& service : services) {
        if (!IsPlainText(service, kMaximumServiceName)) {
            throw DirectoryError(kStatusInvalidParameter, "A service name takes 1 to 255 bytes of UTF-8 text");
        }
    }
    WriteList(_path, kSmartCardServices, services);
}

MembershipSnapshot Membership::Export() const {
    const auto db = OpenToRead(_path, _mode);
    if (!db) {
        return {};
    }
    const Transaction transaction(*db, Transaction::Kind::Read);
    return {ReadMembership(*db), ReadList(*db, kPreferredControllers), ReadList(*db, kSmartCardServices)};
}

MembershipChange Membership::BeginChange() { return MembershipChange(std::make_unique<MembershipChange::Impl>(_path)); }

// --- MembershipChange ---

class MembershipChange::Impl {
 public:
    explicit Impl(const std::string& path)
        : database(Database::OpenOrCreate(path, kMembershipFormat)), transaction(database, Transaction::Kind::Write) {}

    Database database;
    Transaction transaction;
};

MembershipChange::MembershipChange(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
MembershipChange::MembershipChange(MembershipChange&&) noexcept = default;
MembershipChange& MembershipChange::operator=(MembershipChange&&) noexcept = default;
MembershipChange::~MembershipChange() = default;

std::optional<MembershipInfo> MembershipChange::Current() const { return ReadMembership(_impl->database); }

void MembershipChange::Record(const MembershipInfo& membership, std::string_view secret) {
    if (Current()) {
        throw DirectoryError(kStatusAlreadyJoined, "This host is already joined to a domain");
    }
    _impl->database
        .Prepare(
            "INSERT INTO membership (id, dns_name, netbios_name, sid, account_name, distinguished_name, "
            "organizational_unit, host_principal, key_version, secret) VALUES (1, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .Bind(membership.domain.dnsName)
        .Bind(membership.domain.netbiosName)
        .Bind(membership.domain.sid)
        .Bind(membership.accountName)
        .Bind(membership.distinguishedName)
        .Bind(membership.organizationalUnit)
        .Bind(membership.hostPrincipal)
        .Bind(std::int64_t{membership.keyVersion})
        .BindInPlace(secret)
        .Run();
}

void MembershipChange::Forget() {
    if (!Current()) {
        FailNotJoined();
    }
    _impl->database.Execute("DELETE FROM membership; DELETE FROM preferred_controllers");
}

void MembershipChange::Commit() { _impl->transaction.Commit(); }

}  // namespace nimbrel::embedded
