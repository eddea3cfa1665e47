#include "tools/nimauthctl/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "authentication/exceptions.h"
#include "embeddeddirectory/directory_error.h"
#include "orbconfigstore/config_store.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

template <typename Error>
Failure Describe(const Error& error) {
    try {
        throw error;
    } catch (...) {
        return DescribeCurrentException();
    }
}

Failure DescribeStatus(unsigned status) {
    try {
        authentication::ThrowMappedException(status);
    } catch (...) {
        return DescribeCurrentException();
    }
}

TEST(FailureTest, CodedExceptionKeepsItsTextAndGetsAdvice) {
    const Failure failure = DescribeStatus(1326);
    EXPECT_EQ("LogonFailureException", failure.exception);
    EXPECT_EQ(1326u, failure.code);
    EXPECT_EQ(authentication::LogonFailureException().what(), failure.message);
    EXPECT_EQ("the user name or the password is wrong", failure.cause);
    EXPECT_NE("", failure.remedy);
    EXPECT_EQ(ExitCode::Authentication, failure.exitCode);
}

TEST(FailureTest, UnmappedStatusIsExplainedByItsNumber) {
    const Failure failure = DescribeStatus(2692);
    EXPECT_EQ("UnknownException", failure.exception);
    EXPECT_EQ("Exception 0x00000a84: Unknown exception", failure.message);
    EXPECT_EQ(ExitCode::NotJoined, failure.exitCode);
}

TEST(FailureTest, StatusThatNobodyKnowsSaysSo) {
    const Failure failure = DescribeStatus(4660);
    EXPECT_EQ(4660u, failure.code);
    EXPECT_THAT(failure.cause, HasSubstr("no explanation"));
    EXPECT_NE("", failure.remedy);
    EXPECT_EQ(ExitCode::Failure, failure.exitCode);
}

TEST(FailureTest, PlainExceptionIsExplainedByItsClass) {
    const Failure failure = Describe(authentication::InvalidHostNameException("hostname is in blacklist"));
    EXPECT_EQ("InvalidHostNameException", failure.exception);
    EXPECT_EQ(0u, failure.code);
    EXPECT_EQ("The current hostname is invalid: hostname is in blacklist", failure.message);
    EXPECT_EQ(ExitCode::HostName, failure.exitCode);
}

TEST(FailureTest, PermissionIsToldByTheSystemsText) {
    EXPECT_EQ(ExitCode::Permission,
              Describe(authentication::IOError("Unable to open '/x': Permission denied")).exitCode);
    EXPECT_EQ(ExitCode::Permission,
              Describe(OrbConfigStore::ConfigStoreException("Cannot write: Read-only file system")).exitCode);
    EXPECT_EQ(ExitCode::Permission, Describe(HostMgmt::Lib::HostMgmtException("x: Operation not permitted")).exitCode);
    EXPECT_EQ(ExitCode::Failure, Describe(authentication::IOError("Unable to open '/x': No such file")).exitCode);
}

TEST(FailureTest, PlatformExceptionsAreExplained) {
    const Failure failure = Describe(OrbConfigStore::ConfigStoreException("disk I/O error"));
    EXPECT_EQ("ConfigStoreException", failure.exception);
    EXPECT_THAT(failure.remedy,
                AllOf(HasSubstr("configstore.db"), HasSubstr("first remove it and configstore.db-* beside it")));
}

struct RemedyCase {
    const char* key;
    const char* remedy;
};

TEST(FailureTest, MissingKeyIsNamedInTheLineThatIsToBeAdded) {
    constexpr RemedyCase kCases[] = {{"provider", "provider = \"embedded\" to provider.conf"},
                                     {"provider", "provider = \"apxhttps\" to apxprovider.conf"},
                                     {"remote-authentication-store", "remote-authentication-store = \"None\""},
                                     {"other", "KEY = \"VALUE\""}};
    for (const RemedyCase& row : kCases) {
        EXPECT_THAT(Describe(authentication::InvalidKeyException(row.key)).remedy, HasSubstr(row.remedy)) << row.key;
    }
}

TEST(FailureTest, PluginThatCannotBeLoadedIsNotJustAFile) {
    EXPECT_THAT(Describe(authentication::IOError("Unable to open APX provider: no such file")).cause,
                HasSubstr("/etc/nimbrel/nimauth/apxprovider.conf"));
    EXPECT_THAT(Describe(authentication::IOError("Unable to open provider: no such file")).cause,
                HasSubstr("/etc/nimbrel/nimauth/provider.conf"));
    EXPECT_THAT(Describe(authentication::IOError("Unable to open '/x': no such file")).cause, HasSubstr("a file"));
}

TEST(FailureTest, RefusalOfTheEmbeddedDirectoryIsNoNetworkFailure) {
    const Failure failure = Describe(embedded::DirectoryError(embedded::kStatusNoSuchDomain, "no 'x'"));
    EXPECT_EQ("DirectoryError", failure.exception);
    EXPECT_EQ(1355u, failure.code);
    EXPECT_EQ("no 'x'", failure.message);
    EXPECT_EQ(ExitCode::Failure, failure.exitCode);
    EXPECT_THAT(failure.cause, HasSubstr("embedded directory"));
}

TEST(FailureTest, StatusThatNoEditHasFallsBackToTheCommonTable) {
    EXPECT_EQ(ExitCode::Authentication, Describe(embedded::DirectoryError(1326, "no")).exitCode);
}

TEST(FailureTest, StatusOfAProxySpeaksOfTheProxy) {
    for (const unsigned status : {5u, 1225u, 1229u, 1316u, 1326u, 1355u, 1398u, 10060u}) {
        const Failure failure = OfProxy(DescribeStatus(status));
        EXPECT_EQ(DescribeStatus(status).message, failure.message);
        EXPECT_EQ(DescribeStatus(status).exitCode, failure.exitCode) << status;
        EXPECT_THAT(failure.cause + failure.remedy, HasSubstr("proxy")) << status;
        EXPECT_THAT(failure.cause, Not(HasSubstr("the user"))) << status;
    }
}

TEST(FailureTest, WhatAProxyHasNoPartInStaysAsItIs) {
    EXPECT_EQ(DescribeStatus(2691), OfProxy(DescribeStatus(2691)));
    const Failure failure = Describe(authentication::InvalidHostNameException("x"));
    EXPECT_EQ(failure, OfProxy(failure));
}

TEST(FailureTest, UsageAndToolErrorsCarryTheirOwnAdvice) {
    const Failure usage = Describe(UsageError("bad", "do better"));
    EXPECT_EQ("UsageError", usage.exception);
    EXPECT_EQ("do better", usage.remedy);
    EXPECT_EQ(ExitCode::Usage, usage.exitCode);
    const Failure tool = Describe(ToolError(ExitCode::OtherState, "m", "c", "r"));
    EXPECT_EQ(
        (Failure{
            .exception = "ToolError", .message = "m", .cause = "c", .remedy = "r", .exitCode = ExitCode::OtherState}),
        tool);
}

TEST(FailureTest, ForeignExceptionsAreNotSwallowed) {
    EXPECT_EQ("out of range", Describe(std::out_of_range("out of range")).message);
    EXPECT_EQ("out_of_range", Describe(std::out_of_range("out of range")).exception);
    EXPECT_EQ("free memory and try again", Describe(std::bad_alloc()).remedy);
    EXPECT_EQ("a failure of unknown kind", Describe(5).message);
}

}  // namespace
}  // namespace nimbrel::nimauthctl
