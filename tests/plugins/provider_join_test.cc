// Joins are tried again, with pauses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "authentication/exceptions.h"
#include "authentication/provider.h"
#include "plugins/calls.h"
#include "plugins/misbehaving/changing_slot.h"
#include "plugins/misbehaving/scripted.h"
#include "plugins/provider_root.h"
#include "support/system_log.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kLogonFailure = 1326;
constexpr std::uint32_t kNotYet = 0xFFFF0000;
const Credentials kUser{"user", "secret"};

std::vector<LogRecord> AttemptLines(int attempts) {
    std::vector<LogRecord> lines;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        lines.push_back({LOG_INFO, "Adding host to domain: Attempt (" + std::to_string(attempt) + "/4)"});
    }
    return lines;
}

std::string Installed(const std::string& name) {
    RemoveProviders();
    InstallProvider(name);
    Sleeps() = {};
    return name;
}

// Both joins obey one rule; the table runs it on each.
class ProviderJoin : public ::testing::TestWithParam<int> {
 protected:
    ProviderJoin() : plugin(Installed("scripted")), provider("scripted") { plugin->reset(); }

    void Join() {
        if (GetParam() == kJoinDomain) {
            provider.JoinDomain("corp.test", "", kUser);
        } else {
            provider.JoinDomainWithMachineAccount({"", "CORP", "corp.test", "S-1-5-21-1-2-3"},
                                                  {"node01", "corp.test", "", "a", "b"});
        }
    }
    void Answer(const std::vector<std::uint32_t>& statuses) {
        _statuses = statuses;
        plugin->setStatuses(GetParam(), _statuses.data(), static_cast<int>(_statuses.size()));
    }
    // Only a join with a machine account writes its attempts.
    std::vector<LogRecord> Lines(int attempts) { return AttemptLines(GetParam() == kJoinDomain ? 0 : attempts); }
    int Calls() { return plugin->calls(GetParam()); }

    SystemLog log;
    Plugin<ScriptedControl> plugin;
    const ActiveDirectoryProvider provider;

 private:
    std::vector<std::uint32_t> _statuses;
};

INSTANTIATE_TEST_SUITE_P(Joins, ProviderJoin, ::testing::Values(kJoinDomain, kJoinDomainWithMachineAccount),
                         [](const auto& row) {
                             return row.param == kJoinDomain ? "WithCredentials" : "WithMachineAccount";
                         });

TEST_P(ProviderJoin, ASuccessIsOneCallWithoutAPause) {
    Join();
    EXPECT_EQ(Calls(), 1);
    EXPECT_THAT(Sleeps().seconds, IsEmpty());
    EXPECT_EQ(log.Take(), Lines(1));
}

TEST_P(ProviderJoin, ALogonFailureEachTimeTakesFourCallsAndFourPauses) {
    Answer({kLogonFailure});
    EXPECT_THROW(Join(), LogonFailureException);
    EXPECT_EQ(Calls(), 4);
    EXPECT_THAT(Sleeps().seconds, ElementsAre(30u, 30u, 30u, 30u));
    EXPECT_EQ(log.Take(), Lines(4));
}

TEST_P(ProviderJoin, TheOtherRetryableStatusDoesToo) {
    Answer({kNotYet});
    try {
        Join();
        ADD_FAILURE() << "joined";
    } catch (const UnknownException& error) {
        EXPECT_EQ(error.GetCode(), kNotYet);
        EXPECT_STREQ(error.what(), "Exception 0xffff0000: Unknown exception");
    }
    EXPECT_EQ(Calls(), 4);
    EXPECT_THAT(Sleeps().seconds, ElementsAre(30u, 30u, 30u, 30u));
    EXPECT_EQ(log.Take(), Lines(4));
}

TEST_P(ProviderJoin, EndsWithTheFirstSuccess) {
    Answer({kLogonFailure, kNotYet, 0});
    Join();
    EXPECT_EQ(Calls(), 3);
    EXPECT_THAT(Sleeps().seconds, ElementsAre(30u, 30u));
    EXPECT_EQ(log.Take(), Lines(3));
}

TEST_P(ProviderJoin, TheFourthAttemptMaySucceed) {
    Answer({kNotYet, kNotYet, kNotYet, 0});
    Join();
    EXPECT_EQ(Calls(), 4);
    EXPECT_THAT(Sleeps().seconds, ElementsAre(30u, 30u, 30u));
}

TEST_P(ProviderJoin, TheLastStatusIsReported) {
    Answer({kNotYet, kNotYet, kNotYet, kLogonFailure});
    EXPECT_THROW(Join(), LogonFailureException);
}

TEST_P(ProviderJoin, AnyOtherStatusEndsItAtOnce) {
    for (std::uint32_t status :
         {2u, 5u, 86u, 1311u, 1325u, 1327u, 1355u, 2691u, 0xFFFEFFFFu, 0xFFFF0001u, 0xFFFFFFFFu}) {
        const int before = Calls();
        Answer({status});
        EXPECT_THROW(Join(), Exception) << status;
        EXPECT_EQ(Calls() - before, 1) << status;
        EXPECT_THAT(Sleeps().seconds, IsEmpty()) << status;
        EXPECT_EQ(log.Take(), Lines(1)) << status;
    }
}

TEST_P(ProviderJoin, AnotherStatusAfterARetryEndsIt) {
    Answer({kLogonFailure, 5});
    EXPECT_THROW(Join(), AccessDeniedException);
    EXPECT_EQ(Calls(), 2);
    EXPECT_THAT(Sleeps().seconds, ElementsAre(30u));
    EXPECT_EQ(log.Take(), Lines(2));
}

TEST_P(ProviderJoin, ASignalDoesNotShortenThePause) {
    Answer({kLogonFailure, 0});
    Sleeps().rests = {12, 1, 0};
    Join();
    EXPECT_THAT(Sleeps().seconds, ElementsAre(30u, 12u, 1u));
}

TEST_P(ProviderJoin, AMissingOperationIsNeitherTriedNorLogged) {
    plugin->setPresent(GetParam(), false);
    EXPECT_THROW(Join(), CallNotImplementedException);
    EXPECT_THAT(Sleeps().seconds, IsEmpty());
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(ProviderJoinSlot, IsReadAgainBeforeEachRetry) {
    const Plugin<ChangingSlotControl> plugin(Installed("changing_slot"));
    const ActiveDirectoryProvider provider("changing_slot");
    provider.JoinDomain("corp.test", "", kUser);
    EXPECT_EQ(plugin->firstCalls(), 2);
    EXPECT_EQ(plugin->secondCalls(), 1);
    EXPECT_THAT(Sleeps().seconds, ElementsAre(30u, 30u));
}

}  // namespace
}  // namespace nimbrel::authentication::test
