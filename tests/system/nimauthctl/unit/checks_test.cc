// The checks of a joined host, on hosts in a temporary folder.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/temporary_folder.h"
#include "tools/loginfiles/pam_text.h"
#include "tools/nimauthctl/checks/host_checks.h"
#include "tools/nimauthctl/checks/keytab.h"
#include "tools/nimauthctl/checks/login_files.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string Number(std::size_t value, int bytes) {
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(value >> shift);
    return text;
}

std::string Counted(const std::string& text) { return Number(text.size(), 2) + text; }

// An entry as Kerberos writes it: name, type of the name, time, key version, key.
std::string Entry(const std::string& realm, const std::vector<std::string>& parts) {
    std::string entry = Number(parts.size(), 2) + Counted(realm);
    for (const auto& part : parts) entry += Counted(part);
    entry += Number(1, 4) + Number(0, 4) + Number(2, 1) + Number(18, 2) + Counted(std::string(32, 'k'));
    return Number(entry.size(), 4) + entry;
}

std::string Keytab(const std::vector<std::string>& entries) {
    std::string bytes = "\x05\x02";
    for (const auto& entry : entries) bytes += entry;
    return bytes;
}

const std::string& Own() {
    static const std::string bytes =
        Keytab({Entry("CORP.TEST", {"NODE01$"}), Entry("CORP.TEST", {"host", "node01.corp.test"})});
    return bytes;
}

TEST(KeytabPrincipalsTest, AreReadEachOnce) {
    const std::string hole = Number(0xfffffffcU, 4) + "gone";
    const auto principals =
        KeytabPrincipals(Own() + hole + Entry("CORP.TEST", {"NODE01$"}) + Entry("OTHER.TEST", {"x"}));
    ASSERT_TRUE(principals);
    EXPECT_THAT(*principals, ElementsAre("NODE01$@CORP.TEST", "host/node01.corp.test@CORP.TEST", "x@OTHER.TEST"));
    EXPECT_THAT(KeytabPrincipals("\x05\x02").value(), ElementsAre());
    // An entry of no length ends the file.
    EXPECT_THAT(KeytabPrincipals(Keytab({Entry("CORP.TEST", {"NODE01$"})}) + std::string(64, '\0')).value(),
                ElementsAre("NODE01$@CORP.TEST"));
}

TEST(KeytabPrincipalsTest, OtherBytesAreNoKeytab) {
    for (const std::string bytes : {"", "\x05", "\x05\x01", "text", "\x05\x02\x01"}) {
        EXPECT_FALSE(KeytabPrincipals(bytes)) << bytes;
    }
    // A length that no file has, and the most negative one.
    EXPECT_FALSE(KeytabPrincipals("\x05\x02\x7f\xff\xff\xff"));
    EXPECT_FALSE(KeytabPrincipals(std::string("\x05\x02\x80\x00\x00\x00", 6)));
    // Every cut but those between entries.
    const std::size_t first = 2 + Entry("CORP.TEST", {"NODE01$"}).size();
    for (std::size_t size = 0; size < Own().size(); ++size) {
        EXPECT_EQ(KeytabPrincipals(Own().substr(0, size)).has_value(), size == 2 || size == first) << size;
    }
}

TEST(NamesServiceTest, LinesOfTheSwitch) {
    struct Row {
        const char* text;
        bool named;
    };
    const Row rows[] = {
        {"passwd: files sss\n", true},
        {"passwd:\tfiles  sss systemd\n", true},
        {" passwd : sss\n", true},
        {"passwd: files [NOTFOUND=return] sss\n", true},
        {"passwd: files [sss=return]\n", false},
        {"passwd: files # sss\n", false},
        {"#passwd: sss\n", false},
        {"group: sss\n", false},
        {"passwd: files sssd\n", false},
        {"", false},
        {"passwd\n", false},
        {"passwd: files\npasswd: sss\n", false},
        {"passwd: [", false},
    };
    for (const auto& row : rows) EXPECT_EQ(NamesService(row.text, "passwd", "sss"), row.named) << row.text;
}

