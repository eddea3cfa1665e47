#include "services/apxd/revocation_lists.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "certificates.h"
#include "services/apxd/datum.h"

namespace nimbrel::apxd::test {
namespace {

using testing::Certificate;
using ::testing::ContainsRegex;
using testing::Extensions;
using testing::MakeCertificate;
using testing::MakeKey;
using testing::MakeRevocationList;

const Extensions kMayIssue = {{"basicConstraints", "CA:TRUE"}};
constexpr char kOutdated[] = "a list of revoked certificates is out of date";

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
    // A list that RSA has signed, with the name of RSA-PSS for it. The parameters stay: none, where PSS has its digest.
    static std::string WithSignatureOfPss(const std::string& list) {
        const gnutls_datum_t pem = Datum(list);
        gnutls_datum_t der = {};
        EXPECT_EQ(gnutls_pem_base64_decode2("X509 CRL", &pem, &der), 0);
        std::string text(reinterpret_cast<const char*>(der.data), der.size);
        gnutls_free(der.data);
        const std::string rsa = "\x2a\x86\x48\x86\xf7\x0d\x01\x01";  // what the names begin with
        for (auto at = text.find(rsa + '\x0b'); at != std::string::npos; at = text.find(rsa + '\x0b')) {
            text[at + rsa.size()] = '\x0a';
        }
        const gnutls_datum_t changed = Datum(text);
        EXPECT_EQ(gnutls_pem_base64_encode2("X509 CRL", &changed, &der), 0);
        const std::string encoded(reinterpret_cast<const char*>(der.data), der.size);
        gnutls_free(der.data);
        return encoded;
    }
    static bool Holds(const RevocationLists& lists, const Certificate& certificate) {
        return Fault(lists, {certificate}) == "the client's certificate is revoked";
    }
    static RevocationLists Read(const std::string& lists, const std::string& authorities, long later = 0) {
        return RevocationLists::Read(lists, authorities, std::time(nullptr) + later);
    }
    std::string ErrorOf(const std::string& lists) const { return ErrorOf(lists, authority.pem); }
    static std::string ErrorOf(const std::string& lists, const std::string& authorities) {
        try {
            Read(lists, authorities);
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
    EXPECT_FALSE(Holds(Read(MakeRevocationList(authority, {}), authority.pem), first));
    const auto lists = Read(MakeRevocationList(authority, {first}), authority.pem);
    EXPECT_TRUE(Holds(lists, first));
    EXPECT_FALSE(Holds(lists, second));
}

TEST_F(ApxdRevocationLists, SerialNumberOfAnotherAuthorityIsAnotherCertificate) {
    const auto lists = Read(MakeRevocationList(other, {first}), authority.pem + other.pem);
    EXPECT_FALSE(Holds(lists, first));
}

// Names are alike however they are encoded, and whatever the case of their letters (RFC 5280, section 7.1).
TEST_F(ApxdRevocationLists, NameOfTheIssuerMayBeSpelledOtherwise) {
    const std::string list = MakeRevocationList(authority, {first}, -3600, 86400, {.issuer = "Clients"});
    const auto lists = Read(list, authority.pem);
    EXPECT_TRUE(Holds(lists, first));
    EXPECT_FALSE(Holds(lists, second));
}

TEST_F(ApxdRevocationLists, SeveralCountTogether) {
    const Certificate theirs = MakeCertificate("node01", &other);
    const std::string text = MakeRevocationList(authority, {first}) + MakeRevocationList(other, {theirs}, -3600, 60) +
                             MakeRevocationList(authority, {second});
    const auto lists = Read(text, authority.pem + other.pem);
    for (const Certificate& one : {first, second, theirs}) EXPECT_TRUE(Holds(lists, one));
    EXPECT_EQ(Fault(lists, {MakeCertificate("node03", &authority)}), "");
    EXPECT_EQ(Fault(lists, {MakeCertificate("node03", &authority)}, 61), kOutdated) << "one of them";
}

TEST_F(ApxdRevocationLists, OneThatIsNeverRenewedIsNeverOutOfDate) {
    EXPECT_EQ(Fault(RevocationLists(), {first}, 1'000'000'000), "");
    const auto lists = Read(MakeRevocationList(authority, {first}, -3600, 0), authority.pem);
    EXPECT_EQ(Fault(lists, {second}, 1'000'000'000), "");
}

TEST_F(ApxdRevocationLists, NobodyIsGoodByOneThatIsOutOfDate) {
    const std::string text = MakeRevocationList(authority, {first}, -7200, -3600);
    const auto lists = Read(text, authority.pem, -3700);
    EXPECT_TRUE(lists.AreOutdated(std::time(nullptr)));
    for (const Certificate& one : {first, second}) EXPECT_EQ(Fault(lists, {one}), kOutdated);
    EXPECT_THAT(ErrorOf(text), ContainsRegex("^holds a list of 'CN=clients' that is out of date since "
                                             "20..-..-..T..:..:..Z: the next one is needed$"));
}

TEST_F(ApxdRevocationLists, LastMomentIsTheNextListsTime) {
    const std::string text = MakeRevocationList(authority, {first}, -3600, 60);
    const std::time_t now = std::time(nullptr);
    std::time_t last = now;
    for (const auto lists = RevocationLists::Read(text, authority.pem, now); !lists.AreOutdated(last + 1);) ++last;
    EXPECT_NEAR(static_cast<double>(last - now), 60, 30);
    EXPECT_NO_THROW(RevocationLists::Read(text, authority.pem, last));
    EXPECT_THROW(RevocationLists::Read(text, authority.pem, last + 1), RevocationListError);
}

TEST_F(ApxdRevocationLists, TimeThatIsNoneIsTold) {
    for (const char* const time : {"", "261399999999Z", "soon"}) {
        EXPECT_EQ(ErrorOf(MakeRevocationList(authority, {}, -3600, 86400, {.nextUpdate = time})),
                  "holds a list of 'CN=clients' with a time that cannot be read")
            << time;
    }
}

// Nobody of it gets in, and it makes no lists any more.
TEST_F(ApxdRevocationLists, ListOfARevokedAuthorityDoesNotAge) {
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, kMayIssue);
    const std::string lists = MakeRevocationList(authority, {site}) + MakeRevocationList(site, {}, -7200, -3600);
    EXPECT_EQ(Fault(Read(lists, authority.pem + site.pem), {second}), "");
    // Nor where another one has its name.
    const Certificate renewed = MakeCertificate("site", &authority, -3600, 86400, kMayIssue);
    const std::string all = authority.pem + site.pem + renewed.pem;
    EXPECT_EQ(Fault(Read(lists + MakeRevocationList(renewed, {}), all), {second}), "");
    EXPECT_NE(ErrorOf(lists + MakeRevocationList(renewed, {}, -7200, -3600), all), "read");
}

TEST_F(ApxdRevocationLists, AuthorityOnTheWayIsLookedForToo) {
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, kMayIssue);
    const Certificate client = MakeCertificate("node01", &site);
    const auto lists = Read(MakeRevocationList(authority, {site}), authority.pem);
    EXPECT_EQ(Fault(lists, {client, site}), "an authority that the client has sent is revoked");
    EXPECT_EQ(Fault(lists, {second, authority}), "");
}

// One that a client need not send.
TEST_F(ApxdRevocationLists, RevokedAuthorityIsNotTrusted) {
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, kMayIssue);
    const std::string all = authority.pem + site.pem + other.pem;
    EXPECT_EQ(RevocationLists().LeftOf(all), all);
    EXPECT_EQ(Read(MakeRevocationList(authority, {first}), all).LeftOf(all), all);
    const auto lists = Read(MakeRevocationList(authority, {site}), all);
    EXPECT_EQ(lists.LeftOf(all), authority.pem + other.pem);
    EXPECT_THROW(lists.LeftOf(site.pem), RevocationListError);
    // Nor are those that it alone has signed.
    const Certificate below = MakeCertificate("below", &site, -3600, 86400, kMayIssue);
    const Certificate furtherBelow = MakeCertificate("further", &below, -3600, 86400, kMayIssue);
    EXPECT_EQ(lists.LeftOf(furtherBelow.pem + below.pem + all), authority.pem + other.pem);
}

// They vouch for each other, and nobody else does for them.
TEST_F(ApxdRevocationLists, RingBelowARevokedAuthorityIsNotTrusted) {
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, kMayIssue);
    const Certificate below = MakeCertificate("below", &site, -3600, 86400, kMayIssue);
    const Certificate siteAgain = MakeCertificate("site", &below, -3600, 86400, kMayIssue, site.key);
    const std::string all = authority.pem + site.pem + below.pem + siteAgain.pem;
    EXPECT_EQ(Read(MakeRevocationList(authority, {site}), all).LeftOf(all), authority.pem);
}

TEST_F(ApxdRevocationLists, WhatSomebodyElseVouchesForIsTrusted) {
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, kMayIssue);
    const Certificate siteOfOthers = MakeCertificate("site", &other, -3600, 86400, kMayIssue, site.key);
    const Certificate below = MakeCertificate("below", &site, -3600, 86400, kMayIssue);
    const auto lists = Read(MakeRevocationList(authority, {site}), authority.pem + other.pem);
    const std::string rooted = below.pem + siteOfOthers.pem + other.pem;
    EXPECT_EQ(lists.LeftOf(rooted + site.pem), rooted);
    const std::string unrooted = below.pem + siteOfOthers.pem;
    EXPECT_EQ(lists.LeftOf(unrooted + site.pem), unrooted);
    EXPECT_EQ(lists.LeftOf(below.pem), below.pem) << "whose revoked authority is not there to be seen";
}

TEST_F(ApxdRevocationLists, AuthorityMayHaveTwoKeys) {
    const Certificate renewed = MakeCertificate("clients");
    const std::string lists = MakeRevocationList(authority, {first}) + MakeRevocationList(renewed, {second});
    for (const std::string& both : {authority.pem + renewed.pem, renewed.pem + authority.pem}) {
        EXPECT_TRUE(Holds(Read(lists, both), first));
        EXPECT_TRUE(Holds(Read(lists, both), second));
    }
}

TEST_F(ApxdRevocationLists, ListOfAPartIsRefused) {
    const auto errorWith = [this](const Extensions& extensions, const Extensions& entryExtensions) {
        return ErrorOf(MakeRevocationList(authority, {first, second}, -3600, 86400,
                                          {.extensions = extensions, .entryExtensions = entryExtensions}));
    };
    const auto partBy = [](const std::string& identifier) {
        return "holds a list of 'CN=clients' with the extension " + identifier +
               ", which may make it one of a part: a whole one is needed";
    };
    const std::string number = "DER:02:01:01";
    const std::string authoritiesOnly = "DER:30:03:82:01:FF";
    const std::string nobody = "DER:30:00";
    for (const std::string critical : {"", "critical,"}) {
        EXPECT_EQ(errorWith({{"2.5.29.27", critical + number}}, {}), partBy("2.5.29.27"));
        EXPECT_EQ(errorWith({{"2.5.29.28", critical + authoritiesOnly}}, {}), partBy("2.5.29.28"));
        EXPECT_EQ(errorWith({}, {{"2.5.29.29", critical + nobody}}), partBy("2.5.29.29"));
    }
    EXPECT_EQ(errorWith({{"1.2.3.4", "critical," + nobody}}, {}), partBy("1.2.3.4"));
    EXPECT_EQ(errorWith({}, {{"1.2.3.4", "critical," + nobody}}), partBy("1.2.3.4"));
    EXPECT_EQ(errorWith({}, {{"1.2.3.4", "critical," + nobody}, {"1.2.3.5", nobody}}), partBy("1.2.3.4"))
        << "the second";
    EXPECT_EQ(errorWith({{"1.2.3.4", nobody}}, {{"1.2.3.4", nobody}}), "read");
    EXPECT_EQ(errorWith({{"2.5.29.20", number}}, {}), "read") << "the list's own number";
}

// As authorities of years have them, with a reason for each.
TEST_F(ApxdRevocationLists, LargeListIsRead) {
    const std::string list = MakeRevocationList(authority, {first}, -3600, 86400, {.times = 40'000});
    EXPECT_GT(list.size(), 2'000'000U);
    EXPECT_TRUE(Holds(Read(list, authority.pem), first));
}

constexpr char kUnreadable[] = "holds something that cannot be read as a list of revoked certificates";

TEST_F(ApxdRevocationLists, DamageIsTold) {
    std::string list = MakeRevocationList(authority, {first});
    list.insert(list.size() / 2, "!");
    EXPECT_EQ(ErrorOf(list), kUnreadable);
    EXPECT_EQ(ErrorOf(MakeRevocationList(authority, {}) + list), kUnreadable);
}

// The reader would end at each of these, or pass over it.
TEST_F(ApxdRevocationLists, NoListIsPassedOver) {
    const std::string whole = MakeRevocationList(authority, {});
    const std::string next = MakeRevocationList(authority, {first});
    const std::string indented = "  " + std::regex_replace(next, std::regex("\n"), "\n  ");
    std::string oldLines = next;
    std::replace(oldLines.begin(), oldLines.end(), '\n', '\r');
    std::string misnamed = next;
    misnamed.replace(misnamed.find("X509 CRL"), 8, "CRL");
    for (const std::string& more :
         {" " + next, "of today: " + next, indented, oldLines, misnamed, next.substr(0, 18), authority.pem,
          std::string("-----BEGIN X509 CRL-----\nProc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00\n\nAAAA\n")}) {
        EXPECT_EQ(ErrorOf(whole + more), kUnreadable) << more;
    }
    EXPECT_TRUE(Holds(Read(whole + "of today:\n" + next + "\n \n", authority.pem), first));
}

TEST_F(ApxdRevocationLists, NoAuthorityIsPassedOver) {
    const std::string list = MakeRevocationList(authority, {first});
    const auto lists = Read(list, authority.pem);
    for (const std::string& more : {" " + other.pem, other.pem.substr(0, 200), other.key}) {
        EXPECT_THROW(Read(list, authority.pem + more), AuthoritiesError);
        EXPECT_THROW(lists.LeftOf(authority.pem + more), AuthoritiesError);
    }
}

TEST_F(ApxdRevocationLists, CertificateThatCannotBeReadIsNotGood) {
    const auto lists = Read(MakeRevocationList(authority, {first}), authority.pem);
    const std::string junk = "junk";
    const gnutls_datum_t datum = Datum(junk);
    EXPECT_NE(lists.FaultOf(&datum, 1, std::time(nullptr)), nullptr);
}

TEST_F(ApxdRevocationLists, OfSomebodyElseAreRefused) {
    const std::string ofOthers = "holds a list of 'CN=others' that no authority of 'client-ca' has signed";
    EXPECT_EQ(ErrorOf(MakeRevocationList(other, {first})), ofOthers);
    EXPECT_EQ(ErrorOf(MakeRevocationList(authority, {}) + MakeRevocationList(other, {})), ofOthers);
    for (const long next : {86400L, -3600L}) {
        const std::string list = MakeRevocationList(MakeCertificate("clients"), {first}, -7200, next);
        EXPECT_EQ(ErrorOf(list), "holds a list of 'CN=clients' that no authority of 'client-ca' has signed")
            << "of the same name";
    }
}

TEST_F(ApxdRevocationLists, SignatureThatProvesNothingIsRefused) {
    const std::string provesNothing =
        "holds a list of 'CN=clients' whose signature proves nothing: it needs a digest of SHA-2 or SHA-3";
    const auto errorWith = [](const Certificate& issuer, const char* digest, bool isPss) {
        return ErrorOf(MakeRevocationList(issuer, {}, -3600, 86400, {.digest = digest, .isPss = isPss}), issuer.pem);
    };
    EXPECT_EQ(errorWith(authority, "SHA1", false), provesNothing);
    EXPECT_EQ(errorWith(authority, "SHA384", false), "read");
    const Certificate rsa = MakeCertificate("clients", nullptr, -3600, 86400, {}, MakeKey("RSA"));
    for (const bool isPss : {false, true}) {
        EXPECT_EQ(errorWith(rsa, "SHA1", isPss), provesNothing) << isPss;
        EXPECT_EQ(errorWith(rsa, "SHA256", isPss), "read") << isPss;
    }
    EXPECT_EQ(errorWith(rsa, "RIPEMD160", false), provesNothing);
    const std::string ofPss = WithSignatureOfPss(MakeRevocationList(rsa, {}));
    EXPECT_EQ(ErrorOf(ofPss, rsa.pem), provesNothing) << "whose digest nothing names";
    EXPECT_EQ(errorWith(MakeCertificate("clients", nullptr, -3600, 86400, {}, MakeKey("ED25519")), "", false), "read");
}

TEST_F(ApxdRevocationLists, AuthorityThatMaySignCertificatesOnlyIsNotBelieved) {
    const Certificate issuesOnly = MakeCertificate("clients", nullptr, -3600, 86400, {{"keyUsage", "keyCertSign"}});
    const std::string list = MakeRevocationList(issuesOnly, {first});
    EXPECT_EQ(ErrorOf(list, issuesOnly.pem),
              "holds a list of 'CN=clients' that may not sign lists: the keyUsage of its certificate lacks cRLSign");
    const Certificate signsLists =
        MakeCertificate("clients", nullptr, -3600, 86400, {{"keyUsage", "cRLSign"}}, issuesOnly.key);
    EXPECT_TRUE(Holds(Read(list, signsLists.pem), first));
    EXPECT_TRUE(Holds(Read(list, issuesOnly.pem + signsLists.pem), first));
}

TEST_F(ApxdRevocationLists, TextWithoutAListIsRefused) {
    for (const std::string& text : {std::string(), std::string("none\n"), std::string("0\x82\1")}) {
        EXPECT_EQ(ErrorOf(text), "holds no list of revoked certificates in PEM") << text;
    }
    EXPECT_EQ(ErrorOf(authority.pem), kUnreadable);
    std::string damaged = MakeRevocationList(authority, {first});
    damaged.erase(100, 40);
    EXPECT_NE(ErrorOf(damaged), "read");
}

}  // namespace
}  // namespace nimbrel::apxd::test
