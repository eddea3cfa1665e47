#include "tools/nimauthctl/checks/rights.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/access_list.h"
#include "support/temporary_folder.h"
#include "tools/nimauthctl/apxhttps_settings.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::PutOnAccessList;

struct RightsCase {
    FileRights rights;
    const char* how;
};

TEST(RightsTest, OnlyRootMayWrite) {
    constexpr RightsCase kCases[] = {{{0, 0, 0755}, ""},
                                     {{0, 0, 0600}, ""},
                                     {{0, 0, 0}, ""},
                                     {{0, 0, 0775}, ""},  // root's own group
                                     {{0, 0, 0755, true}, ""},
                                     {{0, 0, 0775, true}, "may be written by users on its access list"},
                                     {{0, 8, 0775}, "may be written by its group"},
                                     {{0, 8, 0020}, "may be written by its group"},
                                     {{0, 0, 0757}, "may be written by everybody"},
                                     {{0, 0, 01777}, "may be written by everybody"},
                                     {{1000, 0, 0755}, "belongs to user 1000"},
                                     {{1000, 0, 0444}, "belongs to user 1000"}};
    for (const RightsCase& row : kCases) {
        const FileRights& rights = row.rights;
        EXPECT_EQ(row.how, WhoElseMayWrite(rights))
            << rights.owner << ':' << rights.group << ' ' << std::oct << rights.mode << ' ' << rights.hasAccessList;
    }
}

TEST(RightsTest, OnlyRootMayOpenWhatHoldsSecrets) {
    constexpr RightsCase kCases[] = {{{0, 0, 0600}, ""},
                                     {{0, 0, 0660}, ""},  // root's own group
                                     {{0, 8, 0640}, "may be read by its group"},
                                     {{0, 8, 0660}, "may be written by its group"},
                                     {{0, 0, 0600, true}, ""},
                                     {{0, 0, 0640, true}, "may be read by users on its access list"},
                                     {{0, 0, 0604}, "may be read by everybody"},
                                     {{0, 0, S_IFLNK | 0600}, "is a symbolic link"}};
    for (const RightsCase& row : kCases) {
        EXPECT_EQ(row.how, WhoElseMayOpen(row.rights)) << row.rights.group << ' ' << std::oct << row.rights.mode;
    }
}

// Run by an ordinary user, everything here belongs to that user, and is told so.
class RightsOfFilesTest : public ::testing::Test {
 protected:
    std::string Root() const { return _folder.Path("root"); }
    void Put(const std::string& path, mode_t mode) const {
        std::filesystem::create_directories(std::filesystem::path(Root() + path).parent_path());
        _folder.Put("root" + path, "", mode);
    }

 private:
    TemporaryFolder _folder;
};

TEST_F(RightsOfFilesTest, EachWrongFileIsNamedWithItsRemedy) {
    Put("/usr/libexec/nimauth/libgood.so", 0644);
    Put("/usr/libexec/nimauth/libopen.so", 0666);
    Put("/usr/libexec/nimauth/lib64/libopen.so", 0646);
    const Finding finding = CheckProviderFiles(Root());
    EXPECT_EQ(Verdict::Fail, finding.verdict);
    EXPECT_EQ(ExitCode::Permission, finding.exitCode);
    for (const char* const path : {"/usr/libexec/nimauth/libopen.so", "/usr/libexec/nimauth/lib64/libopen.so"}) {
        EXPECT_THAT(finding.found, HasSubstr(path));
        EXPECT_THAT(finding.remedy, HasSubstr(path));
    }
    EXPECT_THAT(finding.found, Not(HasSubstr(Root())));
}

TEST_F(RightsOfFilesTest, FolderThatOthersMayWriteIsNamedToo) {
    Put("/etc/nimbrel/nimauth/provider.conf", 0644);
    std::filesystem::permissions(Root() + "/etc/nimbrel", std::filesystem::perms(0777));
    EXPECT_THAT(CheckSettingsFiles(Root()).found, HasSubstr("/etc/nimbrel "));
}

