// Kerberos has one word for accounts that are disabled, expired or locked. Where an authority's certificate is at hand the
// controller is asked over TLS which it is.

#include <gmock/gmock.h>

#include "joining_host.h"
#include "plugins/ad/domain/tls_door.h"

namespace nimbrel::ad::test {
namespace {

class Reasons : public JoiningHost {
 protected:
    Reasons() { corp.keys.Refuse("admin1", KRB5KDC_ERR_CLIENT_REVOKED); }

    // The join's status where the door answers so.
    std::uint32_t JoinWith(const Result& answer, const char* user = "admin1") {
        const testing::Extensions names = {{"subjectAltName", _certified}};
        TlsDoor door(testing::MakeCertificate("dc1", &_authority, -3600, 86400, names), answer);
        settings.ldapsPort = door.Port();
        const std::uint32_t status = Join("", "Secret-1", user);
        _asked = door.LastName();
        return status;
    }
    void TrustAuthority(const std::string& pem) {
        WriteFile(Path("ca.pem"), pem);
        settings.certificateAuthority = Path("ca.pem");
    }

    const testing::Certificate _authority = testing::MakeCertificate("Corp CA");
    std::string _certified = "DNS:corp.test";
    std::string _asked;
};

TEST_F(Reasons, ControllerTellsWhy) {
    TrustAuthority(_authority.pem);
    const struct {
        const char* diagnostic;
        std::uint32_t status;
    } kRows[] = {
        {"80090308: LdapErr: DSID-0C09041C, comment: AcceptSecurityContext error, data 533, v4563",
         kStatusAccountDisabled},
        {"80090308: LdapErr: data 701, v4563", kStatusAccountExpired},
        {"80090308: LdapErr: data 775, v4563", kStatusAccountLocked},
        {"80090308: LdapErr: data 773, v4563", kStatusPasswordMustChange},
        {"80090308: LdapErr: data 532, v4563", kStatusPasswordExpired},
        {"80090308: LdapErr: data 52e, v4563", kStatusAccountDisabled},
        {"no data", kStatusAccountDisabled},
        {"80090308: data zz", kStatusAccountDisabled},
    };
    for (const auto& row : kRows) EXPECT_EQ(JoinWith({49, row.diagnostic}), row.status) << row.diagnostic;
    EXPECT_EQ(_asked, "admin1@corp.test");
}

TEST_F(Reasons, ExpiredPasswordIsToldApartToo) {
    TrustAuthority(_authority.pem);
    corp.keys.Refuse("admin1", KRB5KDC_ERR_KEY_EXP);
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 532, v4563"}), kStatusPasswordExpired);
    EXPECT_EQ(JoinWith({0, ""}), kStatusPasswordMustChange) << "the refusal stands whatever the door says";
}

TEST_F(Reasons, PrincipalNameIsSentAsItIs) {
    TrustAuthority(_authority.pem);
    corp.keys.Refuse("Admin1@corp.example", KRB5KDC_ERR_CLIENT_REVOKED);
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}, "Admin1@corp.example"), kStatusAccountLocked);
    EXPECT_EQ(_asked, "Admin1@corp.example");
}

TEST_F(Reasons, NobodyIsAskedWithoutAnAuthority) {
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountDisabled);
    EXPECT_EQ(_asked, "");
}

TEST_F(Reasons, ControllerThatDoesNotProveItselfGetsNoPassword) {
    TrustAuthority(testing::MakeCertificate("Another CA").pem);
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountDisabled);
    EXPECT_EQ(_asked, "");
    TrustAuthority("not a certificate");
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountDisabled);
    EXPECT_EQ(_asked, "");
}

// The firm's authority signs for many hosts, and an answer that nobody has proved chooses among them.
TEST_F(Reasons, HostThatTheAnswerNamesGetsNoPassword) {
    TrustAuthority(_authority.pem);
    for (const char* name : {"DNS:dc1.corp.test", "DNS:www.corp.test", "DNS:corp.test.example", "IP:127.0.0.1",
                             "DNS:*.test", "DNS:*.corp.test", "email:admin@corp.test"}) {
        _certified = name;
        EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountDisabled) << name;
        EXPECT_EQ(_asked, "") << name;
    }
}

TEST_F(Reasons, NameIsOneOfTheAlternativeOnesAndInAnyCase) {
    TrustAuthority(_authority.pem);
    _certified = "DNS:dc1.corp.test,DNS:CORP.Test,DNS:CORP";
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountLocked);
}

TEST_F(Reasons, CommonNameIsNoProof) {
    TrustAuthority(_authority.pem);
    TlsDoor door(testing::MakeCertificate("corp.test", &_authority), {49, "80090308: LdapErr: data 775, v4563"});
    settings.ldapsPort = door.Port();
    EXPECT_EQ(Join(), kStatusAccountDisabled);
    EXPECT_EQ(door.LastName(), "");
}

TEST_F(Reasons, HostThatTheAdministratorNamesGetsIt) {
    TrustAuthority(_authority.pem);
    _certified = "DNS:dc1.corp.test";
    TheHost().SetPreferredControllers({"dc1.corp.test"});
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountLocked);
    _certified = "DNS:*.corp.test";
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountDisabled) << "any host may have that";
    EXPECT_EQ(_asked, "");
    _certified = "DNS:dc1.corp.test";
    TheHost().SetPreferredControllers({"127.0.0.1"});
    EXPECT_EQ(JoinWith({49, "80090308: LdapErr: data 775, v4563"}), kStatusAccountDisabled) << "that is no name";
}

TEST_F(Reasons, RefusalStandsWhereNobodyListens) {
    TrustAuthority(_authority.pem);
    settings.ldapsPort = 1;
    EXPECT_EQ(Join(), kStatusAccountDisabled);
}

}  // namespace
}  // namespace nimbrel::ad::test
