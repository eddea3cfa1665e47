// What a proxy plug-in is asked, and what becomes of its answers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "authentication/exceptions.h"
#include "authentication/proxy.h"
#include "proxy/journal.h"
#include "proxy/root.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ProxyCalls : public ::testing::Test {
 protected:
    ProxyCalls() {
        RemovePlugins();
        Install("scripted", "scripted_proxy");
        Script::Reset();
        Journal::Clear();
    }
    ~ProxyCalls() override { EXPECT_THAT(Journal::Lines("results were not null"), IsEmpty()); }

    static APXProxy Proxy(bool verify = true, const std::string& thumbprint = "0A:1B",
                          const std::string& certificate = "PEM") {
        return {"scripted", "192.0.2.7", verify, thumbprint, certificate};
    }

    static std::vector<std::string> Released() { return Journal::Lines("release"); }

    // Three results, filled before the call.
    struct Domain {
        std::string netbios = "before";
        std::string dns = "before";
        std::string sid = "before";
    };
    static std::string Ask(Domain& domain) {
        return Outcome([&] { Proxy().GetDomainInfo(domain.netbios, domain.dns, domain.sid); });
    }
    static std::string AskForDomain() {
        Domain domain;
        return Ask(domain);
    }
    static std::string CreateAccount() {
        return Outcome([] { Proxy().CreateMachineAccount("node01.corp.test", "Hosts"); });
    }
};

// ---------------------------------------------------------------- arguments

TEST_F(ProxyCalls, DomainQueryHandsEverythingOver) {
    Proxy().GetDNSDomainName();
    EXPECT_THAT(Journal::Lines("domain"), ElementsAre("domain(192.0.2.7, 1, 0A:1B, PEM)"));
}

TEST_F(ProxyCalls, AccountCreationHandsEverythingOver) {
    Proxy().CreateMachineAccount("node01.corp.test", "OU=Hosts");
    EXPECT_THAT(Journal::Lines("account"),
                ElementsAre("account(192.0.2.7, node01.corp.test, OU=Hosts, 1, 0A:1B, PEM)"));
}

TEST_F(ProxyCalls, VerificationIsOneByte) {
    Proxy(false).GetDNSDomainName();
    Proxy(false).CreateMachineAccount("node01.corp.test", "OU=Hosts");
    EXPECT_THAT(Journal::Lines("domain"), ElementsAre("domain(192.0.2.7, 0, 0A:1B, PEM)"));
    EXPECT_THAT(Journal::Lines("account"),
                ElementsAre("account(192.0.2.7, node01.corp.test, OU=Hosts, 0, 0A:1B, PEM)"));
}

TEST_F(ProxyCalls, EmptyCertificateIsNullAndEmptyThumbprintIsNot) {
    Proxy(false, "", "").GetDNSDomainName();
    Proxy(false, "", "").CreateMachineAccount("node01.corp.test", "OU=Hosts");
    EXPECT_THAT(Journal::Lines("domain"), ElementsAre("domain(192.0.2.7, 0, , null)"));
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, node01.corp.test, OU=Hosts, 0, , null)"));
}

TEST_F(ProxyCalls, EmptyOrganizationalUnitIsNullAndEmptyAccountNameIsNot) {
    Proxy().CreateMachineAccount("", "");
    EXPECT_THAT(Journal::Lines("account"), ElementsAre("account(192.0.2.7, , null, 1, 0A:1B, PEM)"));
}

TEST_F(ProxyCalls, EmptyServerIsNotNull) {
    APXProxy("scripted", "", false, "", "").GetDNSDomainName();
    EXPECT_THAT(Journal::Lines("domain"), ElementsAre("domain(, 0, , null)"));
}

TEST_F(ProxyCalls, ArgumentsAreCopiedWhenTheProxyIsMade) {
    std::string server = "192.0.2.7";
    std::string thumbprint = "0A:1B";
    std::string certificate = "PEM";
    APXProxy proxy("scripted", server, true, thumbprint, certificate);
    server = thumbprint = certificate = "changed";
    proxy.GetDNSDomainName();
    EXPECT_THAT(Journal::Lines("domain"), ElementsAre("domain(192.0.2.7, 1, 0A:1B, PEM)"));
}

// ---------------------------------------------------------------- results

TEST_F(ProxyCalls, DomainResultsReplaceTheArguments) {
    Domain domain;
    EXPECT_EQ(Ask(domain), "success");
    EXPECT_EQ(domain.netbios, "CORP");
    EXPECT_EQ(domain.dns, "corp.test");
    EXPECT_EQ(domain.sid, "S-1-5-21-1-2-3");
}