class ChecksTest : public ::testing::Test {
 protected:
    std::string Root() const { return _folder.Path("root"); }
    void Put(const std::string& path, const std::string& text, unsigned mode = 0644) const {
        std::filesystem::create_directories(std::filesystem::path(Root() + path).parent_path());
        _folder.Put("root" + path, text, mode);
    }
    void PutPam(const std::string& service, const std::string& text) const { Put("/etc/pam.d/" + service, text); }
    bool Reaches(const std::string& service, const std::string& type) const {
        return logins::Uses(logins::ReadPamFiles(Root()), service, type, "pam_sss.so");
    }

 private:
    TemporaryFolder _folder;
};

TEST_F(ChecksTest, PamLinesLeadToTheModule) {
    PutPam("direct", "auth required pam_sss.so forward_pass\n");
    PutPam("path", "auth [success=1 default=ignore] /lib/security/pam_sss.so\n");
    PutPam("include", "@include direct\n");
    PutPam("old", "auth include direct\naccount substack direct\n");
    PutPam("dash", "-Auth \\\n sufficient \\\n pam_sss.so\n");
    PutPam("loop", "@include loop\n");
    PutPam("comment", "#auth required pam_sss.so\nauth required pam_unix.so # pam_sss.so\n");
    PutPam("other", "session optional pam_sss.so\n");
    PutPam("argument", "auth required pam_unix.so pam_sss.so\n");
    Put("/usr/lib/pam.d/vendor", "auth required pam_sss.so\n");
    Put("/usr/lib/pam.d/argument", "auth required pam_sss.so\n");
    for (const char* const service : {"direct", "path", "include", "old", "dash", "vendor"}) {
        EXPECT_TRUE(Reaches(service, "auth")) << service;
        EXPECT_FALSE(Reaches(service, "account")) << service;
    }
    for (const char* const service : {"loop", "comment", "other", "argument", "missing"}) {
        EXPECT_FALSE(Reaches(service, "auth")) << service;
    }
}

TEST_F(ChecksTest, PamFilesThatIncludeEachOtherTwiceEnd) {
    for (int depth = 0; depth < 40; ++depth) {
        const std::string next = std::to_string(depth + 1);
        PutPam(std::to_string(depth), "auth include " + next + "\nauth include " + next + "\n");
    }
    PutPam("login", "auth include 0\n");
    Put("/usr/lib/x86_64-linux-gnu/security/pam_sss.so", "");
    EXPECT_EQ(CheckPam(Root(), "pam_sss.so").verdict, Verdict::Fail);
}

TEST_F(ChecksTest, PamOfTheWholeHost) {
    EXPECT_THAT(CheckPam(Root(), "pam_sss.so").found, HasSubstr("not installed"));
    Put("/usr/lib/x86_64-linux-gnu/security/pam_sss.so", "");
    EXPECT_EQ(CheckPam(Root(), "pam_sss.so").verdict, Verdict::Warn) << "no service";
    PutPam("login", "@include common\n");
    PutPam("sshd", "@include common\n");
    PutPam("common", "auth required pam_unix.so\naccount required pam_unix.so\n");
    EXPECT_EQ(CheckPam(Root(), "pam_sss.so").verdict, Verdict::Fail);
    PutPam("sshd", "auth required pam_sss.so\n@include common\n");
    EXPECT_EQ(CheckPam(Root(), "pam_sss.so").found,
              "pam_sss.so is missing in login (auth), login (account), sshd (account)");
    PutPam("common", "auth required pam_sss.so\naccount required pam_sss.so\n");
    EXPECT_EQ(CheckPam(Root(), "pam_sss.so").verdict, Verdict::Pass);
}

