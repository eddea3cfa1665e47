// Making the host's name fit a domain, step by step, with stand-ins for what the system says about the host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <locale>
#include <string>
#include <vector>

#include "store/host_calls.h"
#include "store/membership.h"

namespace nimbrel::authentication::test {
namespace {

using HostMgmt::Lib::HostMgmtException;
using SysNet::Memory::CallCount;
using SysNet::Memory::FailNext;
using SysNet::Memory::Operation;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::string kInvalid = "The current hostname is invalid: ";

// The warning about a fully qualified name that lies elsewhere.
std::string Mismatch(const std::string& fullName, const std::string& expected) {
    return "warning: The fully qualified hostname " + fullName + " does not match the expected value " + expected +
           "\n";
}

class HostNameCheck : public MembershipTest {
 protected:
    HostNameCheck() { HostCalls::Reset(); }

    void Check(const std::string& domain = "corp.test") { store.SanitiseHostnameForDomain(domain); }

    static void Name(const std::string& hostName, const std::string& fullName) {
        HostCalls::hostName = hostName;
        HostCalls::fullName = fullName;
    }

    // The text of the check's refusal.
    std::string Refusal(const std::string& domain = "corp.test") {
        return TextOf<InvalidHostNameException>([&] { Check(domain); });
    }

    std::string PlatformFailure() {
        return TextOf<HostMgmtException>([this] { Check(); });
    }

    // The names in the one entry of the hosts file, the official one first.
    static std::vector<std::string> Entry() {
        const auto entries = SysNet::Memory::HostsEntries();
        EXPECT_EQ(entries.size(), 1u);
        return entries.empty() ? std::vector<std::string>() : entries.begin()->second;
    }