TEST_F(ProxyCalls, DomainResultsAreReleasedOnceInOrder) {
    EXPECT_EQ(AskForDomain(), "success");
    EXPECT_THAT(Released(), ElementsAre("release CORP", "release corp.test", "release S-1-5-21-1-2-3"));
}

TEST_F(ProxyCalls, AccountResultsAreTheSecondAndThirdField) {
    const ComputerPrincipalInfo principal = Proxy().CreateMachineAccount("node01.corp.test", "OU=Hosts");
    EXPECT_EQ(principal.reserved, "");
    EXPECT_EQ(principal.principalField2, "FIELD2");
    EXPECT_EQ(principal.principalField3, "FIELD3");
}

TEST_F(ProxyCalls, AccountResultsAreReleasedOnceInOrder) {
    EXPECT_EQ(CreateAccount(), "success");
    EXPECT_THAT(Released(), ElementsAre("release FIELD2", "release FIELD3"));
}

TEST_F(ProxyCalls, EmptyResultsAreResults) {
    for (const char* name : {"netbios", "dns", "sid", "field2", "field3"}) Script::SetText(name, "");
    Domain domain;
    EXPECT_EQ(Ask(domain), "success");
    EXPECT_EQ(domain.netbios + domain.dns + domain.sid, "");
    EXPECT_EQ(Proxy().CreateMachineAccount("node01", "").principalField2, "");
    EXPECT_EQ(Released().size(), 5u);
}

TEST_F(ProxyCalls, EachNameTakesOneCallOfItsOwn) {
    APXProxy proxy = Proxy();
    EXPECT_EQ(proxy.GetNetBIOSDomainName(), "CORP");
    EXPECT_EQ(Journal::Lines("domain").size(), 1u);
    EXPECT_EQ(proxy.GetDNSDomainName(), "corp.test");
    EXPECT_EQ(Journal::Lines("domain").size(), 2u);
    EXPECT_EQ(proxy.GetDomainSID(), "S-1-5-21-1-2-3");
    EXPECT_EQ(Journal::Lines("domain").size(), 3u);
    EXPECT_EQ(Released().size(), 9u);
}

TEST_F(ProxyCalls, ContainerAndControllerAreEmptyWithoutACall) {
    APXProxy proxy = Proxy();
    EXPECT_EQ(proxy.GetDefaultComputerContainer(), "");
    EXPECT_EQ(proxy.GetDomainController(), "");
    EXPECT_THAT(Journal::Lines(), ElementsAre("proxy loaded"));
}

TEST_F(ProxyCalls, AProxyCanBeUsedAgainAfterAFailure) {
    Script::Answer("domain", {1225});
    APXProxy proxy = Proxy();
    EXPECT_THROW(proxy.GetDNSDomainName(), ConnectionRefusedException);
    EXPECT_EQ(proxy.GetDNSDomainName(), "corp.test");
}

// ---------------------------------------------------------------- results that are missing

class MissingResult : public ProxyCalls, public ::testing::WithParamInterface<std::string> {
 protected:
    MissingResult() { Script::SetText(GetParam(), std::nullopt); }

    // What is released of `all` when one of them is missing.
    static std::vector<std::string> AllBut(std::vector<std::string> all, std::size_t missing) {
        all.erase(all.begin() + static_cast<std::ptrdiff_t>(missing));
        return all;
    }
};
class MissingDomainResult : public MissingResult {};
class MissingAccountResult : public MissingResult {};

TEST_P(MissingDomainResult, IsALogicErrorAndTheOthersAreReleased) {
    const std::size_t index = GetParam() == "netbios" ? 0 : GetParam() == "dns" ? 1 : 2;
    EXPECT_THAT(AskForDomain(), ::testing::StartsWith("logic_error: "));
    EXPECT_EQ(Released(), AllBut({"release CORP", "release corp.test", "release S-1-5-21-1-2-3"}, index));
}

TEST_P(MissingDomainResult, LeavesItsArgumentAndThoseBehindItAsTheyWere) {
    Domain domain;
    Ask(domain);
    EXPECT_EQ(domain.netbios, GetParam() == "netbios" ? "before" : "CORP");
    EXPECT_EQ(domain.dns, GetParam() == "sid" ? "corp.test" : "before");
    EXPECT_EQ(domain.sid, "before");
}

TEST_P(MissingDomainResult, IsALogicErrorEvenForThoseWhoDoNotWantIt) {
    EXPECT_THROW(Proxy().GetNetBIOSDomainName(), std::logic_error);
    EXPECT_THROW(Proxy().GetDNSDomainName(), std::logic_error);
    EXPECT_THROW(Proxy().GetDomainSID(), std::logic_error);
}

