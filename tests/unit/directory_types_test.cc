// The values that cross the boundary to a directory provider.

#include "authentication/directory_types.h"

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

namespace {

using nimbrel::authentication::ComputerPrincipalInfo;
using nimbrel::authentication::Domain;
namespace APX = nimbrel::authentication::APX;

TEST(DirectoryTypes, DomainPrintsBothNames) {
    const struct {
        const char* dnsName;
        const char* netbiosName;
        const char* printed;
    } kRows[] = {
        {"corp.test", "CORP", "DNS Name: corp.test, NetBIOS Name: CORP"},
        {"d1", "", "DNS Name: d1, NetBIOS Name: (unset)"},
        {"", "CORP", "DNS Name: (unset), NetBIOS Name: CORP"},
        {"", "", "DNS Name: (unset), NetBIOS Name: (unset)"},
        {" ", "(unset)", "DNS Name:  , NetBIOS Name: (unset)"},
    };
    for (const auto& row : kRows) {
        std::ostringstream stream;
        stream << Domain(row.dnsName, row.netbiosName);
        EXPECT_EQ(stream.str(), row.printed);
    }
}

TEST(DirectoryTypes, PrintingReturnsTheStreamAndEndsNoLine) {
    std::ostringstream stream;
    stream << Domain("a", "A") << "|" << Domain("b", "B");
    EXPECT_EQ(stream.str(), "DNS Name: a, NetBIOS Name: A|DNS Name: b, NetBIOS Name: B");
}

TEST(DirectoryTypes, DomainIsAPlainValueOfTwoNames) {
    Domain domain("corp.test", "CORP");
    const Domain copy = domain;
    domain = Domain("lab.test", "LAB");
    EXPECT_EQ(copy.DNSName(), "corp.test");
    EXPECT_EQ(copy.NetBIOSName(), "CORP");
    EXPECT_EQ(domain.DNSName(), "lab.test");
    EXPECT_EQ(sizeof(Domain), 2 * sizeof(std::string));
}

TEST(DirectoryTypes, StatesAreThirtyTwoBitNumbersOfTheProvider) {
    static_assert(std::is_same_v<std::underlying_type_t<TrustState>, std::int32_t>);
    static_assert(std::is_same_v<std::underlying_type_t<TrustRelationship>, std::int32_t>);
    EXPECT_EQ(static_cast<std::int32_t>(static_cast<TrustState>(-2147483647)), -2147483647);
}

TEST(DirectoryTypes, RecordsStartEmpty) {
    const APX::DirectoryDomainInfo domain;
    const APX::MachineAccountInfo account;
    const ComputerPrincipalInfo principal;
    EXPECT_EQ(domain.reserved + domain.netbiosName + domain.dnsName + domain.sid, "");
    EXPECT_EQ(
        account.hostName + account.dnsDomainName + account.reserved + account.principalField2 + account.principalField3,
        "");
    EXPECT_EQ(principal.reserved + principal.principalField2 + principal.principalField3, "");
}

}  // namespace