TEST_F(RightsOfFilesTest, EveryFolderOnTheWayIsNamedToo) {
    struct Way {
        const char* file;
        Finding (*check)(const std::string& root);
        std::vector<const char*> folders;
    };
    const Way kWays[] = {
        {"/etc/nimbrel/nimauth/provider.conf",
         CheckSettingsFiles,
         {"/", "/etc", "/etc/nimbrel", "/etc/nimbrel/nimauth"}},
        {"/usr/libexec/nimauth/libgood.so", CheckProviderFiles, {"/", "/usr", "/usr/libexec", "/usr/libexec/nimauth"}},
        {"/var/lib/nimbrel/configstore.db", CheckStateFiles, {"/", "/var", "/var/lib", "/var/lib/nimbrel"}},
    };
    for (const Way& way : kWays) {
        Put(way.file, 0600);
        for (const char* const folder : way.folders) {
            std::filesystem::permissions(Root() + folder, std::filesystem::perms(0757));
            const Finding finding = way.check(Root());
            EXPECT_EQ(Verdict::Fail, finding.verdict) << folder;
            EXPECT_THAT(finding.remedy + " ", HasSubstr(std::string(" ") + folder + ' ')) << way.file;
            for (const mode_t mode : {0775, 0755}) {  // as made under the umask 002: root's own group is nobody else
                std::filesystem::permissions(Root() + folder, std::filesystem::perms(mode));
                EXPECT_EQ(geteuid() == 0 ? Verdict::Pass : Verdict::Fail, way.check(Root()).verdict) << folder;
            }
        }
    }
}

TEST_F(RightsOfFilesTest, FoldersBehindALinkAreOnTheWay) {
    Put("/srv/providers/nimauth/libgood.so", 0644);
    std::filesystem::create_directories(Root() + "/usr/libexec");
    std::filesystem::create_symlink("../../srv/providers/nimauth", Root() + "/usr/libexec/nimauth");
    std::filesystem::permissions(Root() + "/srv/providers", std::filesystem::perms(0777));
    EXPECT_THAT(CheckProviderFiles(Root()).remedy + " ", HasSubstr(" /srv/providers "));
}

struct StateCase {
    const char* name;
    mode_t mode;
    const char* how;  // empty if it is in order
};

TEST_F(RightsOfFilesTest, OfTheStateAllButThePublishedAccountsIsForRootAlone) {
    constexpr StateCase kCases[] = {
        {"configstore.db", 0600, ""},
        {"configstore.db", 0640, ""},  // root's own
        {"configstore.db", 0604, "may be read by everybody"},
        {"directory.db", 0602, "may be written by everybody"},
        {"membership.db-wal", 0644, "may be read by everybody"},
        {".ad-log-ins.lock", 0666, "may be written by everybody"},
        {"ad-log-ins.conf", 0644, "may be read by everybody"},
        {"ad/membership", 0600, ""},
        {"ad/membership", 0604, "may be read by everybody"},
        {"embedded-accounts", 0644, ""},
        {"embedded-accounts", 0666, "may be written by everybody"},
    };
    for (const StateCase& row : kCases) {
        const std::string path = std::string("/var/lib/nimbrel/") + row.name;
        const std::string how = geteuid() == 0 ? row.how : "belongs to user " + std::to_string(geteuid());
        Put(path, row.mode);
        const Finding finding = CheckStateFiles(Root());
        EXPECT_EQ(how.empty() ? Verdict::Pass : Verdict::Fail, finding.verdict) << path << std::oct << row.mode;
        EXPECT_THAT(finding.found, HasSubstr(how.empty() ? "only root may write" : path + ' ' + how));
        EXPECT_THAT(finding.remedy, HasSubstr(how.empty() ? "" : path));
        std::filesystem::remove(Root() + path);
    }
}

TEST_F(RightsOfFilesTest, JournalOfTheLogInFilesIsForRootAloneAsAWhole) {
    Put("/var/lib/nimbrel/logins/1/before/etc/pam.d/common-auth", 0644);
    const std::string folder = Root() + "/var/lib/nimbrel/logins";
    std::filesystem::permissions(folder, std::filesystem::perms(0711));
    EXPECT_THAT(CheckStateFiles(Root()).remedy, HasSubstr("/var/lib/nimbrel/logins"));
    std::filesystem::permissions(folder, std::filesystem::perms(0700));
    EXPECT_THAT(CheckStateFiles(Root()).found, Not(HasSubstr("common-auth")));
}

TEST_F(RightsOfFilesTest, LinkInTheStateIsNamed) {
    Put("/elsewhere", 0600);
    std::filesystem::create_directories(Root() + "/var/lib/nimbrel");
    std::filesystem::create_symlink(Root() + "/elsewhere", Root() + "/var/lib/nimbrel/configstore.db");
    const Finding finding = CheckStateFiles(Root());
    EXPECT_THAT(finding.found, HasSubstr("/var/lib/nimbrel/configstore.db is a symbolic link"));
    EXPECT_EQ(ExitCode::Permission, finding.exitCode);
}

