// What stands in the files, and when.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "log_ins_root.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kLockFile[] = "/var/lib/nimbrel/.ad-log-ins.lock";
constexpr char kHeading[] =
    "# Written by nimauth and removed when the host leaves the domain; changes made here are lost. Settings of your "
    "own\n"
    "# go into a file whose name sorts behind this one, 70-local.conf say (root's, mode 0600), under the same "
    "section.\n";

std::string CorpSection() {
    return "[domain/corp.test]\n"
           "enabled = true\n"
           "id_provider = ad\n"
           "access_provider = ad\n"
           "ad_domain = corp.test\n"
           "krb5_realm = CORP.TEST\n"
           "ad_hostname = node01.corp.test\n"
           "krb5_keytab = /etc/krb5.keytab\n"
           "ldap_sasl_authid = NODE01$@CORP.TEST\n"
           "ldap_id_mapping = true\n"
           "use_fully_qualified_names = true\n"
           "fallback_homedir = /home/%u@%d\n"
           "default_shell = /bin/bash\n"
           "cache_credentials = true\n"
           "dyndns_update = false\n"
           "ad_gpo_access_control = disabled\n";
}

class SnippetsTest : public LogInsRoot {
 protected:
    void EnableSystemd() const {
        Put("/run/systemd/system/empty", "");
        Put("/etc/systemd/system/sssd.service.wants/sssd-nss.socket", "");
        Put("/etc/systemd/system/sssd.service.wants/sssd-pam.socket", "");
    }
};

TEST_F(SnippetsTest, TheDomainIsWrittenInFull) {
    logIns.Enable(Corp());
    EXPECT_EQ(Text(kDomainFile), kHeading + std::string("[sssd]\nservices = nss, pam\n\n") + CorpSection());
    EXPECT_THAT(NamesIn("/etc/sssd/conf.d"), ElementsAre("50-nimauth-domain.conf"));
}

TEST_F(SnippetsTest, ServicesAreNotNamedWhereSystemdStartsThemOnDemand) {
    EnableSystemd();
    logIns.Enable(Corp());
    EXPECT_EQ(Text(kDomainFile), kHeading + CorpSection());
}

TEST_F(SnippetsTest, DebiansPackagesWillSwitchOnTheSocketsWhenTheyCome) {
    Put("/run/systemd/system/empty", "");
    Put("/etc/debian_version", "12.5\n");
    logIns.Enable(Corp());
    EXPECT_EQ(Text(kDomainFile), kHeading + CorpSection());
}

TEST_F(SnippetsTest, TheAdministratorsOtherServicesStay) {
    Put("/etc/sssd/sssd.conf", "[sssd]\nservices = nss, ssh\n", 0600);
    Put("/etc/sssd/conf.d/10-more.conf", " [ sssd ]\n\tservices =pam ,sudo,\n[nss]\nservices = x\n", 0600);
    Put("/etc/sssd/conf.d/20-hidden.txt", "[sssd]\nservices = wrong\n", 0600);
    logIns.Enable(Corp());
    EXPECT_THAT(Text(kDomainFile), HasSubstr("services = pam, sudo, nss\n"));
}

TEST_F(SnippetsTest, EachTrustedForestHasASectionWithTheSameKey) {
    auto corp = Corp();
    corp.trustedForests = {"trust.test", "corp.test", "trust.test"};
    logIns.Enable(corp);
    EXPECT_THAT(Text(kDomainFile),
                HasSubstr("\n\n[domain/trust.test]\nenabled = true\nid_provider = ad\naccess_provider = ad\n"
                          "ad_domain = trust.test\nkrb5_realm = TRUST.TEST\nad_hostname = node01.corp.test\n"
                          "krb5_keytab = /etc/krb5.keytab\nldap_sasl_authid = NODE01$@CORP.TEST\n"));
    EXPECT_EQ(Text(kDomainFile).find("[domain/trust.test]"), Text(kDomainFile).rfind("[domain/trust.test]"));
    EXPECT_EQ(Text(kDomainFile).find("[domain/corp.test]"), Text(kDomainFile).rfind("[domain/corp.test]"));
}