TEST_P(MissingAccountResult, IsALogicErrorAndTheOtherIsReleased) {
    EXPECT_THAT(CreateAccount(), ::testing::StartsWith("logic_error: "));
    EXPECT_EQ(Released(), AllBut({"release FIELD2", "release FIELD3"}, GetParam() == "field2" ? 0 : 1));
}

INSTANTIATE_TEST_SUITE_P(Text, MissingDomainResult, ::testing::Values("netbios", "dns", "sid"),
                         [](const auto& row) { return row.param; });
INSTANTIATE_TEST_SUITE_P(Text, MissingAccountResult, ::testing::Values("field2", "field3"),
                         [](const auto& row) { return row.param; });

// ---------------------------------------------------------------- statuses

struct Failure {
    std::uint32_t status;
    const char* outcome;
};

constexpr Failure kNamedStatuses[] = {
    {0x80090325, "InvalidAPXCertificateException: The APX server's certificate cannot be verified."},
    {10060,
     "WSATimedOutException: Exception 0x0000274c: A connection attempt failed because the connected party did not "
     "properly respond after a period of time, or established connection failed because connected host has failed to "
     "respond."},
    {8, "NotEnoughMemoryException: Exception 0x00000008: Not enough memory"},
    {1225, "ConnectionRefusedException: Exception 0x000004c9: The remote computer refused the network connection."},
    {1229,
     "ConnectionInvalidException: Exception 0x000004cd: An operation was attempted on a nonexistent network "
     "connection."}};

TEST_F(ProxyCalls, FiveStatusesHaveNames) {
    for (const Failure& failure : kNamedStatuses) {
        Script::Answer("domain", {failure.status});
        EXPECT_EQ(AskForDomain(), failure.outcome);
        Script::Answer("account", {failure.status});
        EXPECT_EQ(CreateAccount(), failure.outcome);
    }
}

TEST_F(ProxyCalls, OtherStatusesAreUnknownAndKeptUnsigned) {
    // Those that mean something elsewhere, those next to the five, and the ends of the range.
    for (const std::uint32_t status :
         {1u,     2u,          5u,          7u,          9u,          14u,         86u,         120u,       1224u,
          1226u,  1228u,       1230u,       1311u,       1326u,       1355u,       1398u,       2691u,      10059u,
          10061u, 0x7fffffffu, 0x80090324u, 0x80090326u, 0xffff0000u, 0xffff0001u, 0xfffffffeu, 0xffffffffu}) {
        char outcome[80];
        std::snprintf(outcome, sizeof outcome, "UnknownException: Exception 0x%08x: Unknown exception", status);
        Script::Answer("domain", {status});
        EXPECT_EQ(AskForDomain(), outcome);
        Script::Answer("account", {status});
        EXPECT_EQ(CreateAccount(), outcome);
    }
}

TEST_F(ProxyCalls, TheCodeOfAnUnknownStatusIsTheStatus) {
    for (const std::uint32_t status : {5u, 1326u, 0x80000000u, 0xffffffffu}) {
        Script::Answer("domain", {status});
        try {
            Proxy().GetDomainSID();
            ADD_FAILURE() << status << " was taken for success";
        } catch (const UnknownException& error) {
            EXPECT_EQ(error.GetCode(), static_cast<unsigned long>(status));
        }
    }
}

TEST_F(ProxyCalls, EveryStatusUpTo20000IsUnknownButForFour) {
    APXProxy proxy = Proxy();
    std::vector<std::uint32_t> named;
    for (std::uint32_t status = 1; status <= 20000; ++status) {
        Script::Answer("account", {status});
        try {
            proxy.CreateMachineAccount("node01", "");
        } catch (const UnknownException& error) {
            if (error.GetCode() == status) continue;
        } catch (const Exception& error) {
            if (error.GetCode() == status) named.push_back(status);
            continue;
        }
        ADD_FAILURE() << status;
    }
    EXPECT_THAT(named, ElementsAre(8, 1225, 1229, 10060));
}

TEST_F(ProxyCalls, AnUnverifiedCertificateCarriesNoStatus) {
    Script::Answer("domain", {0x80090325});
    try {
        Proxy().GetDNSDomainName();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const InvalidAPXCertificateException& error) {
        EXPECT_EQ(error.GetCode(), 0u);
    }
}

TEST_F(ProxyCalls, FailedDomainQueryLeavesTheArgumentsAlone) {
    Script::Answer("domain", {5});
    Domain domain;
    EXPECT_EQ(Ask(domain), "UnknownException: Exception 0x00000005: Unknown exception");
    EXPECT_EQ(domain.netbios + domain.dns + domain.sid, "beforebeforebefore");
    EXPECT_THAT(Released(), IsEmpty());
}

}  // namespace
}  // namespace nimbrel::authentication::test
