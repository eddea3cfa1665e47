// The service's configuration file: what it takes, and what it says of a line that is wrong.

#include "services/apxd/config.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <sstream>

#include "services/apxd/back_end.h"
#include "support/temporary_folder.h"

namespace nimbrel::apxd::test {
namespace {

constexpr char kLeast[] =
    "certificate = /etc/c.pem\n"
    "key = /etc/k.pem\n"
    "allow = 192.0.2.0/24\n"
    "domain = corp.test\n";

std::string ErrorOf(const std::string& text) {
    try {
        ParseConfig(text, "apxd.conf");
        return "(none)";
    } catch (const ConfigError& error) {
        return error.what();
    }
}

TEST(ApxdConfig, LeastConfigurationHasTheDocumentedDefaults) {
    const Config config = ParseConfig(kLeast, "apxd.conf");
    EXPECT_EQ(config.address, "0.0.0.0");
    EXPECT_EQ(config.port, 8443U);
    EXPECT_EQ(config.backEnd, "embedded");
    EXPECT_EQ(config.requestsPerMinute, 120U);
    EXPECT_EQ(config.burst, 60U);
    EXPECT_EQ(config.requestSeconds, 10U);
    EXPECT_EQ(config.retrySeconds, 86400U);
    EXPECT_TRUE(config.preStaged.empty());
}

TEST(ApxdConfig, EveryKeyIsTaken) {
    const Config config = ParseConfig(std::string(kLeast) +
                                          "\t# a comment\n"
                                          "\n"
                                          "listen=[2001:db8::1]:9443\n"
                                          "client-ca = /etc/ca.pem\nclient-crl = /etc/crl.pem\nclient-names = any\n"
                                          "allow = 2001:db8:1::/64\n"
                                          "requests-per-minute = 6\nburst = 7\nconnections = 8\n"
                                          "connections-per-client = 9\nrequest-seconds = 10\nstop-seconds = 11\n"
                                          "back-end = ad\nkeytab = /etc/apxd.keytab\nprincipal = apxd\n"
                                          "directory = /srv/directory.db\n"
                                          "unit = Hosts/New Ones\nallow-unit = Hosts\nallow-unit = Lab\n"
                                          "pre-staged = node07\npre-staged = NODE08\n"
                                          "ledger = /srv/ledger\nretry-seconds = 0\n",
                                      "apxd.conf");
    EXPECT_EQ(config.address, "2001:db8::1");
    EXPECT_EQ(config.port, 9443U);
    EXPECT_EQ(config.clientCaFile, "/etc/ca.pem");
    EXPECT_EQ(config.clientCrlFile, "/etc/crl.pem");
    EXPECT_TRUE(config.anyClientName);
    EXPECT_EQ(config.allowed.size(), 2U);
    EXPECT_EQ(config.requestsPerMinute, 6U);
    EXPECT_EQ(config.burst, 7U);
    EXPECT_EQ(config.connections, 8U);
    EXPECT_EQ(config.connectionsPerClient, 9U);
    EXPECT_EQ(config.requestSeconds, 10U);
    EXPECT_EQ(config.stopSeconds, 11U);
    EXPECT_EQ(config.backEnd, "ad");
    EXPECT_EQ(config.keytab, "/etc/apxd.keytab");
    EXPECT_EQ(config.principal, "apxd");
    EXPECT_EQ(config.directoryFile, "/srv/directory.db");
    EXPECT_EQ(config.defaultUnit, "Hosts/New Ones");
    EXPECT_THAT(config.allowedUnits, ::testing::ElementsAre("Hosts", "Lab"));
    EXPECT_THAT(config.preStaged, ::testing::ElementsAre("NODE07", "NODE08"));
    EXPECT_EQ(config.ledgerFile, "/srv/ledger");
    EXPECT_EQ(config.retrySeconds, 0U);
}

TEST(ApxdConfig, WhatIsWrongIsToldWithItsLine) {
    const struct {
        const char* line;
        const char* error;
    } rows[] = {
        {"nonsense", "apxd.conf:5: the line is not KEY = VALUE"},
        {"Listen = 1.2.3.4", "apxd.conf:5: unknown key 'Listen'"},
        {" = 1", "apxd.conf:5: unknown key ''"},
        {"burst =", "apxd.conf:5: 'burst' has no value"},
        {"burst = ten", "apxd.conf:5: 'burst': the value must be a number from 1 to 1000000"},
        {"burst = 0", "apxd.conf:5: 'burst': the value must be a number from 1 to 1000000"},
        {"burst = 5 # five", "apxd.conf:5: 'burst': the value must be a number from 1 to 1000000"},
        {"burst = 99999999999999", "apxd.conf:5: 'burst': the value must be a number from 1 to 1000000"},
        {"domain = b.test", "apxd.conf:5: 'domain' stands in line 4 already"},
        {"allow = 192.0.2.1/24", "apxd.conf:5: 'allow': the value must be an address or a network as 192.0.2.0/24"},
        {"allow = 192.0.2.0/33", "apxd.conf:5: 'allow': the value must be an address or a network as 192.0.2.0/24"},
        {"allow = any", "apxd.conf:5: 'allow': the value must be an address or a network as 192.0.2.0/24"},
        {"listen = localhost",
         "apxd.conf:5: 'listen': the value must be ADDRESS or ADDRESS:PORT, an IPv6 address in brackets"},
        {"listen = [::1",
         "apxd.conf:5: 'listen': the value must be ADDRESS or ADDRESS:PORT, an IPv6 address in brackets"},
        {"listen = [::]x:8443",
         "apxd.conf:5: 'listen': the value must be ADDRESS or ADDRESS:PORT, an IPv6 address in brackets"},
        {"listen = [::]x",
         "apxd.conf:5: 'listen': the value must be ADDRESS or ADDRESS:PORT, an IPv6 address in brackets"},
        {"listen = 0.0.0.0:70000", "apxd.conf:5: 'listen': the value must be a number from 0 to 65535"},
        {"ledger = relative", "apxd.conf:5: 'ledger': the path must begin with '/'"},
        {"back-end = ldap", "apxd.conf:5: 'back-end': the value must be 'embedded' or 'ad'"},
        {"back-end = ad", "apxd.conf:0: 'keytab' is missing: the back end 'ad' logs on with it"},
        {"pre-staged = NODE07$", "apxd.conf:5: 'pre-staged': the value must be an account's name, as NODE07"},
        {"unit = a\x01", "apxd.conf:5: the line holds a control character"},
        {"unit = a\r", "apxd.conf:5: the line holds a control character"},
    };
    for (const auto& row : rows) EXPECT_EQ(ErrorOf(std::string(kLeast) + row.line + '\n'), row.error) << row.line;
}

TEST(ApxdConfig, NumbersHaveTheirBounds) {
    const struct {
        const char* key;
        std::uint32_t Config::*member;
        std::uint32_t least;
        std::uint32_t most;
    } rows[] = {
        {"requests-per-minute", &Config::requestsPerMinute, 1, 1000000},
        {"burst", &Config::burst, 1, 1000000},
        {"connections", &Config::connections, 1, 4096},
        {"connections-per-client", &Config::connectionsPerClient, 1, 4096},
        {"request-seconds", &Config::requestSeconds, 1, 600},
        {"stop-seconds", &Config::stopSeconds, 1, 600},
        {"retry-seconds", &Config::retrySeconds, 0, 31536000},
    };
    for (const auto& row : rows) {
        const auto with = [&](std::int64_t value) { return kLeast + (row.key + (" = " + std::to_string(value))); };
        const std::string error = std::string("apxd.conf:5: '") + row.key + "': the value must be a number from " +
                                  std::to_string(row.least) + " to " + std::to_string(row.most);
        EXPECT_EQ(ParseConfig(with(row.least), "apxd.conf").*row.member, row.least) << row.key;
        EXPECT_EQ(ParseConfig(with(row.most), "apxd.conf").*row.member, row.most) << row.key;
        EXPECT_EQ(ErrorOf(with(std::int64_t{row.least} - 1)), error);
        EXPECT_EQ(ErrorOf(with(std::int64_t{row.most} + 1)), error);
    }
}

TEST(ApxdConfig, ListensAtAnAddressWithOrWithoutAPort) {
    const struct {
        const char* value;
        const char* address;
        std::uint32_t port;
    } rows[] = {{"192.0.2.1", "192.0.2.1", 8443},
                {"192.0.2.1:0", "192.0.2.1", 0},
                {"[::]", "::", 8443},
                {"[::]:65535", "::", 65535},
                {"[::1]:1", "::1", 1}};
    for (const auto& row : rows) {
        const Config config = ParseConfig(std::string(kLeast) + "listen = " + row.value, "apxd.conf");
        EXPECT_EQ(config.address, row.address) << row.value;
        EXPECT_EQ(config.port, row.port) << row.value;
    }
    for (const char* value : {"[]", "[]:1", ":1", "::1", "[::1", "[192.0.2.1", "192.0.2.1]", "[::1].", "[::1]8:1"}) {
        EXPECT_EQ(ErrorOf(std::string(kLeast) + "listen = " + value),
                  "apxd.conf:5: 'listen': the value must be ADDRESS or ADDRESS:PORT, an IPv6 address in brackets")
            << value;
    }
    EXPECT_EQ(ErrorOf(std::string(kLeast) + "listen = 192.0.2.1:65536"),
              "apxd.conf:5: 'listen': the value must be a number from 0 to 65535");
}

TEST(ApxdConfig, BlanksAroundKeysAndValuesDoNotCount) {
    const Config config = ParseConfig(std::string(kLeast) + "\t unit \t=\t Hosts = New \t\n \t\n\t#", "apxd.conf");
    EXPECT_EQ(config.defaultUnit, "Hosts = New");
    EXPECT_EQ(ErrorOf(std::string(kLeast) + "unit = a\x7f"), "apxd.conf:5: the line holds a control character");
    EXPECT_EQ(ErrorOf(std::string(kLeast) + "unit = a\x1f"), "apxd.conf:5: the line holds a control character");
}

TEST(ApxdConfig, TheDirectoryNeedsAnAccountOfTheServicesOwn) {
    const std::string text = std::string(kLeast) + "back-end = ad\nkeytab = /k\n";
    EXPECT_EQ(ErrorOf(text), "apxd.conf:0: 'principal' is missing: the service's own account");
    EXPECT_EQ(ErrorOf(text + "principal = apxd\n"), "(none)");
    EXPECT_EQ(ParseConfig(std::string(kLeast) + "back-end = embedded", "apxd.conf").backEnd, "embedded");
}

TEST(ApxdConfig, EveryByteIsFitForADomainOrNot) {
    for (int value = 0x21; value < 0x100; ++value) {
        const auto byte = static_cast<char>(value);
        if (value == '.' || value == 0x7f) continue;
        const bool isFit = (value >= 'a' && value <= 'z') || (value >= 'A' && value <= 'Z') ||
                           (value >= '0' && value <= '9') || value == '-' || value == '_';
        std::string text = kLeast;
        text.replace(text.find("corp.test"), 9, std::string("c") + byte + "p.test");
        EXPECT_EQ(ErrorOf(text), isFit ? "(none)" : "apxd.conf:4: 'domain': the value must be the domain's DNS name")
            << value;
    }
    const std::string label(63, 'a');
    for (const auto& [domain, isFit] : {std::pair(label + ".test", true), std::pair(label + "a.test", false)}) {
        std::string text = kLeast;
        text.replace(text.find("corp.test"), 9, domain);
        EXPECT_EQ(ErrorOf(text) == "(none)", isFit) << domain;
    }
}

TEST(ApxdConfig, TheDomainIsADnsName) {
    const std::string least = kLeast;
    const std::size_t name = least.find("corp.test");
    ASSERT_NE(name, std::string::npos);
    for (const char* domain : {"corp.test x", "corp..test", ".test", "corp.test.", "corp.t\xff", "corp\t.test"}) {
        std::string text = least;
        EXPECT_EQ(ErrorOf(text.replace(name, 9, domain)),
                  "apxd.conf:4: 'domain': the value must be the domain's DNS name")
            << domain;
    }
}

TEST(ApxdConfig, NamesOfCertificatesAreThoseOfAccountsUnlessTheyMayBeAny) {
    const std::string asking = std::string(kLeast) + "client-ca = /etc/ca.pem\n";
    EXPECT_FALSE(ParseConfig(asking, "apxd.conf").anyClientName);
    EXPECT_FALSE(ParseConfig(asking + "client-names = account\n", "apxd.conf").anyClientName);
    EXPECT_TRUE(ParseConfig(asking + "client-names = any\n", "apxd.conf").anyClientName);
    EXPECT_EQ(ErrorOf(asking + "client-names = no\n"),
              "apxd.conf:6: 'client-names': the value must be 'account' or 'any'");
    EXPECT_EQ(ErrorOf(std::string(kLeast) + "client-names = account\n"),
              "apxd.conf:0: 'client-ca' is missing: 'client-names' is about the certificates that it asks for");
    EXPECT_EQ(ErrorOf(std::string(kLeast) + "client-crl = /etc/crl.pem\n"),
              "apxd.conf:0: 'client-ca' is missing: 'client-crl' is about the certificates that it asks for");
}

TEST(ApxdConfig, WhatIsMissingIsTold) {
    for (const std::string missing : {"certificate", "key", "allow", "domain"}) {
        std::string text;
        std::istringstream lines(kLeast);
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with(missing + ' ')) text += line + '\n';
        }
        EXPECT_EQ(ErrorOf(text), "apxd.conf:0: '" + missing + "' is missing");
    }
    EXPECT_EQ(ErrorOf("certificate = /c\nkey = /k\nallow = ::/0\ndomain = corp\n"),
              "apxd.conf:0: 'domain' is not a DNS name");
}

