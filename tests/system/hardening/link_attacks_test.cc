// A user who may write a folder has put links there, under every name that the product will use and that can be known
// beforehand. Whatever the operation does then, the file behind the link stays as it is; or it follows links on
// purpose, and the row says so.
//
// The folder is everybody's, without the sticky bit, so the kernel's own protection of links does not count.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>

#include "adlogins/log_ins.h"
#include "authentication/atomic_file_stream.h"
#include "contract/config_store.h"
#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/membership.h"
#include "plugins/ad/directory/src/files.h"
#include "services/apxd/ledger.h"
#include "support/temporary_folder.h"
#include "sysnet/hosts_file.h"
#include "tools/loginfiles/file_state.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using Operation = std::function<void(const std::string& folder)>;

// What an operation does to the file behind the link.
enum class Effect {
    None,
    // On purpose: the file's real place is the administrator's choice.
    WritesThroughSymlink,
    // By a hard link at the database's own name: such a file is repaired, whoever linked it there.
    TakesRightsOfOthers,
};

struct Attack {
    const char* name;
    const char* planted;  // the link's name in the folder
    Operation operation;
    Effect effect = Effect::None;
};

void WriteAtomically(const std::string& folder) {
    authentication::AtomicFileStream stream((folder + "/settings.conf").c_str(), std::ios_base::out);
    stream << "new\n";
    stream.Commit();
}

void EditHosts(const std::string& folder) {
    SysNet::Network::HostsFile(folder + "/hosts").AddOrReplaceEntry("192.0.2.10", "node01.corp.test", {});
}

// The store's place is fixed; a link in the folders above is the administrator's and is followed.
void StoreObject(const std::string& folder) {
    fs::remove_all("/var/lib/nimbrel");
    fs::create_directory_symlink(folder, "/var/lib/nimbrel");
    WriteObject(*OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace), ContractId("one"),
                {{"n", "new"}});
}

void MakeDirectory(const std::string& folder) {
    embedded::Directory::Open(folder + "/directory.db", embedded::OpenMode::CreateIfMissing).AddDomain("corp.test");
}

void MakeMembership(const std::string& folder) {
    embedded::Membership::Open(folder + "/membership.db").SetSmartCardServices({"sshd"});
}

void ReplaceKeytab(const std::string& folder) {
    ad::FileReplacement replacement(folder + "/krb5.keytab");
    replacement.Write("new");
    replacement.Commit();
}

void LockMembership(const std::string& folder) {
    const ad::FileLock lock(folder + "/ad-membership.lock", ad::Deadline::After(std::chrono::seconds(1)));
}

// The folder is the host's root.
void EnableLogIns(const std::string& folder) {
    fs::create_directories(folder + "/etc");
    std::ofstream(folder + "/etc/krb5.keytab") << "keys";
    ad::LogIns(folder).Enable({"corp.test", "CORP.TEST", "CORP", "node01.corp.test", "NODE01$", "/etc/krb5.keytab"});
}

void OpenLedger(const std::string& folder) { apxd::Ledger(folder + "/ledger").Note("NODE01", "192.0.2.7", {}); }

void ReplaceLogInFile(const std::string& folder) {
    const std::string path = folder + "/nsswitch.conf";
    logins::Stage(path, 1, logins::FileState().With("passwd: files\n"));
    logins::Replace(path, 1, logins::FileState().With("passwd: files\n"));
}

void WriteJournal(const std::string& folder) { logins::WriteDurably(folder + "/record", "new\n"); }

