#include "services/apxd/revocation_lists.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "certificates.h"
#include "services/apxd/datum.h"

namespace nimbrel::apxd::test {
namespace {

using testing::Certificate;
using testing::Extensions;
using testing::MakeCertificate;
using testing::MakeRevocationList;

constexpr char kOutdated[] = "the list of revoked certificates is out of date";

class ApxdRevocationLists : public ::testing::Test {
 protected:
    // Why a client that shows these is refused.
    static std::string Fault(const RevocationLists& lists, const std::vector<Certificate>& chain, long later = 0) {
        std::vector<std::string> ders;
        std::vector<gnutls_datum_t> data;
        for (const Certificate& one : chain) ders.push_back(DerOf(one));
        for (const std::string& der : ders) data.push_back(Datum(der));
        const std::time_t now = std::time(nullptr) + later;
        const char* const fault = lists.FaultOf(data.data(), static_cast<unsigned>(data.size()), now);
        return fault == nullptr ? "" : fault;
    }
    static std::string DerOf(const Certificate& certificate) {
        const gnutls_datum_t pem = Datum(certificate.pem);
        gnutls_datum_t der = {};
        EXPECT_EQ(gnutls_pem_base64_decode2("CERTIFICATE", &pem, &der), 0);
        const std::string text(reinterpret_cast<const char*>(der.data), der.size);
        gnutls_free(der.data);
        return text;
    }
    static bool Holds(const RevocationLists& lists, const Certificate& certificate) {
        return Fault(lists, {certificate}) == "the client's certificate is revoked";
    }
    std::string ErrorOf(const std::string& lists) const {
        try {
            RevocationLists::Read(lists, authority.pem);
            return "read";
        } catch (const RevocationListError& error) {
            return error.what();
        }
    }

