// What is checked before a join asks the proxy anything: the address, the verify option, the host's name, the proxy's
// provider, the imported trust. Each is refused before the next is looked at.

#include <netdb.h>
#include <sys/stat.h>

#include <limits>

#include "proxy/join.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kUnableToGetOption =
    "InvalidVerifyAPXCertificateOptionException: The VerifyAPXCertificate option is invalid: Unable to get advanced "
    "option UserVars.ActiveDirectoryVerifyAPXCertificate";
constexpr const char* kInvalidOption =
    "InvalidVerifyAPXCertificateOptionException: The VerifyAPXCertificate option is invalid: Invalid value for "
    "UserVars.ActiveDirectoryVerifyAPXCertificate";
constexpr const char* kNoTrust =
    "InvalidThumbprintStoreException: The specified thumbprint store 'auth_proxy_certificate' is invalid";

class ProxyJoinCheck : public ProxyJoinTest {
 protected:
    ~ProxyJoinCheck() override {
        EXPECT_THAT(Journal::Lines("account"), IsEmpty());
        EXPECT_THAT(Journal::Lines("join"), IsEmpty());
        EXPECT_THAT(Journal::Lines("write"), IsEmpty());
        EXPECT_THAT(Settings(), IsEmpty());
    }
};

// ---------------------------------------------------------------- the address

class ProxyAddress : public ProxyJoinCheck {};

const std::string kNotAddresses[] = {"",
                                     "proxy.corp.test",
                                     "localhost",
                                     "::1",
                                     "2001:db8::7",
                                     "::ffff:192.0.2.7",
                                     " 192.0.2.7",
                                     "192.0.2.7 ",
                                     "192.0.2.7\n",
                                     "192.0.2",
                                     "192.0.2.",
                                     "192..2.7",
                                     "192.0.2.7.1",
                                     "192.0.2.256",
                                     "192.0.2.07",
                                     "192.0.2.007",
                                     "00.0.2.7",
                                     "192.0.2.-7",
                                     "192.0.2.+7",
                                     "0xc0.0.2.7",
                                     "3221225991",
                                     "192.0.2.7:443",
                                     "192.0.2.7/24",
                                     "https://192.0.2.7",
                                     std::string("192.0.2.7\0", 10),
                                     std::string("192.0.2.7\0.corp.test", 20)};

TEST_F(ProxyAddress, AnythingElseThanADottedQuadIsRefusedBeforeAnythingIsRead) {
    for (const std::string& address : kNotAddresses) {
        const std::string message =
            "The IP Address is invalid: IPv4 address '" + address + "' cannot be parsed as an IP address";
        EXPECT_EQ(TextOf<InvalidIPAddressException>([&] { store.JoinDomainWithAPX(address, "", false); }),
                  message.c_str());
    }
    EXPECT_THAT(Journal::Lines(), IsEmpty());
}

TEST_F(ProxyAddress, IsRefusedBeforeABadOption) {
    SetVerifyOption(2);
    EXPECT_THROW(store.JoinDomainWithAPX("::1", "", false), InvalidIPAddressException);
}

TEST(ProxyAddressAccepted, EveryDottedQuadIs) {
    for (const char* address : {"0.0.0.0", "255.255.255.255", "127.0.0.1", "1.2.3.4", "224.0.0.1"}) {
        EXPECT_TRUE(HostMgmt::Network::Ipv4Address::IsValidAddress(address)) << address;
    }
}

// ---------------------------------------------------------------- the verify option

class VerifyOption : public ProxyJoinCheck {
 protected:
    ~VerifyOption() override { EXPECT_THAT(Journal::Lines("gethostname"), IsEmpty()); }

    static HostMgmt::Adv::AdvancedOptions& Options() {
        static const auto options = HostMgmt::HostFactory::GetHost()->GetAdvancedOptions();
        return *options;
    }

    // What a join says to an option that was stored as this type and text.
    std::string OutcomeFor(const std::string& type, const std::string& value) {
        const auto object = std::make_shared<OrbConfigStore::ConfigStoreObject>(
            OrbConfigStore::ConfigStoreObjectId(kOption, "advanced_options", "hostmgmt"));
        object->SetValue("type", type);
        object->SetValue("value", value);
        std::uint32_t word = 0;
        OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace)->SetObject(object, word);
        Journal::Clear();
        return JoinOutcome();
    }
};