TEST(ApxdConfig, AFileThatCannotBeReadIsAnError) {
    const TemporaryFolder folder;
    EXPECT_THROW(ReadConfig(folder / "missing"), ConfigError);
    EXPECT_THROW(ReadConfig(folder / ""), ConfigError);
    WriteFile(folder / "large", std::string(2U << 20U, '#'));
    EXPECT_THROW(ReadConfig(folder / "large"), ConfigError);
}

TEST(ApxdConfig, AFilesSizeAndTheReasonAreTold) {
    const TemporaryFolder folder;
    const auto errorOf = [&](const std::string& name) -> std::string {
        try {
            return std::to_string(ReadTextFile(folder / name).size());
        } catch (const ConfigError& error) {
            return error.what();
        }
    };
    EXPECT_EQ(errorOf("missing"), folder / "missing" + ":0: No such file or directory");
    EXPECT_EQ(errorOf(""), folder / "" + ":0: Is a directory");
    WriteFile(folder / "largest", std::string(1U << 20U, '#'));
    EXPECT_EQ(errorOf("largest"), "1048576");
    WriteFile(folder / "large", std::string((1U << 20U) + 1, '#'));
    EXPECT_EQ(errorOf("large"), folder / "large" + ":0: the file is too large");
}

// --- Networks and names ---