// An unusual trust keeps no host out of its own domain.
TEST_F(SnippetsTest, ForestsThatSssdDoesNotTakeAreLeftOut) {
    auto corp = Corp();
    corp.trustedForests = {"tr\xc3\xbcst.test", "a\n[domain/evil]", "", "trust.test"};
    logIns.Enable(corp);
    EXPECT_THAT(Text(kDomainFile), HasSubstr("[domain/trust.test]\n"));
    EXPECT_THAT(Text(kDomainFile), Not(HasSubstr("evil")));
    EXPECT_THAT(Text(kDomainFile), Not(HasSubstr("tr\xc3")));
    for (int number = 0; number < 300; ++number) corp.trustedForests.push_back("t" + std::to_string(number) + ".test");
    logIns.Enable(corp);
    EXPECT_THAT(Text(kDomainFile), HasSubstr("[domain/t254.test]\n"));
    EXPECT_THAT(Text(kDomainFile), Not(HasSubstr("[domain/t255.test]\n")));
}

TEST_F(SnippetsTest, TheAdministratorsChoicesAreWritten) {
    LogIns chosen(RootPath(), {.shell = "/bin/zsh", .home = "/srv/%d/%u", .fullNames = false, .access = "simple"});
    auto corp = Corp();
    corp.trustedForests = {"trust.test"};
    chosen.Enable(corp);
    const std::string text = Text(kDomainFile);
    EXPECT_THAT(text, HasSubstr("default_shell = /bin/zsh\n"));
    EXPECT_THAT(text, HasSubstr("fallback_homedir = /srv/%d/%u\n"));
    EXPECT_THAT(text, HasSubstr("access_provider = simple\n"));
    EXPECT_THAT(text.substr(0, text.find("[domain/trust.test]")), HasSubstr("use_fully_qualified_names = false\n"));
    EXPECT_THAT(text.substr(text.find("[domain/trust.test]")), HasSubstr("use_fully_qualified_names = true\n"));
}

TEST_F(SnippetsTest, PreferredControllersComeBeforeThoseOfDns) {
    logIns.Enable(Corp());
    logIns.SetPreferredControllers({"dc2.corp.test", "dc1.corp.test", "dc2.corp.test"});
    EXPECT_EQ(Text(kControllersFile),
              kHeading + std::string("[domain/corp.test]\nad_server = dc2.corp.test, dc1.corp.test, _srv_\n"));
    EXPECT_THAT(logIns.PreferredControllers(), ElementsAre("dc2.corp.test", "dc1.corp.test"));
    logIns.SetPreferredControllers({});
    EXPECT_FALSE(Has(kControllersFile));
    EXPECT_THAT(logIns.PreferredControllers(), IsEmpty());
}

TEST_F(SnippetsTest, SmartCardServicesAreRelativeToTheBuiltInOnes) {
    logIns.Enable(Corp());
    logIns.SetSmartCardServices({"sshd", "login", "sshd"});
    EXPECT_EQ(Text(kSmartCardFile),
              kHeading + std::string("[pam]\npam_cert_auth = true\npam_p11_allowed_services = +sshd, +login, -su, "
                                     "-su-l, -gdm-smartcard, -gdm-password, -kdm, -sudo, -sudo-i, "
                                     "-gnome-screensaver\n"));
    EXPECT_THAT(logIns.SmartCardServices(), ElementsAre("sshd", "login"));
}

TEST_F(SnippetsTest, AnEmptySetOfSmartCardServicesSwitchesCardsOff) {
    logIns.Enable(Corp());
    EXPECT_FALSE(Has(kSmartCardFile));
    logIns.SetSmartCardServices({});
    EXPECT_EQ(Text(kSmartCardFile), kHeading + std::string("[pam]\npam_cert_auth = false\n"));
    EXPECT_THAT(logIns.SmartCardServices(), IsEmpty());
}