    const Certificate authority = MakeCertificate("clients");
    const Certificate other = MakeCertificate("others");
    const Certificate first = MakeCertificate("node01", &authority);
    const Certificate second = MakeCertificate("node02", &authority);
};

TEST_F(ApxdRevocationLists, HoldWhatTheyNameAndNothingElse) {
    EXPECT_FALSE(Holds(RevocationLists(), first));
    EXPECT_FALSE(Holds(RevocationLists::Read(MakeRevocationList(authority, {}), authority.pem), first));
    const auto lists = RevocationLists::Read(MakeRevocationList(authority, {first}), authority.pem);
    EXPECT_TRUE(Holds(lists, first));
    EXPECT_FALSE(Holds(lists, second));
}

TEST_F(ApxdRevocationLists, SerialNumberOfAnotherAuthorityIsAnotherCertificate) {
    const auto lists = RevocationLists::Read(MakeRevocationList(other, {first}), authority.pem + other.pem);
    EXPECT_FALSE(Holds(lists, first));
}

// Names are alike however they are encoded, and whatever the case of their letters (RFC 5280, section 7.1).
TEST_F(ApxdRevocationLists, NameOfTheIssuerMayBeSpelledOtherwise) {
    const std::string list = MakeRevocationList(authority, {first}, -3600, 86400, {.issuer = "Clients"});
    const auto lists = RevocationLists::Read(list, authority.pem);
    EXPECT_TRUE(Holds(lists, first));
    EXPECT_FALSE(Holds(lists, second));
}

TEST_F(ApxdRevocationLists, SeveralCountTogether) {
    const Certificate theirs = MakeCertificate("node01", &other);
    const std::string text = MakeRevocationList(authority, {first}) + MakeRevocationList(other, {theirs}, -3600, 60) +
                             MakeRevocationList(authority, {second});
    const auto lists = RevocationLists::Read(text, authority.pem + other.pem);
    for (const Certificate& one : {first, second, theirs}) EXPECT_TRUE(Holds(lists, one));
    EXPECT_EQ(Fault(lists, {MakeCertificate("node03", &authority)}), "");
    EXPECT_EQ(Fault(lists, {MakeCertificate("node03", &authority)}, 61), kOutdated) << "one of them";
}

TEST_F(ApxdRevocationLists, OneThatIsNeverRenewedIsNeverOutOfDate) {
    EXPECT_EQ(Fault(RevocationLists(), {first}, 1'000'000'000), "");
    const auto lists = RevocationLists::Read(MakeRevocationList(authority, {first}, -3600, 0), authority.pem);
    EXPECT_EQ(Fault(lists, {second}, 1'000'000'000), "");
}

TEST_F(ApxdRevocationLists, NobodyIsGoodByOneThatIsOutOfDate) {
    const auto lists = RevocationLists::Read(MakeRevocationList(authority, {first}, -7200, -3600), authority.pem);
    EXPECT_TRUE(lists.AreOutdated(std::time(nullptr)));
    for (const Certificate& one : {first, second}) EXPECT_EQ(Fault(lists, {one}), kOutdated);
}

TEST_F(ApxdRevocationLists, AuthorityOnTheWayIsLookedForToo) {
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, {{"basicConstraints", "CA:TRUE"}});
    const Certificate client = MakeCertificate("node01", &site);
    const auto lists = RevocationLists::Read(MakeRevocationList(authority, {site}), authority.pem);
    EXPECT_NE(Fault(lists, {client, site}), "");
    EXPECT_EQ(Fault(lists, {second, authority}), "");
}

// One that a client need not send.
TEST_F(ApxdRevocationLists, RevokedAuthorityIsNotTrusted) {
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, {{"basicConstraints", "CA:TRUE"}});
    const std::string all = authority.pem + site.pem + other.pem;
    EXPECT_EQ(RevocationLists().LeftOf(all), all);
    EXPECT_EQ(RevocationLists::Read(MakeRevocationList(authority, {first}), all).LeftOf(all), all);
    const auto lists = RevocationLists::Read(MakeRevocationList(authority, {site}), all);
    EXPECT_EQ(lists.LeftOf(all), authority.pem + other.pem);
    EXPECT_THROW(lists.LeftOf(site.pem), RevocationListError);
    // Nor are those that it alone has signed.
    const Extensions mayIssue = {{"basicConstraints", "CA:TRUE"}};
    const Certificate below = MakeCertificate("below", &site, -3600, 86400, mayIssue);
    const Certificate furtherBelow = MakeCertificate("further", &below, -3600, 86400, mayIssue);
    EXPECT_EQ(lists.LeftOf(furtherBelow.pem + below.pem + all), authority.pem + other.pem);
}

TEST_F(ApxdRevocationLists, AuthorityMayHaveTwoKeys) {
    const Certificate renewed = MakeCertificate("clients");
    const std::string lists = MakeRevocationList(authority, {first}) + MakeRevocationList(renewed, {second});
    for (const std::string& both : {authority.pem + renewed.pem, renewed.pem + authority.pem}) {
        EXPECT_TRUE(Holds(RevocationLists::Read(lists, both), first));
        EXPECT_TRUE(Holds(RevocationLists::Read(lists, both), second));
    }
}

TEST_F(ApxdRevocationLists, ListOfAPartIsRefused) {
    EXPECT_EQ(
        ErrorOf(MakeRevocationList(authority, {first}, -3600, 86400, {.isDelta = true})),
        "holds a list of a part of the revoked certificates (critical extension 2.5.29.27): a whole one is needed");
}

// As authorities of years have them, with a reason for each.
TEST_F(ApxdRevocationLists, LargeListIsRead) {
    const std::string list = MakeRevocationList(authority, {first}, -3600, 86400, {.times = 40'000});
    EXPECT_GT(list.size(), 2'000'000U);
    EXPECT_TRUE(Holds(RevocationLists::Read(list, authority.pem), first));
}

TEST_F(ApxdRevocationLists, DamageIsTold) {
    std::string list = MakeRevocationList(authority, {first});
    list.insert(list.size() / 2, "!");
    EXPECT_EQ(ErrorOf(list), "holds something that cannot be read");
    EXPECT_EQ(ErrorOf(MakeRevocationList(authority, {}) + list), "holds something that cannot be read");
}

TEST_F(ApxdRevocationLists, CertificateThatCannotBeReadIsNotGood) {
    const auto lists = RevocationLists::Read(MakeRevocationList(authority, {first}), authority.pem);
    const std::string junk = "junk";
    const gnutls_datum_t datum = Datum(junk);
    EXPECT_NE(lists.FaultOf(&datum, 1, std::time(nullptr)), nullptr);
}

TEST_F(ApxdRevocationLists, OfSomebodyElseAreRefused) {
    const std::string unsignedByIt = "holds a list that no authority of 'client-ca' has signed";
    EXPECT_EQ(ErrorOf(MakeRevocationList(other, {first})), unsignedByIt);
    EXPECT_EQ(ErrorOf(MakeRevocationList(authority, {}) + MakeRevocationList(other, {})), unsignedByIt);
    for (const long next : {86400L, -3600L}) {
        const std::string list = MakeRevocationList(MakeCertificate("clients"), {first}, -7200, next);
        EXPECT_EQ(ErrorOf(list), unsignedByIt) << "of the same name";
    }
}

TEST_F(ApxdRevocationLists, SignatureThatProvesNothingIsRefused) {
    const std::string unsignedByIt = "holds a list that no authority of 'client-ca' has signed";
    EXPECT_EQ(ErrorOf(MakeRevocationList(authority, {first}, -3600, 86400, {.digest = "SHA1"})), unsignedByIt);
    const Certificate issuesOnly = MakeCertificate("clients", nullptr, -3600, 86400, {{"keyUsage", "keyCertSign"}});
    EXPECT_THROW(RevocationLists::Read(MakeRevocationList(issuesOnly, {first}), issuesOnly.pem), RevocationListError);
    const Certificate signsLists = MakeCertificate("clients", nullptr, -3600, 86400, {{"keyUsage", "cRLSign"}});
    EXPECT_TRUE(Holds(RevocationLists::Read(MakeRevocationList(signsLists, {first}), signsLists.pem), first));
}

TEST_F(ApxdRevocationLists, TextWithoutAListIsRefused) {
    for (const std::string& text : {std::string(), std::string("none\n"), authority.pem}) {
        EXPECT_EQ(ErrorOf(text), "holds no list of revoked certificates") << text;
    }
    std::string damaged = MakeRevocationList(authority, {first});
    damaged.erase(100, 40);
    EXPECT_NE(ErrorOf(damaged), "read");
}

}  // namespace
}  // namespace nimbrel::apxd::test
