// Importing the proxy's certificate.

#include <openssl/err.h>
#include <sys/stat.h>

#include <algorithm>
#include <regex>

#include "proxy/certificates.h"
#include "proxy/join.h"
#include "support/pass_phrase.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Pair;

constexpr const char* kRefusal =
    "InvalidCertificateException: The certificate format is invalid; only PEM format is supported.";
constexpr const char* kFile = "/tmp/import/proxy.pem";

class CertificateImport : public ProxyJoinTest {
 protected:
    ~CertificateImport() override { Remove("/tmp/import"); }

    std::string Import(const std::string& text) {
        return Outcome([&] { store.ImportCertificateForAPX(text); });
    }
    std::string ImportFile(const std::string& path, const std::string& ignored = "") {
        return Outcome([&] { store.ImportCertificateForAPX(path, ignored); });
    }

    static ObjectValues Imported() { return Stored(ActiveDirectoryConfigStore::AUTH_PROXY_CERT_CSO_ID); }

    // Whether exactly this text is stored, with the thumbprint of `certificate`.
    static void ExpectImported(const std::string& text, const std::string& certificate) {
        EXPECT_EQ(Imported(), (ObjectValues{{"certificate", text}, {"thumbprint", FingerprintOf(certificate)}}));
    }

    // Made once: it takes openssl a while.
    static const std::string& Certificate() {
        static const std::string certificate = MakeCertificate("ec -pkeyopt ec_paramgen_curve:P-256");
        return certificate;
    }
    static const std::string& OtherCertificate() {
        static const std::string certificate = MakeCertificate("ed25519");
        return certificate;
    }
};

// ---------------------------------------------------------------- thumbprints

TEST_F(CertificateImport, TheThumbprintIsTheOneThatOpenSSLPrints) {
    for (const char* key : {"rsa:2048", "ec -pkeyopt ec_paramgen_curve:P-256", "ec -pkeyopt ec_paramgen_curve:P-521",
                            "ed25519", "rsa:2048 -sha512"}) {
        const std::string certificate = MakeCertificate(key);
        EXPECT_EQ(Import(certificate), "success");
        ExpectImported(certificate, certificate);
        const std::string thumbprint = Imported()["thumbprint"];
        EXPECT_THAT(thumbprint, MatchesRegex("([0-9A-F][0-9A-F]:)+[0-9A-F][0-9A-F]"));
        EXPECT_EQ(thumbprint.size(), 59u);
        EXPECT_EQ(std::count(thumbprint.begin(), thumbprint.end(), ':'), 19);
    }
}

TEST_F(CertificateImport, AJoinHandsThemToTheProxy) {
    Import(Certificate());
    Join();
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01.corp.test, null, 1, " +
                                                       FingerprintOf(Certificate()) + ", " + Certificate() + ")"));
}

// ---------------------------------------------------------------- what counts as PEM

TEST_F(CertificateImport, TextAroundTheBlockIsStoredAndDoesNotCount) {
    const std::string text = "Proxy of the lab\n=====\n" + Certificate() + "\nthe end\n";
    EXPECT_EQ(Import(text), "success");
    ExpectImported(text, Certificate());
}

TEST_F(CertificateImport, AReadableHeadingDoesNotCount) {
    const std::string text = Convert(Certificate(), "-text");
    EXPECT_EQ(Import(text), "success");
    ExpectImported(text, Certificate());
}

TEST_F(CertificateImport, TheFirstOfSeveralCounts) {
    EXPECT_EQ(Import(Certificate() + OtherCertificate()), "success");
    ExpectImported(Certificate() + OtherCertificate(), Certificate());
    EXPECT_EQ(Import(OtherCertificate() + Certificate()), "success");
    ExpectImported(OtherCertificate() + Certificate(), OtherCertificate());
}

TEST_F(CertificateImport, AKeyBeforeTheCertificateDoesNotCount) {
    const std::string certificate = MakeCertificate("ed25519");
    EXPECT_EQ(Import(LastKey() + certificate), "success");
    ExpectImported(LastKey() + certificate, certificate);
}

TEST_F(CertificateImport, LineEndsOfAnotherSystemAreStoredAsTheyAre) {
    const std::string text = std::regex_replace(Certificate(), std::regex("\n"), "\r\n");
    EXPECT_EQ(Import(text), "success");
    ExpectImported(text, Certificate());
}

TEST_F(CertificateImport, ALastLineWithoutItsEndCounts) {
    const std::string text = Certificate().substr(0, Certificate().size() - 1);
    EXPECT_EQ(Import(text), "success");
    ExpectImported(text, Certificate());
}

TEST_F(CertificateImport, WhatFollowsANulIsStoredAndNotLookedAt) {
    const std::string text = Certificate() + std::string("\0-----BEGIN", 11);
    EXPECT_EQ(Import(text), "success");
    ExpectImported(text, Certificate());
    EXPECT_EQ(Import(std::string("\0", 1) + Certificate()), kRefusal);
}

// The agent has nobody at its terminal, if it has one.
TEST_F(CertificateImport, NobodyIsAskedForThePassPhraseOfAnEncryptedCertificate) {
    const nimbrel::testing::CountedPrompts prompts;
    std::string text = Certificate();
    text.insert(text.find('\n') + 1,
                "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\n");
    EXPECT_EQ(Import(text), kRefusal);
    EXPECT_EQ(prompts.Asked(), 0);
}

// An agent that speaks TLS on the same thread would take what is left there for an error of its own.
TEST_F(CertificateImport, TheThreadsQueueOfErrorsStaysAsItWas) {
    ERR_clear_error();
    EXPECT_EQ(Import("not a certificate"), kRefusal);
    EXPECT_EQ(ERR_peek_error(), 0u);
    ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR);
    const unsigned long before = ERR_peek_last_error();
    EXPECT_EQ(Import("not a certificate"), kRefusal);
    EXPECT_EQ(Import(Certificate()), "success");
    EXPECT_EQ(ERR_get_error(), before);
    EXPECT_EQ(ERR_get_error(), 0u);
}