TEST_F(SnippetsTest, SettingsMadeBeforeAJoinWaitForIt) {
    logIns.SetPreferredControllers({"dc2.corp.test"});
    logIns.SetSmartCardServices({"sshd"});
    EXPECT_FALSE(Has("/etc/sssd"));
    EXPECT_THAT(logIns.PreferredControllers(), ElementsAre("dc2.corp.test"));
    logIns.Enable(Corp());
    EXPECT_THAT(NamesIn("/etc/sssd/conf.d"),
                ElementsAre("50-nimauth-domain.conf", "55-nimauth-controllers.conf", "60-nimauth-smartcard.conf"));
}

TEST_F(SnippetsTest, TheFilesAreTheOwnersAloneUnderAnyUmask) {
    for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
        const mode_t before = umask(mask);
        logIns.Enable(Corp());
        logIns.SetPreferredControllers({"dc2.corp.test"});
        logIns.SetSmartCardServices({"sshd"});
        umask(before);
        for (const char* const file : {kDomainFile, kControllersFile, kSmartCardFile, kRecordFile}) {
            EXPECT_EQ(Mode(file), 0600U) << file << " under " << mask;
        }
        EXPECT_EQ(Mode("/etc/sssd/conf.d"), 0711U);
        EXPECT_EQ(Mode("/var/lib/nimbrel"), 0755U);
        logIns.Disable();
    }
}

TEST_F(SnippetsTest, AWrongModeIsPutRight) {
    logIns.Enable(Corp());
    Put(kDomainFile, Text(kDomainFile), 0644);
    logIns.Enable(Corp());
    EXPECT_EQ(Mode(kDomainFile), 0600U);
}

TEST_F(SnippetsTest, EnablingAgainTouchesNothing) {
    logIns.Enable(Corp());
    struct stat first = {};
    struct stat second = {};
    ASSERT_EQ(stat(Path(kDomainFile).c_str(), &first), 0);
    logIns.Enable(Corp());
    ASSERT_EQ(stat(Path(kDomainFile).c_str(), &second), 0);
    EXPECT_EQ(first.st_ino, second.st_ino);
}

TEST_F(SnippetsTest, AnotherDomainTakesThePlaceOfTheOld) {
    logIns.Enable(Corp());
    logIns.SetPreferredControllers({"dc2.corp.test"});
    logIns.Enable(Other());
    EXPECT_THAT(Text(kDomainFile), Not(HasSubstr("corp.test")));
    EXPECT_THAT(Text(kControllersFile), HasSubstr("[domain/other.test]"));
}

TEST_F(SnippetsTest, WithoutAKeytabNothingIsWritten) {
    auto corp = Corp();
    corp.keytab = "/etc/other.keytab";
    const auto before = Everything();
    EXPECT_EQ(StatusOf([&] { logIns.Enable(corp); }), 2U);
    EXPECT_EQ(Everything(), before);
}

TEST_F(SnippetsTest, DisableLeavesNothing) {
    auto before = Everything();
    auto corp = Corp();
    corp.trustedForests = {"trust.test"};
    logIns.Enable(corp);
    logIns.SetPreferredControllers({"dc2.corp.test"});
    logIns.SetSmartCardServices({"sshd"});
    logIns.Disable();
    EXPECT_THAT(logIns.PreferredControllers(), IsEmpty());
    for (const char* const folder : {"/var", "/var/lib", "/var/lib/nimbrel"}) before[folder] = "755 folder";
    EXPECT_EQ(Everything(), before);
}

TEST_F(SnippetsTest, DisabledDomainLeavesWhatWasSetBeforeIt) {
    logIns.DisableDomain();
    logIns.SetPreferredControllers({"dc2.corp.test"});
    logIns.SetSmartCardServices({});
    const auto before = Everything();
    logIns.DisableDomain();
    EXPECT_EQ(Everything(), before);
    logIns.Enable(Corp());
    logIns.DisableDomain();
    EXPECT_EQ(Everything(), before);
    logIns.Enable(Corp());
    EXPECT_THAT(NamesIn("/etc/sssd/conf.d"),
                ElementsAre("50-nimauth-domain.conf", "55-nimauth-controllers.conf", "60-nimauth-smartcard.conf"));
}

