// What an import does with OpenSSL's objects, and what it makes of OpenSSL's failures.

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <vector>

#include "proxy/certificates.h"
#include "proxy/join.h"

namespace {

// The objects that OpenSSL has made for the library, and how many of them were freed.
struct {
    std::vector<BIO*> bios;
    std::vector<X509*> certificates;
    int freed = 0;
    bool digestFails = false;
    bool bioFails = false;
} objects;

long CountFree(BIO*, int operation, const char*, std::size_t, int, long, int result, std::size_t*) {
    if (operation == BIO_CB_FREE) ++objects.freed;
    return result;
}

// Counts only what was handed to the library: parsing a certificate makes and drops others.
void CountFree(void* certificate, void*, CRYPTO_EX_DATA*, int, long, void*) {
    const auto& made = objects.certificates;
    if (std::find(made.begin(), made.end(), certificate) != made.end()) ++objects.freed;
}

}  // namespace

extern "C" {

BIO* __real_BIO_new(const BIO_METHOD* method);
X509* __real_PEM_read_bio_X509(BIO* bio, X509** certificate, pem_password_cb* callback, void* argument);
int __real_X509_digest(const X509* certificate, const EVP_MD* type, unsigned char* digest, unsigned int* size);

BIO* __wrap_BIO_new(const BIO_METHOD* method) {
    if (objects.bioFails) return nullptr;
    BIO* const bio = __real_BIO_new(method);
    BIO_set_callback_ex(bio, CountFree);
    objects.bios.push_back(bio);
    return bio;
}

X509* __wrap_PEM_read_bio_X509(BIO* bio, X509** certificate, pem_password_cb* callback, void* argument) {
    X509* const parsed = __real_PEM_read_bio_X509(bio, certificate, callback, argument);
    if (parsed != nullptr) objects.certificates.push_back(parsed);
    return parsed;
}

int __wrap_X509_digest(const X509* certificate, const EVP_MD* type, unsigned char* digest, unsigned int* size) {
    if (objects.digestFails) return 0;
    return __real_X509_digest(certificate, type, digest, size);
}

}  // extern "C"

namespace nimbrel::authentication::test {
namespace {

using ::testing::IsEmpty;

class CertificateObjects : public ProxyJoinTest {
 protected:
    CertificateObjects() {
        // Counts each certificate that is freed, whoever frees it.
        static const int index = X509_get_ex_new_index(0, nullptr, nullptr, nullptr, CountFree);
        EXPECT_GE(index, 0);
        objects = {};
    }
    ~CertificateObjects() override { FreeAll(); }

    static void FreeAll() {
        for (BIO* const bio : objects.bios) BIO_free(bio);
        for (X509* const certificate : objects.certificates) X509_free(certificate);
        objects.bios.clear();
        objects.certificates.clear();
    }

    std::string Import(const std::string& text) {
        return Outcome([&] { store.ImportCertificateForAPX(text); });
    }
    static const std::string& Certificate() {
        static const std::string certificate = MakeCertificate("ed25519");
        return certificate;
    }
};

TEST_F(CertificateObjects, AnImportLeavesItsTwoObjectsAllocated) {
    const std::string certificate = Certificate();
    objects.freed = 0;
    EXPECT_EQ(Import(certificate), "success");
    EXPECT_EQ(objects.bios.size(), 1u);
    EXPECT_EQ(objects.certificates.size(), 1u);
    EXPECT_EQ(objects.freed, 0);
    FreeAll();
    EXPECT_EQ(objects.freed, 2);
}

TEST_F(CertificateObjects, ARefusalLeavesTheMemoryBufferAllocated) {
    EXPECT_NE(Import("no certificate"), "success");
    EXPECT_EQ(objects.bios.size(), 1u);
    EXPECT_EQ(objects.freed, 0);
    FreeAll();
    EXPECT_EQ(objects.freed, 1);
}

TEST_F(CertificateObjects, EachImportHasItsOwn) {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Import(Certificate()), "success");
    EXPECT_EQ(objects.bios.size(), 3u);
    EXPECT_EQ(objects.certificates.size(), 3u);
    EXPECT_EQ(objects.freed, 0);
}

TEST_F(CertificateObjects, ADigestThatFailsIsAnInvalidCertificate) {
    objects.digestFails = true;
    EXPECT_EQ(Import(Certificate()),
              "InvalidCertificateException: The certificate format is invalid; only PEM format is supported.");
    EXPECT_THAT(Journal::Lines(), IsEmpty());
    EXPECT_THAT(OrbConfigStore::Memory::Snapshot(), IsEmpty());
}

TEST_F(CertificateObjects, AMemoryBufferThatCannotBeMadeIsAnInvalidCertificate) {
    objects.bioFails = true;
    EXPECT_EQ(Import(Certificate()),
              "InvalidCertificateException: The certificate format is invalid; only PEM format is supported.");
}

}  // namespace
}  // namespace nimbrel::authentication::test