TEST_F(RightsOfFilesTest, StateThatIsNotThereYetIsInOrder) {
    Put("/etc/hosts", 0644);
    EXPECT_EQ(Verdict::Pass, CheckStateFiles(Root()).verdict);
}

class ProxyFilesTest : public RightsOfFilesTest {
 protected:
    static constexpr char kKey[] = "/etc/nimbrel/client/key.pem";
    static constexpr char kCertificate[] = "/etc/nimbrel/client/certificate.pem";

    void Name(const std::string& lines) const {
        Put(kApxhttpsSettings, 0644);
        std::ofstream(Root() + kApxhttpsSettings) << lines;
    }
    void NameBoth() const {
        Name(std::string("# of this host\nclient-certificate = ") + kCertificate + "\nport=9443\n client-key = \"" +
             kKey + "\"\n");
    }
};

TEST_F(ProxyFilesTest, KeyIsForRootAlone) {
    constexpr StateCase kCases[] = {{kKey, 0600, ""},
                                    {kKey, 0400, ""},
                                    {kKey, 0644, "may be read by everybody"},
                                    {kKey, 0640, ""},  // root's own
                                    {kKey, 0660, ""},
                                    {kKey, 0602, "may be written by everybody"},
                                    {kCertificate, 0644, ""},
                                    {kCertificate, 0666, "may be written by everybody"},
                                    {kCertificate, 0664, ""}};
    NameBoth();
    for (const StateCase& row : kCases) {
        Put(kKey, 0600);
        Put(kCertificate, 0644);
        Put(row.name, row.mode);
        const std::string how = geteuid() == 0 ? row.how : "belongs to user " + std::to_string(geteuid());
        const Finding finding = CheckProxyFiles(Root());
        EXPECT_EQ(how.empty() ? Verdict::Pass : Verdict::Fail, finding.verdict) << row.name << std::oct << row.mode;
        EXPECT_THAT(finding.found, HasSubstr(how.empty() ? "only root may read" : row.name + (' ' + how)));
        EXPECT_EQ(how.empty() ? ExitCode::Ok : ExitCode::Permission, finding.exitCode);
        std::filesystem::remove(Root() + row.name);
    }
}

// As Debian keeps keys.
TEST_F(ProxyFilesTest, KeyThatAGroupMayReadIsAWarning) {
    NameBoth();
    Put(kCertificate, 0644);
    Put(kKey, 0640);
    const auto found = [this](gid_t group) {
        EXPECT_EQ(chown((Root() + kKey).c_str(), static_cast<uid_t>(-1), group), 0);
        return CheckProxyFiles(Root());
    };
    if (geteuid() != 0) {
        EXPECT_EQ(Verdict::Fail, found(getegid()).verdict);  // the key is not root's
        return;
    }
    EXPECT_EQ(Verdict::Pass, found(0).verdict);
    EXPECT_THAT(found(113).found, HasSubstr("key.pem may be read by the group 113"));
    Put("/etc/group", 0644);
    std::ofstream(Root() + "/etc/group") << "root:x:0:\nmalformed\nother:x:1130:\nssl-cert:x:113:\n";
    const Finding finding = found(113);
    EXPECT_EQ(Verdict::Warn, finding.verdict);
    EXPECT_EQ(ExitCode::Ok, finding.exitCode);
    EXPECT_EQ(std::string(kKey) + " may be read by the group 'ssl-cert'", finding.found);
    EXPECT_THAT(finding.remedy, HasSubstr(std::string("chmod g-rwx ") + kKey));
    std::filesystem::remove(Root() + kCertificate);
    EXPECT_THAT(CheckProxyFiles(Root()).found, HasSubstr("client-certificate ")) << "graver";
}

// Root's own group is on the list's file, and so the mode alone would tell nothing.
TEST_F(ProxyFilesTest, KeyThatUsersOnAnAccessListMayReadIsAWarning) {
    NameBoth();
    Put(kCertificate, 0644);
    Put(kKey, 0600);
    const bool listed = PutOnAccessList(Root() + kKey, 4);
    const Finding finding = CheckProxyFiles(Root());
    if (geteuid() != 0) {
        EXPECT_EQ(Verdict::Fail, finding.verdict);  // the key is not root's
        return;
    }
    EXPECT_EQ(listed ? Verdict::Warn : Verdict::Pass, finding.verdict);
    if (!listed) return;  // the file system has no such lists
    EXPECT_EQ(std::string(kKey) + " may be read by users on its access list", finding.found);
    EXPECT_THAT(finding.remedy, HasSubstr(std::string("whom getfacl shows may join as this host; else: chmod g-rwx ")));
    ASSERT_EQ(0, chmod((Root() + kKey).c_str(), 0600));  // the remedy: the list gives nobody anything then
    EXPECT_EQ(Verdict::Pass, CheckProxyFiles(Root()).verdict);
    ASSERT_TRUE(PutOnAccessList(Root() + kKey, 6));
    EXPECT_THAT(CheckProxyFiles(Root()).found, HasSubstr("key.pem may be written by users on its access list"));
}