TEST(ApxdNames, NetworksContainTheirAddresses) {
    const struct {
        const char* network;
        const char* address;
        bool contains;
    } rows[] = {
        {"192.0.2.0/24", "192.0.2.255", true},      {"192.0.2.0/24", "192.0.3.0", false},
        {"192.0.2.8/30", "192.0.2.11", true},       {"192.0.2.8/30", "192.0.2.12", false},
        {"0.0.0.0/0", "203.0.113.9", true},         {"0.0.0.0/0", "2001:db8::1", false},
        {"192.0.2.7", "192.0.2.7", true},           {"192.0.2.7", "192.0.2.6", false},
        {"192.0.2.0/24", "::ffff:192.0.2.9", true}, {"2001:db8::/32", "2001:db8:ffff::1", true},
        {"2001:db8::/32", "2001:db9::1", false},    {"::/0", "192.0.2.1", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Network::Parse(row.network)->Contains(*Address::Parse(row.address)), row.contains)
            << row.network << ' ' << row.address;
    }
}

TEST(ApxdNames, NetworksHaveNoBitsBehindTheirLength) {
    const struct {
        const char* network;
        bool good;
    } rows[] = {
        {"192.0.2.128/25", true},
        {"192.0.2.64/25", false},
        {"192.0.2.1/32", true},
        {"192.0.2.1/31", false},
        {"192.0.2.1/33", false},
        {"192.0.2.0/", false},
        {"192.0.2.0/x", false},
        {"192.0.2.0/24x", false},
        {"192.0.2.0/-1", false},
        {"/24", false},
        {"", false},
        {"2001:db8::1/128", true},
        {"2001:db8::1/127", false},
        {"2001:db8::/129", false},
        {"2001:db8::/33", true},
        {"::ffff:192.0.2.0/120", true},
        {"::ffff:192.0.2.0/24", false},
        {"::ffff:0.0.0.0/96", true},
        {"128.0.0.0/1", true},
        {"128.0.0.0/0", false},
        {"8000::/1", true},
        {"8000::/0", false},
        {"0.0.0.0/0", true},
        {"::/0", true},
    };
    for (const auto& row : rows) EXPECT_EQ(Network::Parse(row.network).has_value(), row.good) << row.network;
    EXPECT_TRUE(Network::Parse("::ffff:192.0.2.0/120")->Contains(*Address::Parse("192.0.2.9")));
    EXPECT_FALSE(Network::Parse("::ffff:192.0.2.0/120")->Contains(*Address::Parse("192.0.3.9")));
}