const Attack kAttacks[] = {
    {"SettingsFile", "settings.conf", WriteAtomically},
    {"HostsFile", "hosts", EditHosts, Effect::WritesThroughSymlink},
    {"ConfigurationStore", "configstore.db", StoreObject, Effect::TakesRightsOfOthers},
    {"Directory", "directory.db", MakeDirectory},
    {"DirectoryLock", "directory.db.lock", MakeDirectory},
    {"DirectoryLog", "directory.db-wal", MakeDirectory},
    {"Membership", "membership.db", MakeMembership},
    {"MembershipLock", "membership.db.lock", MakeMembership},
    {"Keytab", "krb5.keytab", ReplaceKeytab},
    {"NewKeytab", "krb5.keytab.new", ReplaceKeytab},
    {"AdMembershipLock", "ad-membership.lock", LockMembership},
    {"LogInsLock", "var/lib/nimbrel/.ad-log-ins.lock", EnableLogIns},
    {"LogInsRecord", "var/lib/nimbrel/ad-log-ins.conf", EnableLogIns},
    {"OldLogInsRecord", "var/lib/nimbrel/.ad-log-ins.conf.old", EnableLogIns},
    {"SssdFile", "etc/sssd/conf.d/50-nimauth-domain.conf", EnableLogIns},
    {"OldSssdFile", "etc/sssd/conf.d/.50-nimauth-domain.conf.old", EnableLogIns},
    {"Ledger", "ledger", OpenLedger},
    {"NewLedger", "ledger.new", OpenLedger},
    {"LedgerLock", "ledger.lock", OpenLedger},
    {"LogInFile", "nsswitch.conf", ReplaceLogInFile},
    {"StagedLogInFile", ".nsswitch.conf.nimauth-1~", ReplaceLogInFile},
    {"JournalRecord", "record", WriteJournal},
};

class LinkAttackTest : public ::testing::TestWithParam<Attack> {
 protected:
    LinkAttackTest() {
        umask(0);
        fs::create_directories(fs::path(Link()).parent_path());
        _host.Put("victim", kSecret, 0644);
        for (const auto& item : fs::recursive_directory_iterator(Folder())) Open(item.path());
        Open(Folder());
    }

    ~LinkAttackTest() override {
        if (fs::is_symlink("/var/lib/nimbrel")) fs::remove("/var/lib/nimbrel");
    }

    std::string Folder() const { return _host.Path("folder"); }
    std::string Link() const { return Folder() + '/' + GetParam().planted; }
    std::string Victim() const { return _host.Path("victim"); }

    // Whether it succeeds is its own business.
    void Operate() const {
        try {
            GetParam().operation(Folder());
        } catch (const std::exception& error) {
            RecordProperty("refused", error.what());
        }
    }

    void ExpectVictim(mode_t mode, const std::string& content) const {
        EXPECT_EQ(content, _host.Get("victim"));
        EXPECT_EQ(mode, _host.Mode("victim")) << std::oct << _host.Mode("victim");
        struct stat status = {};
        ASSERT_EQ(0, stat(Victim().c_str(), &status));
        EXPECT_EQ(geteuid(), status.st_uid);
    }

    static constexpr char kSecret[] = "127.0.0.1 localhost\n";

    const TemporaryFolder _host;

 private:
    static void Open(const std::string& folder) { ASSERT_EQ(0, chmod(folder.c_str(), 0777)); }
};

class SymlinkTest : public LinkAttackTest {};
class HardLinkTest : public LinkAttackTest {};

TEST_P(SymlinkTest, ToAFileLeavesItAlone) {
    fs::create_symlink(Victim(), Link());
    Operate();
    const bool follows = GetParam().effect == Effect::WritesThroughSymlink;
    ExpectVictim(0644, follows ? std::string(kSecret) + "192.0.2.10\tnode01.corp.test\n" : kSecret);
    EXPECT_TRUE(!follows || fs::is_symlink(Link()));
}

TEST_P(SymlinkTest, ToNothingMakesNoFileThere) {
    fs::create_symlink(_host.Path("nothing"), Link());
    Operate();
    EXPECT_FALSE(fs::exists(_host.Path("nothing")));
}

TEST_P(HardLinkTest, LeavesTheFileAlone) {
    fs::create_hard_link(Victim(), Link());
    Operate();
    const bool narrows = GetParam().effect == Effect::TakesRightsOfOthers;
    ExpectVictim(narrows ? 0600 : 0644, kSecret);
}

std::string NameOfRow(const ::testing::TestParamInfo<Attack>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Names, SymlinkTest, ::testing::ValuesIn(kAttacks), NameOfRow);
INSTANTIATE_TEST_SUITE_P(Names, HardLinkTest, ::testing::ValuesIn(kAttacks), NameOfRow);

}  // namespace
}  // namespace nimbrel::testing
