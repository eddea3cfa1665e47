// Making the host's name fit a domain with the real host name, resolver and hosts file of a private root.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "store/membership.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::string kInvalid = "The current hostname is invalid: ";

class RealHostName : public MembershipTest {
 protected:
    RealHostName() : _hosts(ReadFile(kHostsFile)), _nameService(ReadFile(kNameServiceFile)) {}
    ~RealHostName() override {
        Rename("node01");
        WriteFile(kHostsFile, _hosts);
        WriteFile(kNameServiceFile, _nameService);
    }

    // Gives the host a name and the hosts file these lines, as on a host that was set up so.
    static void Host(const std::string& name, const std::string& hosts) {
        Rename(name);
        WriteFile(kHostsFile, hosts);
    }

    void Check() { store.SanitiseHostnameForDomain("corp.test"); }

    std::string Refusal() {
        return TextOf<InvalidHostNameException>([this] { Check(); });
    }

    static auto Entries() { return SysNet::Memory::HostsEntries(); }

    static constexpr const char* kNameServiceFile = "/etc/nsswitch.conf";

 private:
    static void Rename(const std::string& name) {
        RequirePrivateRoot();
        if (sethostname(name.data(), name.size()) != 0) throw std::runtime_error("sethostname");
    }

    const std::string _hosts;
    const std::string _nameService;
};

TEST_F(RealHostName, OfAPreparedHostFits) {
    Check();
    EXPECT_THAT(Entries(), ElementsAre(Pair("192.0.2.10", ElementsAre("node01.corp.test", "node01"))));
    EXPECT_THAT(Journal::Logged(), IsEmpty());
    EXPECT_THAT(SysNet::Memory::SearchDomains(), IsEmpty());
}

TEST_F(RealHostName, MayBeFullyQualified) {
    Host("node01.corp.test", "192.0.2.10 node01.corp.test node01\n");
    Check();
    EXPECT_THAT(Entries(), ElementsAre(Pair("192.0.2.10", ElementsAre("node01.corp.test", "node01"))));
}

TEST_F(RealHostName, WithoutADomainInTheHostsFileIsCompleted) {
    Host("node01", "192.0.2.10 node01\n");
    Check();
    EXPECT_THAT(Entries(), ElementsAre(Pair("192.0.2.10", ElementsAre("node01.corp.test", "node01"))));
    EXPECT_THAT(Journal::Logged(), IsEmpty());
}

TEST_F(RealHostName, InAnotherDomainIsKeptAndLogged) {
    Host("node01", "192.0.2.10 node01.old.test node01\n");
    Check();
    EXPECT_THAT(Entries(), ElementsAre(Pair("192.0.2.10", ElementsAre("node01.old.test", "node01"))));
    EXPECT_THAT(Journal::Logged(), ElementsAre("warning: The fully qualified hostname node01.old.test does not match "
                                               "the expected value node01.corp.test\n"));
    EXPECT_THAT(SysNet::Memory::SearchDomains(), IsEmpty());
}

TEST_F(RealHostName, InAnotherDomainSearchesTheDomainThatResolves) {
    Host("node01", "192.0.2.10 node01.old.test node01\n192.0.2.53 corp.test\n");
    Check();
    EXPECT_THAT(SysNet::Memory::SearchDomains(), ElementsAre("corp.test"));
}

TEST_F(RealHostName, ThatIsInNoHostsFileCannotBeResolved) {
    Host("node01", "127.0.0.1 localhost\n");
    EXPECT_EQ(Refusal(), kInvalid + "hostname cannot be resolved");
    EXPECT_THAT(Entries(), IsEmpty());
}

TEST_F(RealHostName, WithAnIPv6AddressOnlyCannotBeResolved) {
    Host("node01", "2001:db8::1 node01.corp.test node01\n");
    EXPECT_EQ(Refusal(), kInvalid + "hostname cannot be resolved");
}

TEST_F(RealHostName, ThatNoNameServerAnswersForIsRefusedWithTheResolversReason) {
    WriteFile(kNameServiceFile, "hosts: dns\n");
    EXPECT_EQ(Refusal(), kInvalid + "Host name lookup failure");
}

TEST_F(RealHostName, WithMoreAliasesThanTheResolversBufferHoldsIsRefused) {
    std::string hosts = "192.0.2.10 node01.corp.test node01";
    for (int i = 0; i < 100; ++i) hosts += " alias-of-this-host-" + std::to_string(i);
    Host("node01", hosts + "\n");
    EXPECT_EQ(Refusal(), kInvalid + "Resolver internal error");
}

TEST_F(RealHostName, OfSixtyThreeBytesFits) {
    const std::string longest(63, 'n');
    Host(longest, "192.0.2.10 " + longest + ".corp.test " + longest + "\n");
    Check();
    EXPECT_THAT(Entries(), ElementsAre(Pair("192.0.2.10", ElementsAre(longest + ".corp.test", longest))));
}

TEST_F(RealHostName, OfSixtyFourBytesCannotBeRead) {
    Host(std::string(64, 'n'), "");
    EXPECT_EQ(Refusal(), kInvalid + "unable to get hostname");
}

TEST_F(RealHostName, ThatIsEmptyCannotBeResolved) {
    Host("", "192.0.2.10 node01.corp.test node01\n");
    EXPECT_EQ(Refusal(), kInvalid + "hostname cannot be resolved");
}

TEST_F(RealHostName, InCapitalsDiffersFromTheResolversSmallLetters) {
    Host("Node01", "192.0.2.10 node01.corp.test node01\n");
    EXPECT_EQ(Refusal(), kInvalid + "shortname does not match FQDN");
    EXPECT_THAT(Entries(), IsEmpty());
}

TEST_F(RealHostName, WithTheDomainInCapitalsFitsWithoutAWarning) {
    Host("node01", "192.0.2.10 node01.CORP.TEST node01\n");
    Check();
    EXPECT_THAT(Entries(), ElementsAre(Pair("192.0.2.10", ElementsAre("node01.CORP.TEST", "node01"))));
    EXPECT_THAT(Journal::Logged(), IsEmpty());
}

TEST_F(RealHostName, OfTheLoopbackLineIsAnotherHosts) {
    Host("node01", "127.0.0.1 localhost node01\n192.0.2.10 node01.corp.test\n");
    EXPECT_EQ(Refusal(), kInvalid + "shortname does not match FQDN");
}

TEST_F(RealHostName, OfAFreshInstallationIsRefused) {
    Host("localhost", "127.0.0.1 localhost\n");
    EXPECT_EQ(Refusal(), kInvalid + "hostname is in blacklist");
    Host("linux", "192.0.2.10 linux.corp.test linux\n");
    EXPECT_EQ(Refusal(), kInvalid + "hostname is in blacklist");
    Host("Linux", "192.0.2.10 Linux.corp.test Linux\n");
    EXPECT_NO_THROW(Check());
}

TEST_F(RealHostName, ThatDoesNotFitEndsTheJoin) {
    Host("node01", "127.0.0.1 localhost\n");
    EXPECT_THROW(store.JoinDomain("corp.test", administrator, false), InvalidHostNameException);
    EXPECT_THAT(Journal::Entries(), IsEmpty());
    store.JoinDomain("corp.test", administrator, true);
    EXPECT_THAT(Journal::Entries(), ElementsAre(JoinCall("corp.test", "null")));
}

}  // namespace
}  // namespace nimbrel::authentication::test