TEST(ApxdNames, AddressesAreWrittenAsTheyAreKnown) {
    for (const char* text : {"192.0.2.10", "2001:db8::1", "::", "0.0.0.0", "255.255.255.255"}) {
        EXPECT_EQ(Address::Parse(text)->Text(), text);
    }
    EXPECT_EQ(Address::Parse("::ffff:192.0.2.10")->Text(), "192.0.2.10");
    EXPECT_FALSE(Address::Parse("node01"));
    EXPECT_FALSE(Address::Parse(""));
}

TEST(ApxdNames, AddressesOfSocketsAreTaken) {
    sockaddr_storage storage = {};
    auto& address = reinterpret_cast<sockaddr&>(storage);
    EXPECT_FALSE(Address::From(address));
    auto& ipv4 = reinterpret_cast<sockaddr_in&>(storage);
    ipv4.sin_family = AF_INET;
    ASSERT_EQ(inet_pton(AF_INET, "192.0.2.10", &ipv4.sin_addr), 1);
    EXPECT_EQ(Address::From(address)->Text(), "192.0.2.10");
    auto& ipv6 = reinterpret_cast<sockaddr_in6&>(storage);
    ipv6.sin6_family = AF_INET6;
    ASSERT_EQ(inet_pton(AF_INET6, "2001:db8::10", &ipv6.sin6_addr), 1);
    EXPECT_EQ(Address::From(address)->Text(), "2001:db8::10");
}

