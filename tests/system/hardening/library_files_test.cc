// The modes and owners of what the libraries make for an agent, whose umask is whatever it is.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "adlogins/log_ins.h"
#include "contract/config_store.h"
#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/membership.h"
#include "files.h"
#include "plugins/ad/directory/src/files.h"
#include "services/apxd/ledger.h"
#include "sysnet/dns_config.h"
#include "sysnet/hosts_file.h"
#include "tools/loginfiles/journal.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;

class LibraryFilesTest : public ::testing::TestWithParam<mode_t> {
 protected:
    // Of this root's own: in an ordinary user's, the machine's folder belongs to nobody.
    static void SetUpTestSuite() {
        umask(022);
        fs::create_directories("/etc/systemd");
        ASSERT_EQ(0, mount("tmpfs", "/etc/systemd", "tmpfs", 0, "mode=0755"));
    }

    // A host on which nothing of ours has run, and whose network files are missing.
    void SetUp() override {
        for (const char* const path :
             {"/var/lib/nimbrel", "/etc/hosts", "/etc/resolv.conf", "/etc/sssd", "/run/systemd",
              "/etc/systemd/resolved.conf.d", "/etc/krb5.keytab", "/run/apxd"}) {
            fs::remove_all(path);
        }
        fs::create_directories("/run/apxd");
        fs::create_directories("/run/systemd/resolve");
        std::ofstream("/run/systemd/resolve/stub-resolv.conf") << "nameserver 127.0.0.53\n";
        _before = FilesOfTheHost();
        umask(GetParam());
    }
    void TearDown() override { umask(022); }

    void ExpectMade() const { ExpectModes(_before, FilesOfTheHost()); }

    static void SearchDomain() {
        SysNet::Network::DnsConfigImpl dns("defaultTcpipStack");
        dns.AddUserSearchDomain("corp.test");
        dns.SaveConfig();
    }

 private:
    Files _before;
};

TEST_P(LibraryFilesTest, OfTheLibraryAndThePlatform) {
    WriteObject(*OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace), ContractId("one"),
                {{"n", "new"}});
    SysNet::Network::HostsFile().AddOrReplaceEntry("192.0.2.10", "node01.corp.test", {});
    SearchDomain();
    ExpectMade();
    fs::remove("/etc/resolv.conf");
    fs::create_symlink("/run/systemd/resolve/stub-resolv.conf", "/etc/resolv.conf");
    SearchDomain();
    fs::remove("/etc/resolv.conf");
    EXPECT_TRUE(fs::exists("/etc/systemd/resolved.conf.d"));
    ExpectMade();
}

TEST_P(LibraryFilesTest, OfTheProviders) {
    embedded::Directory::Open(embedded::kDefaultDirectoryPath, embedded::OpenMode::CreateIfMissing)
        .AddDomain("corp.test");
    embedded::Membership::Open().SetSmartCardServices({"sshd"});
    ExpectMade();
    fs::remove_all("/var/lib/nimbrel");
    const ad::FileLock lock("/var/lib/nimbrel/ad/membership.lock", ad::Deadline::After(std::chrono::seconds(1)));
    for (const char* const path : {"/var/lib/nimbrel/ad/membership", "/etc/krb5.keytab"}) {
        ad::FileReplacement replacement(path);
        replacement.Write("keys");
        replacement.Commit();
    }
    ad::LogIns("").Enable({"corp.test", "CORP.TEST", "CORP", "node01.corp.test", "NODE01$", "/etc/krb5.keytab"});
    ExpectMade();
    ad::LogIns("").Disable();
    ExpectMade();
}

TEST_P(LibraryFilesTest, OfTheServiceAndTheJournal) {
    apxd::Ledger("/run/apxd/ledger").Note("NODE01", "192.0.2.7", {"mark", 1, false});
    logins::Journal().Lock();
    ExpectMade();
}

INSTANTIATE_TEST_SUITE_P(Umasks, LibraryFilesTest, ::testing::Values(0000, 0022, 0077, 0777));

}  // namespace
}  // namespace nimbrel::testing