TEST_F(SnippetsTest, DisabledDomainWithoutSettingsLeavesNothing) {
    auto before = Everything();
    logIns.Enable(Corp());
    logIns.DisableDomain();
    for (const char* const folder : {"/var", "/var/lib", "/var/lib/nimbrel"}) before[folder] = "755 folder";
    EXPECT_EQ(Everything(), before);
}

TEST_F(SnippetsTest, DisableOnAFreshHostDoesNothing) {
    const auto before = Everything();
    logIns.Disable();
    EXPECT_EQ(Everything(), before);
}

TEST_F(SnippetsTest, TheAdministratorsFilesStay) {
    Put("/etc/sssd/sssd.conf", "[sssd]\n", 0600);
    Put("/etc/sssd/conf.d/70-local.conf", "[domain/corp.test]\n", 0600);
    const auto before = Everything();
    logIns.Enable(Corp());
    logIns.Disable();
    EXPECT_EQ(Text("/etc/sssd/conf.d/70-local.conf"), "[domain/corp.test]\n");
    EXPECT_THAT(NamesIn("/etc/sssd/conf.d"), ElementsAre("70-local.conf"));
    EXPECT_THAT(NamesIn("/etc/sssd"), ElementsAre("conf.d", "sssd.conf"));
}

TEST_F(SnippetsTest, ALostRecordDoesNotKeepAnythingFromBeingRemoved) {
    logIns.Enable(Corp());
    std::remove(Path(kRecordFile).c_str());
    logIns.Disable();
    EXPECT_FALSE(Has(kDomainFile));
}

TEST_F(SnippetsTest, ALinkInThePlaceOfARecordIsRefused) {
    Put("/elsewhere", "domain evil.test\n");
    Put("/var/lib/nimbrel/empty", "");
    ASSERT_EQ(symlink(Path("/elsewhere").c_str(), Path(kRecordFile).c_str()), 0);
    EXPECT_EQ(StatusOf([&] { logIns.PreferredControllers(); }), 5U);
    EXPECT_EQ(StatusOf([&] { logIns.Enable(Corp()); }), 5U);
}

// A folder that all may read can be locked by all.
TEST_F(SnippetsTest, NobodyWithoutRightsToTheFilesHoldsUpAChange) {
    Put("/var/lib/nimbrel/embedded-accounts", "");
    const int anybody = open(Path("/var/lib/nimbrel").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(anybody, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(StatusOf([&] { logIns.Enable(Corp()); }), 0U);
    EXPECT_EQ(StatusOf([&] { logIns.Disable(); }), 0U);
    close(anybody);
    EXPECT_THAT(NamesIn("/var/lib/nimbrel"), ElementsAre("embedded-accounts"));
}

TEST_F(SnippetsTest, ALockThatOthersMayOpenIsRefused) {
    for (const unsigned mode : {0604U, 0640U, 0602U}) {
        Put(kLockFile, "", mode);
        EXPECT_EQ(StatusOf([&] { logIns.Enable(Corp()); }), 5U) << std::oct << mode;
    }
    ASSERT_EQ(unlink(Path(kLockFile).c_str()), 0);
    ASSERT_EQ(symlink(Path("/elsewhere").c_str(), Path(kLockFile).c_str()), 0);
    EXPECT_EQ(StatusOf([&] { logIns.Enable(Corp()); }), 5U);
    EXPECT_FALSE(Has("/elsewhere"));
}

TEST_F(SnippetsTest, ALockThatAKilledProcessLeftIsTakenOver) {
    Put(kLockFile, "", 0600);
    EXPECT_EQ(StatusOf([&] { logIns.Enable(Corp()); }), 0U);
    EXPECT_FALSE(Has(kLockFile));
}

}  // namespace
}  // namespace nimbrel::ad::test