TEST_F(ChecksTest, NameServiceOfTheWholeHost) {
    EXPECT_THAT(CheckNameService(Root(), "sss").found, HasSubstr("libnss_sss.so.2 is not installed"));
    Put("/lib/x86_64-linux-gnu/libnss_sss.so.2", "");
    EXPECT_THAT(CheckNameService(Root(), "sss").found, HasSubstr("passwd, group"));
    Put("/etc/nsswitch.conf", "passwd: files sss\ngroup: files\n");
    EXPECT_THAT(CheckNameService(Root(), "sss").found, HasSubstr("for group"));
    Put("/etc/nsswitch.conf", "passwd: files sss\ngroup: files sss\n");
    EXPECT_EQ(CheckNameService(Root(), "sss").verdict, Verdict::Pass);
}

TEST_F(ChecksTest, KeytabOfTheWholeHost) {
    EXPECT_THAT(CheckKeytab(Root(), "corp.test").found, HasSubstr("is missing"));
    Put("/etc/krb5.keytab", "text", 0600);
    EXPECT_THAT(CheckKeytab(Root(), "corp.test").found, HasSubstr("is no keytab"));
    Put("/etc/krb5.keytab", Own(), 0600);
    EXPECT_THAT(CheckKeytab(Root(), "other.test").found, HasSubstr("has no key of OTHER.TEST"));
    Put("/etc/krb5.keytab", Own(), 0640);
    EXPECT_EQ(CheckKeytab(Root(), "corp.test").verdict, Verdict::Warn);
    Put("/etc/sssd/conf.d/50.conf", "[domain/corp.test]\nkrb5_keytab = /etc/other.keytab\n", 0600);
    EXPECT_THAT(CheckKeytab(Root(), "corp.test").found, HasSubstr("/etc/other.keytab is missing"));
}

TEST_F(ChecksTest, SssdsConfigurationOfTheDomain) {
    EXPECT_EQ(CheckSssdConfiguration(Root(), "corp.test").verdict, Verdict::Fail);
    Put("/etc/sssd/sssd.conf", "[domain/other.test]\n", 0600);
    EXPECT_EQ(CheckSssdConfiguration(Root(), "corp.test").verdict, Verdict::Fail);
    Put("/etc/sssd/conf.d/50.conf", "[sssd]\n[domain/corp.test]\nid_provider = ad\n", 0644);
    const Finding open = CheckSssdConfiguration(Root(), "corp.test");
    EXPECT_EQ(open.verdict, Verdict::Fail);
    EXPECT_THAT(open.found, HasSubstr("/etc/sssd/conf.d/50.conf"));
    EXPECT_EQ(open.exitCode, ExitCode::Permission);
}

TEST_F(ChecksTest, SssdItself) {
    EXPECT_EQ(CheckSssdInstalled(Root()).verdict, Verdict::Fail);
    Put("/usr/sbin/sssd", "", 0755);
    EXPECT_EQ(CheckSssdInstalled(Root()).verdict, Verdict::Pass);
    EXPECT_THAT(CheckSssdRuns(Root()).found, HasSubstr("does not run"));
    for (const char* const text : {"", "x", "-1", "1", "0"}) {
        Put("/run/sssd.pid", text);
        EXPECT_EQ(CheckSssdRuns(Root()).verdict, Verdict::Fail) << text;
    }
    Put("/run/sssd.pid", std::to_string(getpid()));
    EXPECT_THAT(CheckSssdRuns(Root()).found, HasSubstr("does not run")) << "the number is somebody else's";
}

TEST(HostNameCheckTest, ComparesWithTheAccount) {
    struct Row {
        const char* name;
        const char* account;
        Verdict verdict;
    };
    const Row rows[] = {
        {"node01", "CN=NODE01,CN=Computers,DC=corp,DC=test", Verdict::Pass},
        {"Node01.corp.test", "cn=node01", Verdict::Pass},
        {"node02", "CN=NODE01,DC=corp", Verdict::Fail},
        {"node0", "CN=NODE01,DC=corp", Verdict::Fail},
        {"node01", "", Verdict::Warn},
        {"node01", "OU=NODE01", Verdict::Warn},
    };
    for (const auto& row : rows) EXPECT_EQ(CheckHostName(row.name, row.account).verdict, row.verdict) << row.account;
}

}  // namespace
}  // namespace nimbrel::nimauthctl