TEST_F(ProxyFilesTest, FolderOfTheFilesCountsOnce) {
    NameBoth();
    Put(kKey, 0600);
    Put(kCertificate, 0644);
    std::filesystem::permissions(Root() + "/etc/nimbrel/client", std::filesystem::perms(0777));
    const Finding finding = CheckProxyFiles(Root());
    const std::string folder = "/etc/nimbrel/client ";
    ASSERT_THAT(finding.found, HasSubstr(folder));
    EXPECT_THAT(finding.found.substr(finding.found.find(folder) + folder.size()), Not(HasSubstr(folder)));
}

TEST_F(ProxyFilesTest, ReadableKeyIsSpentAndSaidToBe) {
    NameBoth();
    Put(kCertificate, 0644);
    Put(kKey, 0644);
    EXPECT_THAT(CheckProxyFiles(Root()).remedy, HasSubstr("have another one certified"));
    Put(kKey, 0602);
    EXPECT_EQ(geteuid() != 0, CheckProxyFiles(Root()).remedy.find("certified") != std::string::npos)
        << "written it may have been, but not read";
}

TEST_F(ProxyFilesTest, WithoutSettingsOrNamesNothingIsWrong) {
    EXPECT_EQ(Verdict::Pass, CheckProxyFiles(Root()).verdict);
    Name("port = 9443\n#client-key = /nowhere\n");
    EXPECT_EQ(Verdict::Pass, CheckProxyFiles(Root()).verdict);
}

struct UnusableCase {
    const char* line;
    const char* found;
};

TEST_F(ProxyFilesTest, FileThatCannotBeUsedIsNamed) {
    constexpr UnusableCase kCases[] = {
        {"client-key = /gone.pem\n", "client-key '/gone.pem' cannot be used: No such file or directory"},
        {"client-key = key.pem\n", "client-key 'key.pem' is no absolute path"},
        {"", "client-key is not given"}};
    Put(kCertificate, 0644);
    for (const UnusableCase& row : kCases) {
        Name(std::string("client-certificate = ") + kCertificate + '\n' + row.line);
        const Finding finding = CheckProxyFiles(Root());
        if (geteuid() != 0) {
            EXPECT_EQ(Verdict::Fail, finding.verdict);  // the certificate is not root's
            continue;
        }
        EXPECT_EQ(Verdict::Warn, finding.verdict);
        EXPECT_EQ(row.found, finding.found);
    }
}

TEST_F(ProxyFilesTest, ReadableKeyIsWorseThanAMissingCertificate) {
    NameBoth();
    Put(kKey, 0644);
    EXPECT_THAT(CheckProxyFiles(Root()).found, HasSubstr(kKey));
    EXPECT_EQ(Verdict::Fail, CheckProxyFiles(Root()).verdict);
}

TEST_F(RightsOfFilesTest, MissingFolderIsAFailure) {
    EXPECT_THAT(CheckProviderFiles(Root()).found, HasSubstr("/usr/libexec/nimauth is missing"));
    EXPECT_THAT(CheckSettingsFiles(Root()).found, HasSubstr("/etc/nimbrel/nimauth is missing"));
}

TEST_F(RightsOfFilesTest, LinksLeadToWhatIsChecked) {
    Put("/usr/libexec/nimauth/libgood.so", 0644);
    Put("/usr/lib/libelsewhere.so", 0666);
    std::filesystem::create_symlink(Root() + "/usr/lib/libelsewhere.so", Root() + "/usr/libexec/nimauth/liblink.so");
    std::filesystem::create_symlink("nowhere", Root() + "/usr/libexec/nimauth/libdangling.so");
    const std::string found = CheckProviderFiles(Root()).found;
    EXPECT_THAT(found, HasSubstr("/usr/libexec/nimauth/liblink.so"));
    EXPECT_THAT(found, Not(HasSubstr("libdangling")));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
