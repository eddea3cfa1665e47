// Texts that are read line by line while memory runs out: whoever reads one gets all of it or an exception, because what
// is read is written back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "adlogins/log_ins.h"
#include "crash/allocations.h"
#include "plugins/ad/logins/src/record.h"
#include "plugins/embedded/logins/accounts.h"
#include "services/apxd/config.h"
#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/record_text.h"

namespace nimbrel::crash {
namespace {

struct Reading {
    const char* name;
    std::function<std::string()> run;
};

std::string ReadLogInsRecord() {
    std::string text =
        "domain corp.test\nrealm CORP.TEST\nnetbios CORP\nhost node01.corp.test\naccount NODE01$\n"
        "keytab /etc/krb5.keytab\n";
    for (const char* const name : {"one", "two", "three"}) {
        text += "controller " + std::string(name) + ".a-name-that-is-longer-than-a-small-string.corp.test\n";
    }
    return ad::logins::FormatRecord(ad::logins::ParseRecord(text));
}

std::string ReadJournalRecord() {
    return logins::RecordText(
        logins::ParseRecord("nimauth-logins 1\naction enable\nmechanism pam-auth-update\n"
                            "path /etc/pam.d/common-account\npath /etc/pam.d/common-password\n"
                            "path /etc/pam.d/common-session-noninteractive\npath /etc/nsswitch.conf\n"));
}

std::string EditTemplate() {
    return logins::WithNssServiceInTemplate(
        "passwd: files systemd\nshadow: files and a service with a long name\ngroup: files systemd {exclude if x}\n"
        "hosts: files dns myhostname and others\nservices: files and a service with a long name\n",
        {.pamModule = "pam_sss.so", .nssService = "sss"});
}

std::string ReadServiceConfig() {
    const apxd::Config config = apxd::ParseConfig(
        "certificate = /c\nkey = /k\ndomain = corp.test\nallow = 192.0.2.0/24\npre-staged = node07\n"
        "# a line that is longer than all those before it: what is allowed in the end must not be less\n"
        "allow = 198.51.100.0/24\npre-staged = node08\n",
        "apxd.conf");
    std::string text = config.certificateFile + '\n' + config.keyFile + '\n' + config.domain + '\n';
    text += std::to_string(config.allowed.size()) + '\n';
    for (const std::string& name : config.preStaged) text += name + '\n';
    return text;
}

std::string ReadPublishedAccounts() {
    std::string text;
    for (const char* const name : {"alice", "bob", "carol"}) {
        text += std::string(name) + "-of-a-name-longer-than-a-small-string:1900000007\n";
    }
    return embedded::PublishedText(embedded::ParsePublished(text));
}

class ExhaustedMemory : public ::testing::TestWithParam<Reading> {};

TEST_P(ExhaustedMemory, LosesNoLine) {
    FailAllocation(0);
    const std::string whole = GetParam().run();
    const long count = StopAllocations();
    ASSERT_GT(count, 0);
    int failed = 0;
    for (long number = 1; number <= count; ++number) {
        FailAllocation(number);
        try {
            const std::string text = GetParam().run();
            StopAllocations();
            EXPECT_EQ(text, whole) << "allocation " << number;
        } catch (const std::bad_alloc&) {
            StopAllocations();
            ++failed;
        }
    }
    EXPECT_GT(failed, 0);
}

std::string NameOfRow(const ::testing::TestParamInfo<Reading>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Texts, ExhaustedMemory,
                         ::testing::Values(Reading{"LogInsRecord", ReadLogInsRecord},
                                           Reading{"JournalRecord", ReadJournalRecord},
                                           Reading{"PublishedAccounts", ReadPublishedAccounts},
                                           Reading{"ServiceConfig", ReadServiceConfig},
                                           Reading{"Template", EditTemplate}),
                         NameOfRow);

}  // namespace
}  // namespace nimbrel::crash
