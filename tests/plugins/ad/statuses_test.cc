// Which Windows status each refusal becomes.

#include <ldap.h>

#include "addirectory/host.h"
#include "kerberos.h"
#include "ldap_connection.h"
#include "log_on.h"
#include "sandbox.h"
#include "trusts.h"

namespace nimbrel::ad::test {
namespace {

TEST(Statuses, OfKerberos) {
    const struct {
        krb5_error_code code;
        std::uint32_t status;
    } rows[] = {{-1765328378, 1326}, {-1765328360, 1326}, {-1765328353, 1326}, {-1765328366, 1331}, {-1765328383, 1793},
                {-1765328361, 1907}, {-1765328347, 1398}, {-1765328228, 1355}, {-1765328377, 1355}, {12, 8},
                {-1765328370, 1327}, {12345, 1359}};
    for (const auto& row : rows) {
        EXPECT_EQ(StatusOfKerberosCode(row.code), row.status) << row.code;
    }
}

TEST(Statuses, OfLdap) {
    const struct {
        int code;
        const char* diagnostic;
        std::uint32_t status;
    } rows[] = {{LDAP_NO_SUCH_OBJECT, "", 2},
                {LDAP_INSUFFICIENT_ACCESS, "00002098: SecErr", 5},
                {LDAP_ALREADY_EXISTS, "", 1316},
                {LDAP_UNWILLING_TO_PERFORM, "0000216D: SvcErr: DSID-031A1254", 8557},
                {LDAP_CONSTRAINT_VIOLATION, "0000052D: AtrErr", 1325},
                {LDAP_UNWILLING_TO_PERFORM, "0000216D", 8557},
                {LDAP_UNWILLING_TO_PERFORM, "216D", 1359},
                {LDAP_SERVER_DOWN, "", 1355},
                {LDAP_REFERRAL, "0000202B: RefErr: DSID-0310082F", 1355},
                {LDAP_TIMEOUT, "", 1355},
                {LDAP_NO_MEMORY, "", 8},
                {LDAP_INVALID_CREDENTIALS, "", 1326},
                {LDAP_OTHER, "", 1359}};
    for (const auto& row : rows) {
        EXPECT_EQ(StatusOfLdapCode(row.code, row.diagnostic), row.status) << row.code << row.diagnostic;
    }
}

TEST(Statuses, OfDiagnosticTexts) {
    EXPECT_EQ(
        StatusOfDiagnostic("80090308: LdapErr: DSID-0C0903A9, comment: AcceptSecurityContext error, data 533, v1db1"),
        1331U);
    EXPECT_EQ(StatusOfDiagnostic("data 775"), 1909U);
    EXPECT_EQ(StatusOfDiagnostic("data 701"), 1793U);
    EXPECT_EQ(StatusOfDiagnostic("data 773"), 1907U);
    EXPECT_EQ(StatusOfDiagnostic("data "), 0U);
    EXPECT_EQ(StatusOfDiagnostic("data zz"), 0U);
    EXPECT_EQ(StatusOfDiagnostic(""), 0U);
}

TEST(Principals, OfUsersAsTyped) {
    const struct {
        const char* user;
        const char* principal;
        bool enterprise;
    } rows[] = {{"admin", "admin@CORP.TEST", false},
                {"admin@corp.test", "admin@CORP.TEST", false},
                {"admin@CORP", "admin@CORP.TEST", false},
                {"corp\\admin", "admin@CORP.TEST", false},
                {"Corp.Test\\admin", "admin@CORP.TEST", false},
                {"admin@example.com", "admin@example.com", true},
                {"trust.test\\admin", "admin@TRUST.TEST", false}};
    for (const auto& row : rows) {
        const Principal principal = PrincipalOf(row.user, "corp.test", "CORP");
        EXPECT_EQ(principal.name, row.principal) << row.user;
        EXPECT_EQ(principal.isEnterprise, row.enterprise) << row.user;
    }
    for (const char* user : {"", "\xff", "OTHER\\admin", "a/b", "a@b@c"}) {
        EXPECT_EQ(StatusOf([&] { PrincipalOf(user, "corp.test", "CORP"); }), kStatusLogonFailure) << user;
    }
}

TEST(Relationships, DirectionAndKind) {
    const struct {
        std::int64_t direction, type, attributes;
        std::int32_t relationship;
    } rows[] = {{1, 2, 0, 4},   {2, 2, 0, 3},  {3, 2, 0, 5},    {3, 2, 8, 21}, {2, 2, 8, 19}, {1, 2, 8, 20},
                {3, 2, 32, 37}, {3, 3, 0, 53}, {2, 3, 0x8, 51}, {0, 2, 0, 0},  {0, 2, 8, 0},  {3, 2, 4, 5}};
    for (const auto& row : rows) {
        const auto relationship = RelationshipOf(row.direction, row.type, row.attributes);
        EXPECT_EQ(relationship, row.relationship);
        for (const int reserved : {2, 6, 7}) {
            EXPECT_NE(relationship, reserved) << "the library's own";
        }
    }
}

// Every other bit of the direction and of the attributes says nothing here.
TEST(Relationships, OneBitAloneDecides) {
    for (int bit = 0; bit < 31; ++bit) {
        const std::int64_t attributes = std::int64_t{1} << bit;
        const std::int32_t kind = bit == 3   ? kRelationshipKindForest
                                  : bit == 5 ? kRelationshipKindWithinForest
                                             : kRelationshipKindExternal;
        EXPECT_EQ(RelationshipOf(2, 2, attributes), kRelationshipOutbound + kind) << bit;
        EXPECT_EQ(RelationshipOf(2 + (attributes << 2), 2, 0), kRelationshipOutbound + kRelationshipKindExternal)
            << bit;
        EXPECT_EQ(RelationshipOf(2, attributes, 32), kRelationshipOutbound + kRelationshipKindWithinForest);
    }
    EXPECT_EQ(RelationshipOf(3, 2, 8 + 32), kRelationshipBidirectional + kRelationshipKindWithinForest);
}

TEST(Relationships, WhoMayLogInWhere) {
    EXPECT_TRUE((Trust{"t", "T", kRelationshipOutbound}.LetsUsersIn()));
    EXPECT_FALSE((Trust{"t", "T", kRelationshipOutbound + kRelationshipKindForest}.LetsUsersOut()));
    EXPECT_FALSE((Trust{"t", "T", kRelationshipInbound + kRelationshipKindForest}.LetsUsersIn()));
    EXPECT_TRUE((Trust{"t", "T", kRelationshipBidirectional + kRelationshipKindRealm}.LetsUsersIn()));
    EXPECT_TRUE((Trust{"trust.test", "TRUST", 5}.IsNamed("Trust")));
    EXPECT_FALSE((Trust{"realm.test", "", 5}.IsNamed("")));
}

}  // namespace
}  // namespace nimbrel::ad::test
