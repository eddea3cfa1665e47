// How many connections whom are taken, and the lines about those that are not.

#include "services/apxd/connections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "services/apxd/service_log.h"

namespace nimbrel::apxd::test {
namespace {

constexpr char kTooManyOfOne[] = "too many connections of this client";
constexpr char kTooMany[] = "too many connections";
constexpr char kTooManyOutsiders[] = "too many connections of addresses that may not ask";

class ApxdConnections : public ::testing::Test {
 protected:
    static Visitor Allowed(const std::string& address) { return {Address::Parse(address), true}; }
    static Visitor Outsider(const std::string& address) { return {Address::Parse(address), false}; }
    // Numbers that are no sockets: no deadline passes here.
    void Open(const Visitor& visitor, int times = 1) {
        for (; times > 0; --times) connections.Open(++last, visitor);
    }

    // Why the client's next connection is turned away.
    const char* NextOf(const std::string& address) {
        EXPECT_EQ(connections.Refusal(Allowed(address)), nullptr);
        connections.Open(1, Allowed(address));
        const char* const why = connections.TurnedAway(1);
        connections.Close(1);
        return why;
    }

    Connections connections{std::chrono::hours(1), {5, 3}};
    int last = 1000000;
};

TEST_F(ApxdConnections, OneClientHasItsOwnNumber) {
    Open(Allowed("192.0.2.1"), 2);
    EXPECT_STREQ(NextOf("192.0.2.1"), nullptr);
    Open(Allowed("192.0.2.1"));
    EXPECT_STREQ(NextOf("192.0.2.1"), kTooManyOfOne);
    EXPECT_STREQ(NextOf("::ffff:192.0.2.1"), kTooManyOfOne);
    EXPECT_STREQ(NextOf("192.0.2.2"), nullptr);
    connections.Close(last);
    EXPECT_STREQ(NextOf("192.0.2.1"), nullptr);
}

TEST_F(ApxdConnections, OneClientOfIPv6IsANetworkOf64Bits) {
    Open(Allowed("2001:db8::1"));
    Open(Allowed("2001:db8::2"));
    Open(Allowed("2001:db8::ffff:ffff:ffff:ffff"));
    EXPECT_STREQ(NextOf("2001:db8::4"), kTooManyOfOne);
    EXPECT_STREQ(NextOf("2001:db8:0:1::1"), nullptr);
}

TEST_F(ApxdConnections, AllClientsTogetherHaveANumber) {
    Open(Allowed("192.0.2.1"), 2);
    Open(Allowed("192.0.2.2"), 2);
    EXPECT_STREQ(NextOf("192.0.2.3"), nullptr);
    Open(Allowed("192.0.2.3"));
    EXPECT_STREQ(NextOf("192.0.2.4"), kTooMany);
}

TEST_F(ApxdConnections, FewThatAreTooManyAreLetInToBeTold) {
    Open(Allowed("192.0.2.1"), 3 + 16);
    EXPECT_STREQ(connections.Refusal(Allowed("192.0.2.1")), kTooManyOfOne);
    EXPECT_STREQ(NextOf("192.0.2.2"), nullptr) << "they take no place from others";
    Open(Allowed("192.0.2.2"), 2);
    EXPECT_STREQ(connections.Refusal(Allowed("192.0.2.3")), kTooMany);
    EXPECT_EQ(connections.Refusal(Outsider("198.51.100.1")), nullptr);
    connections.Close(1000003 + 16);
    EXPECT_EQ(connections.Refusal(Allowed("192.0.2.3")), nullptr) << "to be told";
    connections.Close(1000001);
    Open(Allowed("192.0.2.1"));
    EXPECT_EQ(connections.TurnedAway(last), nullptr);
    EXPECT_STREQ(connections.TurnedAway(1000004), kTooManyOfOne) << "once and for all";
    EXPECT_EQ(connections.TurnedAway(-1), nullptr);
}

TEST_F(ApxdConnections, WhoMayNotAskTakesNoPlaceFromWhoMay) {
    for (int host = 1; host <= 4; ++host) {
        EXPECT_EQ(connections.Refusal(Outsider("198.51.100." + std::to_string(host))), nullptr);
        Open(Outsider("198.51.100." + std::to_string(host)), 4);
        EXPECT_STREQ(connections.Refusal(Outsider("198.51.100." + std::to_string(host))), kTooManyOfOne);
    }
    EXPECT_STREQ(connections.Refusal(Outsider("198.51.100.5")), kTooManyOutsiders);
    EXPECT_STREQ(connections.Refusal({}), kTooManyOutsiders) << "an address that cannot be told";
    EXPECT_EQ(connections.Refusal(Allowed("192.0.2.1")), nullptr);
    Open(Allowed("192.0.2.1"), 3);
    Open(Allowed("192.0.2.2"), 2);
    connections.Close(1000001);
    EXPECT_EQ(connections.Refusal(Outsider("198.51.100.5")), nullptr) << "nor the other way round";
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// Returns when it has been cut off.
void OpenOverdue(Connections& connections, const Visitor& visitor) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    connections.Open(ends[0], visitor);
    char byte = 0;
    EXPECT_EQ(read(ends[1], &byte, 1), 0);
    connections.Close(ends[0]);
    close(ends[0]);
    close(ends[1]);
}

TEST(ApxdCutConnections, OfWhoMayNotAskDoNotFillTheLog) {
    ::testing::internal::CaptureStderr();
    const auto begin = std::chrono::steady_clock::now();
    {
        Connections connections(std::chrono::seconds(0), {5, 3});
        for (int count = 0; count < 60; ++count) OpenOverdue(connections, {Address::Parse("198.51.100.1"), false});
        for (int count = 0; count < 30; ++count) OpenOverdue(connections, {Address::Parse("192.0.2.1"), true});
    }
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_GE(Count(log, "cut client=198.51.100.1 reason=\"too slow\""), 20U);
    EXPECT_LE(Count(log, "cut client=198.51.100.1 "), 20U + static_cast<std::size_t>(seconds));
    EXPECT_EQ(Count(log, "cut client=192.0.2.1 reason=\"too slow\"\n"), 30U);
}

TEST(ApxdLogBudget, TwentyLinesAtOnceThenOneEachSecond) {
    LogBudget budget;
    LogBudget::Time now = LogBudget::Time() + std::chrono::hours(1);
    for (int line = 0; line < 20; ++line) EXPECT_EQ(budget.Take(now), 0U);
    for (int line = 0; line < 7; ++line) EXPECT_EQ(budget.Take(now), std::nullopt);
    now += std::chrono::milliseconds(999);
    EXPECT_EQ(budget.Take(now), std::nullopt);
    now += std::chrono::milliseconds(2);
    EXPECT_EQ(budget.Take(now), 8U) << "left out before";
    EXPECT_EQ(budget.Take(now), std::nullopt);
    now += std::chrono::hours(1);
    EXPECT_EQ(budget.Take(now), 1U);
    for (int line = 1; line < 20; ++line) EXPECT_EQ(budget.Take(now), 0U);
    EXPECT_EQ(budget.Take(now), std::nullopt);
}

TEST(ApxdLogBudget, LineTellsHowManyAreMissing) {
    LogBudget budget;
    LogBudget::Time now;
    ::testing::internal::CaptureStderr();
    for (int count = 0; count < 25; ++count) {
        LogLine line("refused");
        budget.Write(line, now);
    }
    LogLine line("refused");
    budget.Write(line, now + std::chrono::seconds(2));
    std::string expected;
    for (int count = 0; count < 20; ++count) expected += "refused\n";
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), expected + "refused left-out=5\n");
}

}  // namespace
}  // namespace nimbrel::apxd::test
