// The exception family: its messages, its shape, and the round trip through Clone and Throw.

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <vector>

#include "unit/status_table.h"
#include "unit/virtual_slots.h"

namespace {

using namespace nimbrel::authentication;

struct Sample {
    std::unique_ptr<Exception> error;
    unsigned long code;
    std::string message;
};

template <typename T, typename... Arguments>
Sample Plain(const std::string& message, const Arguments&... arguments) {
    return {std::make_unique<T>(arguments...), 0, message};
}

std::vector<Sample> PlainSamples() {
    std::vector<Sample> samples;
    const auto add = [&samples](Sample sample) { samples.push_back(std::move(sample)); };
    add(Plain<Exception>("as given", "as given"));
    add(Plain<InvalidActiveDirectoryProviderException>("The specified Active Directory provider 'ad' is invalid",
                                                       "ad"));
    add(Plain<InvalidActiveDirectoryProviderException>(
        "The specified Active Directory provider 'ad' is invalid: too new", "ad", "too new"));
    add(Plain<InvalidAPXProxyProviderException>("The specified APXProxy provider 'proxy' is invalid", "proxy"));
    add(Plain<InvalidAPXProxyProviderException>("The specified APXProxy provider 'proxy' is invalid: no file", "proxy",
                                                "no file"));
    add(Plain<InvalidThumbprintStoreException>("The specified thumbprint store 'disk' is invalid", "disk"));
    add(Plain<InvalidKeyException>("The specified key 'provider' was not found in this configuration", "provider"));
    add(Plain<UnknownRemoteAuthenticationStoreException>("The specified store 'LDAP' is unknown", "LDAP"));
    add(Plain<InvalidRemoteAuthenticationStoreException>("The specified store 'LDAP' is invalid", "LDAP"));
    add(Plain<InvalidHostNameException>("The current hostname is invalid: localhost", "localhost"));
    add(Plain<InvalidCredentialsException>("The credentials that were provided were invalid: no name", "no name"));
    add(Plain<InvalidIPAddressException>("The IP Address is invalid: 1.2.3", "1.2.3"));
    add(Plain<InvalidVerifyAPXCertificateOptionException>("The VerifyAPXCertificate option is invalid: 2", "2"));
    add(Plain<ThreadErrorException>("Thread Error: none left", "none left"));
    add(Plain<InvalidCertificateException>("The certificate format is invalid; only PEM format is supported."));
    add(Plain<InvalidAPXCertificateException>("The APX server's certificate cannot be verified."));
    add(Plain<ProviderCallTimedOutException>("Provider call timed out.", "Provider call timed out."));
    add(Plain<ConfigurationError>("as given", "as given"));
    add(Plain<IOError>("as given", "as given"));
    add(Plain<FilePermissionError>("as given", "as given"));
    return samples;
}

// One of every class of the family.
std::vector<Sample> AllSamples() {
    std::vector<Sample> samples = PlainSamples();
    for (const StatusRow& row : kStatusTable) {
        try {
            ThrowMappedException(row.status);
        } catch (const Exception& error) {
            samples.push_back({std::unique_ptr<Exception>(error.Clone()), row.code, row.message});
        }
    }
    samples.push_back({std::make_unique<UnknownException>(1), 1, "Exception 0x00000001: Unknown exception"});
    return samples;
}

void ExpectEqual(const Exception& error, const Exception& original) {
    EXPECT_EQ(typeid(error), typeid(original));
    EXPECT_EQ(error.GetCode(), original.GetCode());
    EXPECT_STREQ(error.what(), original.what());
}

std::unique_ptr<Exception> Rethrown(const Exception& error) {
    try {
        error.Throw();
    } catch (const Exception& caught) {
        EXPECT_NE(&caught, &error) << "a copy is thrown, never the object itself";
        return std::unique_ptr<Exception>(caught.Clone());
    }
    return nullptr;
}

TEST(Exceptions, EveryClassHasItsMessageAndCode) {
    for (const Sample& sample : AllSamples()) {
        EXPECT_EQ(sample.error->what(), sample.message);
        EXPECT_EQ(sample.error->GetCode(), sample.code) << sample.message;
    }
}

TEST(Exceptions, CloneKeepsClassCodeAndMessage) {
    for (const Sample& sample : AllSamples()) {
        SCOPED_TRACE(sample.message);
        const std::unique_ptr<Exception> clone(sample.error->Clone());
        EXPECT_NE(clone.get(), sample.error.get());
        ExpectEqual(*clone, *sample.error);
    }
}

TEST(Exceptions, ThrowKeepsClassCodeAndMessage) {
    for (const Sample& sample : AllSamples()) {
        SCOPED_TRACE(sample.message);
        ExpectEqual(*Rethrown(*sample.error), *sample.error);
    }
}

TEST(Exceptions, ThrownCloneOutlivesItsOriginal) {
    for (Sample& sample : AllSamples()) {
        std::unique_ptr<Exception> clone(sample.error->Clone());
        sample.error.reset();
        const auto rethrown = Rethrown(*clone);
        clone.reset();
        EXPECT_EQ(rethrown->what(), sample.message);
    }
}

TEST(Exceptions, ThrownCloneIsCaughtByItsConcreteClass) {
    const ConnectionRefusedException original;
    const std::unique_ptr<Exception> clone(original.Clone());
    try {
        clone->Throw();
    } catch (const ConnectionRefusedException& caught) {
        EXPECT_STREQ(caught.what(), original.what());
    }
}

// The type description of a class with exactly one public base names that base.
TEST(Exceptions, EveryClassDerivesDirectlyFromTheRoot) {
    for (const Sample& sample : AllSamples()) {
        const Exception& error = *sample.error;
        const auto* single = dynamic_cast<const abi::__si_class_type_info*>(&typeid(error));
        ASSERT_NE(single, nullptr) << sample.message;
        const std::type_info& root = typeid(error) == typeid(Exception) ? typeid(std::exception) : typeid(Exception);
        EXPECT_EQ(*single->__base_type, root) << sample.message;
    }
}

TEST(Exceptions, RootHoldsTheCodeThenTheMessage) {
    static_assert(std::is_base_of_v<std::exception, Exception>);
    static_assert(std::is_copy_constructible_v<Exception>);
    struct Layout {
        const void* table;
        unsigned long code;
        std::string message;
    };
    EXPECT_EQ(sizeof(Exception), sizeof(Layout));
    EXPECT_EQ(sizeof(UnknownException), sizeof(Exception)) << "no class adds a field";
    EXPECT_EQ(sizeof(InvalidActiveDirectoryProviderException), sizeof(Exception));
}

TEST(Exceptions, VirtualOperationsKeepTheirPlaces) {
    EXPECT_EQ(SlotOf(&Exception::what), 2U);
    EXPECT_EQ(SlotOf(&Exception::Clone), 3U);
    EXPECT_EQ(SlotOf(&Exception::Throw), 4U);
    EXPECT_EQ(SlotOf(&IOError::Clone), 3U);
    EXPECT_EQ(SlotOf(&IOError::Throw), 4U);
    EXPECT_EQ(SlotOf(&Exception::GetCode), kNoSlot);
}

TEST(Exceptions, CodedFormPadsToEightDigitsAndNeverCuts) {
    const struct {
        unsigned long code;
        const char* message;
    } kRows[] = {
        {0, "Exception 0x00000000: text"},
        {5, "Exception 0x00000005: text"},
        {0xABCDEF, "Exception 0x00abcdef: text"},
        {0x0FFFFFFF, "Exception 0x0fffffff: text"},
        {0x10000000, "Exception 0x10000000: text"},
        {0xFFFFFFFF, "Exception 0xffffffff: text"},
        {0x100000000, "Exception 0x100000000: text"},
        {0x0123456789ABCDEF, "Exception 0x123456789abcdef: text"},
        {0xFFFFFFFFFFFFFFFF, "Exception 0xffffffffffffffff: text"},
    };
    for (const auto& row : kRows) {
        const Exception error(row.code, "text");
        EXPECT_STREQ(error.what(), row.message);
        EXPECT_EQ(error.GetCode(), row.code);
    }
}

TEST(Exceptions, TextsMayBeEmptyOrLong) {
    const std::string longText(100000, 'x');
    EXPECT_STREQ(Exception(5, "").what(), "Exception 0x00000005: ");
    EXPECT_STREQ(Exception("").what(), "");
    EXPECT_EQ(Exception(5, longText).what(), "Exception 0x00000005: " + longText);
    EXPECT_EQ(InvalidKeyException("").what(), std::string("The specified key '' was not found in this configuration"));
}

TEST(Exceptions, UnknownExceptionKeepsAWideCode) {
    EXPECT_STREQ(UnknownException(0x123456789).what(), "Exception 0x123456789: Unknown exception");
    EXPECT_EQ(UnknownException(0x123456789).GetCode(), 0x123456789UL);
}

TEST(Exceptions, CopiesAndAssignmentsAreEqual) {
    const Exception original(7, "text");
    Exception copy(original);
    ExpectEqual(copy, original);
    copy = Exception("other");
    EXPECT_STREQ(copy.what(), "other");
    EXPECT_EQ(copy.GetCode(), 0U);
    EXPECT_STREQ(original.what(), "Exception 0x00000007: text");
}

}  // namespace