    static bool HostsFileIsUnchanged() {
        return CallCount(Operation::kAddOrReplaceEntry) == 0 && SysNet::Memory::HostsEntries().empty();
    }
    static bool DnsIsUntouched() { return CallCount(Operation::kMakeDnsConfig) == 0; }
};

TEST_F(HostNameCheck, MapsTheManagementAddressToTheFullNameWithTheShortNameAsAlias) {
    SysNet::Memory::SetManagementInterface("eth7", "198.51.100.7");
    Check();
    EXPECT_THAT(SysNet::Memory::HostsEntries(),
                ElementsAre(Pair("198.51.100.7", ElementsAre("node01.corp.test", "node01"))));
    EXPECT_TRUE(DnsIsUntouched());
    EXPECT_THAT(Journal::Entries(), IsEmpty());
}

TEST_F(HostNameCheck, AsksTheSystemForTheNameAndItsFullFormOnly) {
    Check();
    EXPECT_THAT(HostCalls::asked, ElementsAre("gethostname 64", "gethostbyname_r node01 1024"));
}

TEST_F(HostNameCheck, ResolvesTheHostNameAsItStandsBeforeItIsCut) {
    Name("node01.old.test", "node01.corp.test");
    Check();
    EXPECT_EQ(HostCalls::asked.back(), "gethostbyname_r node01.old.test 1024");
    EXPECT_THAT(Entry(), ElementsAre("node01.corp.test", "node01"));
}

TEST_F(HostNameCheck, RefusesAHostWithoutAReadableName) {
    HostCalls::hostNameFails = true;
    EXPECT_EQ(Refusal(), kInvalid + "unable to get hostname");
    EXPECT_THAT(HostCalls::asked, ElementsAre("gethostname 64"));
    EXPECT_TRUE(HostsFileIsUnchanged());
}

TEST_F(HostNameCheck, TakesANameThatFillsTheBufferWithoutReadingPastIt) {
    const std::string full(64, 'n');
    Name(full + "tail", full + ".corp.test");
    Check();
    EXPECT_THAT(Entry(), ElementsAre(full + ".corp.test", full));
}

TEST_F(HostNameCheck, TakesANameOfSixtyThreeBytes) {
    const std::string longest(63, 'n');
    Name(longest, longest + ".corp.test");
    Check();
    EXPECT_THAT(Entry(), ElementsAre(longest + ".corp.test", longest));
}

TEST_F(HostNameCheck, ReportsTheResolversReason) {
    for (const int reason : {HOST_NOT_FOUND, TRY_AGAIN, NO_RECOVERY, NO_DATA, NETDB_INTERNAL, NETDB_SUCCESS, 77}) {
        HostCalls::resolverError = ERANGE;
        HostCalls::resolverReason = reason;
        EXPECT_EQ(Refusal(), kInvalid + hstrerror(reason));
    }
    HostCalls::resolverReason = HOST_NOT_FOUND;
    EXPECT_EQ(Refusal(), kInvalid + "Unknown host");
    EXPECT_TRUE(HostsFileIsUnchanged());
}

TEST_F(HostNameCheck, RefusesANameThatResolvesToNothing) {
    HostCalls::resolvesToNothing = true;
    HostCalls::resolverReason = HOST_NOT_FOUND;
    EXPECT_EQ(Refusal(), kInvalid + "hostname cannot be resolved");
    EXPECT_TRUE(HostsFileIsUnchanged());
    EXPECT_TRUE(DnsIsUntouched());
}

struct Names {
    const char* hostName;
    const char* fullName;
};

class ShortNames : public HostNameCheck, public ::testing::WithParamInterface<Names> {};
class OtherShortNames : public HostNameCheck, public ::testing::WithParamInterface<Names> {};

TEST_P(ShortNames, ThatAgreeAreAccepted) {
    Name(GetParam().hostName, GetParam().fullName);
    EXPECT_NO_THROW(Check()) << GetParam().hostName << " " << GetParam().fullName;
}

INSTANTIATE_TEST_SUITE_P(HostNameCheck, ShortNames,
                         ::testing::Values(Names{"node01", "node01.corp.test"}, Names{"node01", "node01"},
                                           Names{"node01.corp.test", "node01.corp.test"},
                                           Names{"node01.corp.test", "node01"}, Names{"node01.", "node01."},
                                           Names{"Node01", "Node01.corp.test"}, Names{"NODE01", "NODE01"},
                                           Names{"n", "n.corp.test"}));

TEST_P(OtherShortNames, ThatDifferAreRefusedBeforeAnyChange) {
    HostCalls::resolvable = {"corp.test"};
    Name(GetParam().hostName, GetParam().fullName);
    EXPECT_EQ(Refusal(), kInvalid + "shortname does not match FQDN") << GetParam().fullName;
    EXPECT_TRUE(DnsIsUntouched());
    EXPECT_TRUE(HostsFileIsUnchanged());
    EXPECT_THAT(Journal::Logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(HostNameCheck, OtherShortNames,
                         ::testing::Values(Names{"node01", "node02.corp.test"}, Names{"Node01", "node01.corp.test"},
                                           Names{"node01", "NODE01.corp.test"}, Names{"node01", "localhost"},
                                           Names{"node01", "node01x.corp.test"}, Names{"node01", "node0.corp.test"},
                                           Names{"node01", ""}, Names{"node01", ".corp.test"},
                                           Names{"", "node01.corp.test"}));

TEST_F(HostNameCheck, FullNameOnlyInAnotherCaseFitsWithoutAWarning) {
    Name("node01", "node01.CORP.TEST");
    Check("Corp.Test");
    EXPECT_THAT(Journal::Logged(), IsEmpty());
    EXPECT_TRUE(DnsIsUntouched());
    EXPECT_THAT(Entry(), ElementsAre("node01.CORP.TEST", "node01"));
}

TEST_F(HostNameCheck, ShortNameMustAgreeInCaseAlthoughTheFullNameNeedNot) {
    // The resolver's whole answer in capitals is refused by the short name, before the full names are compared.
    Name("node01", "NODE01.CORP.TEST");
    EXPECT_EQ(Refusal(), kInvalid + "shortname does not match FQDN");
    Name("NODE01", "NODE01.CORP.TEST");
    EXPECT_NO_THROW(Check());
}

TEST_F(HostNameCheck, ANameWithoutADotIsCompletedWithoutAWarning) {
    HostCalls::resolvable = {"corp.test"};
    Name("node01", "node01");
    Check();
    EXPECT_THAT(Entry(), ElementsAre("node01.corp.test", "node01"));
    EXPECT_THAT(Journal::Logged(), IsEmpty());
    EXPECT_TRUE(DnsIsUntouched());
}

TEST_F(HostNameCheck, AFullNameElsewhereIsLoggedAndKept) {
    Name("node01", "node01.old.test");
    Check();
    EXPECT_THAT(Journal::Logged(), ElementsAre(Mismatch("node01.old.test", "node01.corp.test")));
    EXPECT_THAT(Entry(), ElementsAre("node01.old.test", "node01"));
}

TEST_F(HostNameCheck, AFullNameElsewhereAddsTheDomainToTheSearchListIfItResolves) {
    HostCalls::resolvable = {"corp.test"};
    Name("node01", "node01.old.test");
    Check();
    EXPECT_EQ(HostCalls::asked.back(), "gethostbyname corp.test");
    EXPECT_THAT(SysNet::Memory::SearchDomains(), ElementsAre("corp.test"));
    EXPECT_EQ(CallCount(Operation::kSaveConfig), 1);
    EXPECT_THAT(Entry(), ElementsAre("node01.old.test", "node01"));
}

TEST_F(HostNameCheck, AFullNameElsewhereChangesNoSearchListIfTheDomainDoesNotResolve) {
    HostCalls::resolvable = {"old.test", "node01.old.test"};
    Name("node01", "node01.old.test");
    Check();
    EXPECT_TRUE(DnsIsUntouched());
    EXPECT_THAT(SysNet::Memory::SearchDomains(), IsEmpty());
}

TEST_F(HostNameCheck, FullNamesThatAreNearlyTheExpectedOneAreElsewhere) {
    for (const char* fullName :
         {"node01.corp.tes", "node01.corp.test.", "node01.corp.testx", "node01.corp-test", "node01."}) {
        Journal::Clear();
        Name("node01", fullName);
        Check();
        EXPECT_THAT(Journal::Logged(), ElementsAre(Mismatch(fullName, "node01.corp.test")));
    }
}

TEST_F(HostNameCheck, AnEmptyDomainExpectsTheShortNameAndADot) {
    Check("");
    EXPECT_THAT(Journal::Logged(), ElementsAre(Mismatch("node01.corp.test", "node01.")));
    EXPECT_EQ(HostCalls::asked.back(), "gethostbyname ");
}

// A locale in which 0 is the lower-case form of o's capital.
class ZeroIsO : public std::ctype<char> {
 protected:
    char do_toupper(char character) const override {
        return character == '0' ? 'O' : std::ctype<char>::do_toupper(character);
    }
};

TEST_F(HostNameCheck, FoldsLettersAsTheGlobalLocaleSays) {
    Name("node01", "node01.c0rp.test");
    Check();
    EXPECT_EQ(Journal::Logged().size(), 1u);
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new ZeroIsO));
    Check();
    std::locale::global(before);
    EXPECT_EQ(Journal::Logged().size(), 1u);
}

TEST_F(HostNameCheck, RefusesTheNamesOfHostsThatWereNeverNamed) {
    for (const char* name : {"localhost", "linux", "hostname"}) {
        Name(name, std::string(name) + ".corp.test");
        EXPECT_EQ(Refusal(), kInvalid + "hostname is in blacklist") << name;
        Name(std::string(name) + ".corp.test", name);
        EXPECT_EQ(Refusal(), kInvalid + "hostname is in blacklist") << name;
    }
    EXPECT_TRUE(HostsFileIsUnchanged());
    EXPECT_EQ(CallCount(Operation::kGetManagementInterface), 0);
}

TEST_F(HostNameCheck, AcceptsNamesThatOnlyResembleThem) {
    for (const char* name : {"Linux", "LOCALHOST", "hostname1", "linu", "localhost4"}) {
        Name(name, std::string(name) + ".corp.test");
        EXPECT_NO_THROW(Check()) << name;
    }
}

TEST_F(HostNameCheck, RefusesThemOnlyAfterTheSearchListWasExtended) {
    HostCalls::resolvable = {"corp.test"};
    Name("linux", "linux.old.test");
    EXPECT_EQ(Refusal(), kInvalid + "hostname is in blacklist");
    EXPECT_THAT(SysNet::Memory::SearchDomains(), ElementsAre("corp.test"));
    EXPECT_THAT(Journal::Logged(), ElementsAre(Mismatch("linux.old.test", "linux.corp.test")));
    EXPECT_TRUE(HostsFileIsUnchanged());
}

TEST_F(HostNameCheck, OpensHostsFileAndInterfacesBeforeAnyTest) {
    HostCalls::hostNameFails = true;
    FailNext(Operation::kMakeHostsFile, "no hosts file");
    EXPECT_EQ(PlatformFailure(), "no hosts file");
    EXPECT_EQ(CallCount(Operation::kMakeNetworkInfo), 0);
    FailNext(Operation::kMakeNetworkInfo, "no interfaces");
    EXPECT_EQ(PlatformFailure(), "no interfaces");
    EXPECT_THAT(HostCalls::asked, IsEmpty());
    EXPECT_EQ(Refusal(), kInvalid + "unable to get hostname");
}

// Where the platform fails, in the order of the steps: later ones are not reached.
class PlatformStep : public HostNameCheck, public ::testing::WithParamInterface<Operation> {};

TEST_P(PlatformStep, ThatFailsEndsTheCheckWithThePlatformsException) {
    HostCalls::resolvable = {"corp.test"};
    Name("node01", "node01.old.test");
    FailNext(GetParam(), "no route to %s");
    EXPECT_EQ(PlatformFailure(), "no route to %s");
    EXPECT_THAT(SysNet::Memory::HostsEntries(), IsEmpty());
    const std::vector<Operation> steps = {Operation::kMakeHostsFile,    Operation::kMakeNetworkInfo,
                                          Operation::kMakeDnsConfig,    Operation::kAddUserSearchDomain,
                                          Operation::kSaveConfig,       Operation::kGetManagementInterface,
                                          Operation::kAddOrReplaceEntry};
    bool reached = true;
    for (const Operation step : steps) {
        EXPECT_EQ(CallCount(step), reached ? 1 : 0);
        reached = reached && step != GetParam();
    }
}

INSTANTIATE_TEST_SUITE_P(HostNameCheck, PlatformStep,
                         ::testing::Values(Operation::kMakeHostsFile, Operation::kMakeNetworkInfo,
                                           Operation::kMakeDnsConfig, Operation::kAddUserSearchDomain,
                                           Operation::kSaveConfig, Operation::kGetManagementInterface,
                                           Operation::kAddOrReplaceEntry));

TEST_F(HostNameCheck, NeedsAManagementInterface) {
    SysNet::Memory::ClearManagementInterface();
    EXPECT_EQ(PlatformFailure(), "No network interface is up and has an IPv4 address");
    EXPECT_TRUE(HostsFileIsUnchanged());
}

TEST_F(HostNameCheck, MayBeRepeated) {
    HostCalls::resolvable = {"corp.test"};
    Name("node01", "node01.old.test");
    Check();
    Check();
    EXPECT_THAT(SysNet::Memory::SearchDomains(), ElementsAre("corp.test"));
    EXPECT_THAT(Entry(), ElementsAre("node01.old.test", "node01"));
}

TEST_F(HostNameCheck, NeverAsksTheProvider) {
    HostCalls::resolvable = {"corp.test"};
    Name("node01", "node01.old.test");
    Check();
    EXPECT_EQ(Journal::Entries(), Journal::Logged());
}

TEST_F(HostNameCheck, ThatFailsEndsTheJoinBeforeTheProviderIsAsked) {
    HostCalls::hostNameFails = true;
    EXPECT_EQ(TextOf<InvalidHostNameException>([this] { store.JoinDomain("corp.test", administrator, false); }),
              kInvalid + "unable to get hostname");
    EXPECT_THAT(Journal::Entries(), IsEmpty());
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_F(HostNameCheck, IsLeftOutOnRequest) {
    HostCalls::hostNameFails = true;
    store.JoinDomain("corp.test", administrator, true);
    EXPECT_THAT(HostCalls::asked, IsEmpty());
    EXPECT_TRUE(NetworkIsUntouched());
    EXPECT_THAT(Journal::Entries(), ElementsAre(JoinCall("corp.test", "null")));
}

TEST_F(HostNameCheck, IsDoneForTheDomainPartOfTheJoinsArgument) {
    Name("node01", "node01.old.test");
    store.JoinDomain("corp.test/OU=Hosts/Sub", administrator, false);
    EXPECT_THAT(Journal::Entries(),
                ElementsAre(Mismatch("node01.old.test", "node01.corp.test"), JoinCall("corp.test", "OU=Hosts/Sub")));
}

}  // namespace
}  // namespace nimbrel::authentication::test