TEST(ApxdNames, HostNamesBecomeAccountNames) {
    const struct {
        const char* name;
        const char* account;  // empty: refused
    } rows[] = {
        {"node01.corp.test", "NODE01"},
        {"node01", "NODE01"},
        {"Node-1.CORP.Test", "NODE-1"},
        {"a", "A"},
        {"fifteen-letters", "FIFTEEN-LETTERS"},
        {"", ""},
        {".corp.test", ""},
        {"node01.", ""},
        {"node01.other.test", ""},
        {"node01.corp.test.", ""},
        {"node01.xcorp.test", ""},
        {"node01.corp.test.evil", ""},
        {"sixteen-letters1", ""},
        {"12345", ""},
        {"-node", ""},
        {"node-", ""},
        {"node_1", ""},
        {"node01$", ""},
        {"n\xc3\xb6"
         "de",
         ""},
        {"node 1", ""},
        {"node/1", ""},
        {"*", ""},
        {"CN=x", ""},
    };
    for (const auto& row : rows) {
        try {
            EXPECT_EQ(AccountName(row.name, "corp.test"), row.account) << row.name;
        } catch (const Refusal& refusal) {
            EXPECT_STREQ(row.account, "") << row.name;
            EXPECT_EQ(refusal.Status(), kInvalidComputerName);
            const bool isOutside = refusal.what() == std::string("the host's name does not end in .corp.test");
            EXPECT_TRUE(isOutside || refusal.what() == std::string("the host's name is not 1 to 15 letters, digits and "
                                                                   "inner hyphens, or is digits alone"))
                << refusal.what();
            EXPECT_EQ(isOutside, std::string(row.name).starts_with("node01.")) << row.name;
        }
    }
}

}  // namespace
}  // namespace nimbrel::apxd::test
