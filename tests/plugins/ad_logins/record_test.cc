#include "record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sssd_settings.h"

namespace nimbrel::ad::test {
namespace {

using namespace logins;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kSample[] =
    "# Written by nimauth: what was set up for log-ins of domain users, so that a leave can take it away.\n"
    "domain corp.test\n"
    "realm CORP.TEST\n"
    "netbios CORP\n"
    "host node01.corp.test\n"
    "account NODE01$\n"
    "keytab /etc/krb5.keytab\n"
    "trusted trust.test\n"
    "controller dc2.corp.test\n"
    "smart-cards set\n"
    "smart-card sshd\n"
    "sssd-ran\n";

TEST(RecordTest, TheSampleIsReadInFull) {
    const Record record = ParseRecord(kSample);
    ASSERT_TRUE(record.domain);
    EXPECT_EQ(record.domain->dnsName, "corp.test");
    EXPECT_EQ(record.domain->realm, "CORP.TEST");
    EXPECT_EQ(record.domain->netbiosName, "CORP");
    EXPECT_EQ(record.domain->hostName, "node01.corp.test");
    EXPECT_EQ(record.domain->machineAccount, "NODE01$");
    EXPECT_EQ(record.domain->keytab, "/etc/krb5.keytab");
    EXPECT_THAT(record.domain->trustedForests, ElementsAre("trust.test"));
    EXPECT_THAT(record.controllers, ElementsAre("dc2.corp.test"));
    ASSERT_TRUE(record.smartCardServices);
    EXPECT_THAT(*record.smartCardServices, ElementsAre("sshd"));
    EXPECT_TRUE(record.sssdRan);
}

TEST(RecordTest, WhatIsReadIsWrittenAgain) { EXPECT_EQ(FormatRecord(ParseRecord(kSample)), kSample); }

TEST(RecordTest, AnEmptySetOfServicesIsNotNoSet) {
    Record record;
    EXPECT_FALSE(ParseRecord(FormatRecord(record)).smartCardServices);
    record.smartCardServices.emplace();
    const auto services = ParseRecord(FormatRecord(record)).smartCardServices;
    ASSERT_TRUE(services);
    EXPECT_THAT(*services, IsEmpty());
}

TEST(RecordTest, DamagedLinesCountAsAbsent) {
    const Record record = ParseRecord(
        "domain corp.test\nrealm CORP TEST\ncontroller a,b\ncontroller dc1\nsmart-card ../x\n\nxyz\n"
        "controller\n domain x\n");
    EXPECT_FALSE(record.domain) << "the realm is malformed, the rest is missing";
    EXPECT_THAT(record.controllers, ElementsAre("dc1"));
    EXPECT_THAT(record.smartCardServices.value(), IsEmpty());
}

TEST(RecordTest, ADomainsMalformedNetbiosNameCountsAsAbsent) {
    for (const char* const name : {"C\x01ORP", "CORP TEST", "", "LONGERTHANFIFTEEN"}) {
        std::string text = kSample;
        text.replace(text.find("netbios CORP"), 12, std::string("netbios ") + name);
        EXPECT_FALSE(ParseRecord(text).domain) << name;
    }
}

// Every cut of the file, as a disk that lost its end would show it.
TEST(RecordTest, EveryCutIsReadWithoutInvention) {
    const std::string sample = kSample;
    for (std::size_t size = 0; size <= sample.size(); ++size) {
        const Record record = ParseRecord(sample.substr(0, size));
        if (record.domain) {
            EXPECT_EQ(record.domain->machineAccount, "NODE01$") << size;
        }
        EXPECT_EQ(record.domain.has_value() && size < sample.find("keytab"), false) << size;
    }
}

struct SettingsRow {
    const char* text;
    std::vector<std::string> domains;
    std::vector<std::string> services;  // {"unset"} for none
};

TEST(SssdSettingsTest, SectionsAndServices) {
    const SettingsRow rows[] = {
        {"", {}, {"unset"}},
        {"[sssd]\nservices = nss,pam\n", {}, {"nss", "pam"}},
        {"services = nss\n", {}, {"unset"}},
        {"[nss]\nservices = nss\n", {}, {"unset"}},
        {"[sssd]\n#services = nss\nservices=\n", {}, {}},
        {"[domain/a.test]\n[domain/b.test]\r\n", {"a.test", "b.test"}, {"unset"}},
        {"[sssd]\nservices = nss\nservices = pam\n", {}, {"pam"}},
        {"[domain/a.test\n", {}, {"unset"}},
        {"[]\n[\n]\n=\n", {}, {"unset"}},
    };
    for (const auto& row : rows) {
        SssdSettings settings;
        AddSssdSettings(row.text, settings);
        EXPECT_EQ(settings.domains, row.domains) << row.text;
        EXPECT_EQ(settings.services.value_or(std::vector<std::string>{"unset"}), row.services) << row.text;
    }
}

}  // namespace
}  // namespace nimbrel::ad::test