TEST_F(CertificateImport, AnythingElseIsRefusedAndTheOldOneStays) {
    ASSERT_EQ(Import(Certificate()), "success");
    const ObjectValues before = Imported();
    const std::string& pem = Certificate();
    std::string garbled = pem;
    garbled[pem.size() / 2] = '!';
    MakeCertificate("ed25519");
    const std::pair<const char*, std::string> rows[] = {
        {"empty", ""},
        {"blank", " \n\t\n"},
        {"words", "not a certificate"},
        {"DER", Convert(pem, "-outform DER")},
        {"key", LastKey()},
        {"no last line", pem.substr(0, pem.rfind("-----END"))},
        {"first half", pem.substr(0, pem.size() / 2)},
        {"no first line", pem.substr(pem.find('\n') + 1)},
        {"garbled", garbled},
        {"empty block", "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n"},
        {"block of nothing", "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"},
        {"another label", std::regex_replace(pem, std::regex(" CERTIFICATE"), " CERTIFICATES")},
        {"a lone first line", "-----BEGIN CERTIFICATE-----"},
        {"a mebibyte of dashes", std::string(1 << 20, '-')}};
    for (const auto& [name, text] : rows) EXPECT_EQ(Import(text), kRefusal) << name;
    EXPECT_EQ(Imported(), before);
}

TEST_F(CertificateImport, ARefusalCarriesNoStatusAndReadsNoStore) {
    try {
        store.ImportCertificateForAPX("");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const InvalidCertificateException& error) {
        EXPECT_EQ(error.GetCode(), 0u);
    }
    EXPECT_THAT(Journal::Lines(), IsEmpty());
}

// ---------------------------------------------------------------- storing

TEST_F(CertificateImport, WritesOneObjectAndNothingElse) {
    Import(Certificate());
    EXPECT_THAT(Journal::Lines(), ElementsAre("write auth_proxy_certificate"));
    EXPECT_THAT(OrbConfigStore::Memory::Snapshot(),
                ElementsAre(Pair(ActiveDirectoryConfigStore::AUTH_PROXY_CERT_CSO_ID, ::testing::SizeIs(2))));
}

TEST_F(CertificateImport, TheSameTextAgainIsWrittenAgain) {
    Import(Certificate());
    const ObjectValues first = Imported();
    Import(Certificate());
    EXPECT_EQ(Imported(), first);
    EXPECT_THAT(Journal::Lines(), ElementsAre("write auth_proxy_certificate", "write auth_proxy_certificate"));
}

TEST_F(CertificateImport, AnotherOneReplacesTheFirst) {
    Import(Certificate());
    Import(OtherCertificate());
    ExpectImported(OtherCertificate(), OtherCertificate());
}

TEST_F(CertificateImport, AFailedWriteIsLoggedAndRethrown) {
    using OrbConfigStore::Memory::Operation;
    for (const auto operation : {Operation::kSetObject, Operation::kGetStore}) {
        Journal::Clear();
        OrbConfigStore::Memory::FailNext(operation, "disk %s full");
        EXPECT_EQ(Import(Certificate()), "ConfigStoreException: disk %s full");
        EXPECT_THAT(Journal::Lines("error"),
                    ElementsAre("error: Failed to store thumbprint to Config Store: disk %s full"));
    }
    EXPECT_THAT(Imported(), IsEmpty());
}

// ---------------------------------------------------------------- from a file

TEST_F(CertificateImport, AFileIsReadWhole) {
    const std::string text = "heading\r\n" + Certificate() + std::string(100000, 'x') + std::string("\0end", 4);
    WriteSystemFile(kFile, text);
    EXPECT_EQ(ImportFile(kFile), "success");
    ExpectImported(text, Certificate());
}

TEST_F(CertificateImport, TheSecondArgumentChangesNothing) {
    WriteSystemFile(kFile, Certificate());
    for (const std::string ignored : {"", "/nowhere/at/all", "secret", "%n%s"}) {
        EXPECT_EQ(ImportFile(kFile, ignored), "success");
        ExpectImported(Certificate(), Certificate());
        EXPECT_EQ(ImportFile("/nowhere", kFile),
                  "FileNotFoundException: Exception 0x00000002: The system cannot find "
                  "the file specified.");
    }
}

TEST_F(CertificateImport, AFileThatCannotBeOpenedIsNotFound) {
    constexpr const char* kNotFound =
        "FileNotFoundException: Exception 0x00000002: The system cannot find the file specified.";
    WriteSystemFile(kFile, Certificate());
    EXPECT_EQ(ImportFile("/tmp/import/absent.pem"), kNotFound);
    EXPECT_EQ(ImportFile(""), kNotFound);
    EXPECT_EQ(ImportFile(std::string(kFile) + "/below"), kNotFound);
    ASSERT_EQ(chmod(kFile, 0), 0);
    const WithoutPrivileges ordinary;
    EXPECT_EQ(ImportFile(kFile), kNotFound);
    EXPECT_THAT(Imported(), IsEmpty());
}

TEST_F(CertificateImport, AFolderAndAnEmptyFileHoldNoCertificate) {
    WriteSystemFile(kFile, "");
    EXPECT_EQ(ImportFile(kFile), kRefusal);
    EXPECT_EQ(ImportFile("/tmp/import"), kRefusal);
    EXPECT_EQ(ImportFile("/dev/null"), kRefusal);
}

}  // namespace
}  // namespace nimbrel::authentication::test