TEST_F(VerifyOption, AnyOtherNumberThan0And1IsRefused) {
    constexpr std::int64_t kTwoTo32 = std::int64_t{1} << 32;
    for (const std::int64_t value :
         {std::int64_t{2}, std::int64_t{-1}, std::int64_t{10}, std::int64_t{256}, kTwoTo32, kTwoTo32 + 1,
          std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        SetVerifyOption(value);
        EXPECT_EQ(JoinOutcome(), kInvalidOption) << value;
    }
}

TEST_F(VerifyOption, AMissingBranchIsRefused) {
    Options().Remove(kOption);
    ASSERT_EQ(Options().GetRootBranch()->GetBranch("UserVars"), nullptr);
    Journal::Clear();
    EXPECT_EQ(JoinOutcome(), kUnableToGetOption);
}

TEST_F(VerifyOption, AMissingOptionInItsBranchIsRefused) {
    Options().Remove(kOption);
    Options().DeclareInteger("UserVars.Another", 1, "");
    ASSERT_NE(Options().GetRootBranch()->GetBranch("UserVars"), nullptr);
    Journal::Clear();
    EXPECT_EQ(JoinOutcome(), kUnableToGetOption);
}

TEST_F(VerifyOption, AnOptionOfAnotherTypeIsRefused) {
    for (const char* value : {"0", "1", "yes"}) {
        Options().DeclareString(kOption, value, "");
        Journal::Clear();
        EXPECT_EQ(JoinOutcome(), kUnableToGetOption) << value;
    }
}

TEST_F(VerifyOption, AValueThatIsNoNumberIsRefused) {
    for (const char* value : {"", "yes", "1x", " 1", "1 ", "0x1", "+1", "9223372036854775808"}) {
        EXPECT_EQ(OutcomeFor("integer", value), kUnableToGetOption) << value;
    }
}

TEST_F(VerifyOption, AnUnknownTypeIsRefused) { EXPECT_EQ(OutcomeFor("boolean", "1"), kUnableToGetOption); }

TEST_F(VerifyOption, AStoreThatFailsIsRefusedLikeAMissingOption) {
    using OrbConfigStore::Memory::FailNext;
    using OrbConfigStore::Memory::Operation;
    FailNext(Operation::kGetStore, "store is down");
    EXPECT_EQ(JoinOutcome(), kUnableToGetOption);
    FailNext(Operation::kGetObject, "store is down");
    EXPECT_EQ(JoinOutcome(), kUnableToGetOption);
    EXPECT_THAT(Journal::Lines("error"), IsEmpty());
}

// ---------------------------------------------------------------- the host's name

class ProxyHostName : public ProxyJoinCheck {
 protected:
    ~ProxyHostName() override { EXPECT_THAT(Journal::Lines("open"), IsEmpty()); }

    // The detail of what a join says.
    std::string Refusal() {
        const std::string prefix = "The current hostname is invalid: ";
        const std::string text = TextOf<InvalidHostNameException>([&] { Join(); });
        EXPECT_THAT(text, StartsWith(prefix));
        return text.substr(prefix.size());
    }
};

TEST_F(ProxyHostName, AHostWithoutOneIsRefused) {
    HostCalls::hostNameFails = true;
    EXPECT_EQ(Refusal(), "unable to get hostname");
    EXPECT_THAT(Journal::Lines("gethostbyname_r"), IsEmpty());
}

TEST_F(ProxyHostName, ANameThatDoesNotResolveIsRefusedWithTheResolversReason) {
    HostCalls::resolverError = ENOENT;
    for (const int reason : {HOST_NOT_FOUND, TRY_AGAIN, NO_RECOVERY, NO_DATA}) {
        HostCalls::resolverReason = reason;
        EXPECT_EQ(Refusal(), hstrerror(reason));
    }
}

TEST_F(ProxyHostName, ANameThatResolvesToNothingIsRefused) {
    HostCalls::resolvesToNothing = true;
    EXPECT_EQ(Refusal(), "hostname cannot be resolved");
}

TEST_F(ProxyHostName, ANameOutsideTheHostsFileIsRefusedByTheSystemsResolver) {
    HostCalls::hostName = "stranger";
    EXPECT_EQ(Refusal(), "hostname cannot be resolved");
}

// ---------------------------------------------------------------- apxprovider.conf

class ProxyProviderFile : public ProxyJoinCheck {
 protected:
    ~ProxyProviderFile() override { EXPECT_THAT(Journal::Lines("read auth"), IsEmpty()); }

    std::string OutcomeFor(const std::string& contents) {
        WriteSystemFile(kProxyFile, contents);
        return JoinOutcome();
    }
    static constexpr const char* kNoneInstalled =
        "InvalidAPXProxyProviderException: The specified APXProxy provider '(none installed)' is invalid";
    static constexpr const char* kUnset =
        "InvalidAPXProxyProviderException: The specified APXProxy provider '(unset)' is invalid";
};

TEST_F(ProxyProviderFile, AMissingFileMeansNoneInstalled) {
    Remove(kProxyFile);
    EXPECT_EQ(JoinOutcome(), kNoneInstalled);
}

TEST_F(ProxyProviderFile, AFolderInItsPlaceMeansNoneInstalled) {
    Remove(kProxyFile);
    MakeFolder(kProxyFile);
    EXPECT_EQ(JoinOutcome(), kNoneInstalled);
}

TEST_F(ProxyProviderFile, AFileThatMayNotBeReadMeansNoneInstalled) {
    ASSERT_EQ(chmod(kProxyFile, 0), 0);
    const WithoutPrivileges ordinary;
    EXPECT_EQ(JoinOutcome(), kNoneInstalled);
}

TEST_F(ProxyProviderFile, AnEmptyProviderIsUnset) {
    EXPECT_EQ(OutcomeFor("provider = \"\"\n"), kUnset);
    EXPECT_EQ(OutcomeFor("provider ="), kUnset);
}

TEST_F(ProxyProviderFile, AMissingProviderIsAMissingKey) {
    constexpr const char* kMissing =
        "InvalidKeyException: The specified key 'provider' was not found in this configuration";
    EXPECT_EQ(OutcomeFor(""), kMissing);
    EXPECT_EQ(OutcomeFor("Provider = \"scripted_proxy\"\n"), kMissing);
}

TEST_F(ProxyProviderFile, AMalformedFileIsReportedWithItsLine) {
    EXPECT_EQ(OutcomeFor("provider = \"scripted_proxy\"\n\n# a comment\n"),
              "ConfigurationError: Error parsing configuration on line 3: no delimiter found");
    EXPECT_EQ(OutcomeFor("provider = '\n"),
              "ConfigurationError: Error parsing configuration at line 1: invalid quoting");
}

// ---------------------------------------------------------------- the imported trust

class ProxyTrust : public ProxyJoinCheck {
 protected:
    ~ProxyTrust() override { EXPECT_THAT(Journal::Lines("dlopen"), IsEmpty()); }

    // Makes the store fail when `line` was written for the `count`th time.
    static void FailAfter(const std::string& line, int count, OrbConfigStore::Memory::Operation operation) {
        Journal::WhenAdded([=, left = count](const std::string& added) mutable {
            if (added == line && --left == 0) OrbConfigStore::Memory::FailNext(operation, "store is down");
        });
    }
    static std::vector<std::string> Logged() { return Journal::Lines("error"); }
    static constexpr const char* kStoreIsDown = "error: Unable to fetch thumbprint from Config Store: store is down";
};

TEST_F(ProxyTrust, NothingImportedIsLoggedAndRefused) {
    EXPECT_EQ(JoinOutcome(), kNoTrust);
    EXPECT_THAT(Logged(),
                ElementsAre("error: Unable to fetch thumbprint from Config Store: Failed to get the requested "
                            "object"));
}

TEST_F(ProxyTrust, NothingImportedIsRefusedWhenVerificationWasAskedForToo) {
    SetVerifyOption(1);
    EXPECT_EQ(JoinOutcome(), kNoTrust);
}

TEST_F(ProxyTrust, AStoreThatCannotBeOpenedIsLoggedAndRefused) {
    Trust("0A:1B", "PEM");
    FailAfter("open /etc/nimbrel/nimauth/apxprovider.conf", 1, OrbConfigStore::Memory::Operation::kGetStore);
    EXPECT_EQ(JoinOutcome(), kNoTrust);
    EXPECT_THAT(Logged(), ElementsAre(kStoreIsDown));
}

TEST_F(ProxyTrust, AThumbprintThatCannotBeReadIsLoggedAndRefused) {
    Trust("0A:1B", "PEM");
    FailAfter("read auth_proxy_certificate", 1, OrbConfigStore::Memory::Operation::kGetObject);
    EXPECT_EQ(JoinOutcome(), kNoTrust);
    EXPECT_THAT(Logged(), ElementsAre(kStoreIsDown));
}

TEST_F(ProxyTrust, ACertificateThatCannotBeReadIsLoggedAndRefused) {
    Trust("0A:1B", "PEM");
    FailAfter("read auth_proxy_certificate", 2, OrbConfigStore::Memory::Operation::kGetObject);
    EXPECT_EQ(JoinOutcome(), kNoTrust);
    EXPECT_THAT(Logged(), ElementsAre(kStoreIsDown));
}

// ---------------------------------------------------------------- the plug-in

class ProxyPlugIn : public ProxyJoinCheck {
 protected:
    ProxyPlugIn() { SetVerifyOption(0); }
};

TEST_F(ProxyPlugIn, OneThatIsMissingIsReported) {
    NameProxy("absent");
    EXPECT_EQ(
        JoinOutcome(),
        "IOError: Unable to open APX provider: /usr/libexec/nimauth/libabsent.so: cannot open shared object file: "
        "No such file or directory");
}

TEST_F(ProxyPlugIn, ANameOfBlanksIsANameLikeAnyOther) {
    WriteSystemFile(kProxyFile, "provider =   \n");
    EXPECT_THAT(JoinOutcome(), StartsWith("IOError: Unable to open APX provider: /usr/libexec/nimauth/lib   .so: "));
}

TEST_F(ProxyPlugIn, OneWithoutTableIsReportedAndClosed) {
    Install("empty_handed", "no_table");
    NameProxy("empty_handed");
    EXPECT_THAT(JoinOutcome(), StartsWith("InvalidAPXProxyProviderException: The specified APXProxy provider "
                                          "'empty_handed' is invalid: "));
    EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded", "proxy closed"));
}

TEST_F(ProxyPlugIn, OneWithAGapInItsTableIsALogicErrorAndClosed) {
    for (const char* plugin : {"without_field_2", "without_field_3", "without_field_4"}) {
        Install(plugin, plugin);
        NameProxy(plugin);
        Journal::Clear();
        EXPECT_THAT(JoinOutcome(), StartsWith("logic_error: "));
        EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded", "proxy closed"));
    }
}

}  // namespace
}  // namespace nimbrel::authentication::test
