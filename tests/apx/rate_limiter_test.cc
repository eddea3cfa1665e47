// How often one client may ask, and how many clients are remembered.

#include "services/apxd/rate_limiter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstdint>

namespace nimbrel::apxd::test {
namespace {

Address ClientNumber(std::uint32_t number) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(0x0A000000U + number);
    return *Address::From(reinterpret_cast<const sockaddr&>(address));
}

class ApxdRateLimiter : public ::testing::Test {
 protected:
    bool Admit(const std::string& address) { return limiter.Admit(*Address::Parse(address), now); }
    // Each client asks once.
    void Fill() {
        for (std::uint32_t number = 0; number < RateLimiter::kMostClients; ++number) {
            ASSERT_TRUE(limiter.Admit(ClientNumber(number), now)) << number;
        }
    }

    RateLimiter limiter{60, 2};
    RateLimiter::Time now;
};

TEST_F(ApxdRateLimiter, AddressesOfOneIPv6NetworkAreOneClient) {
    EXPECT_TRUE(Admit("2001:db8::1"));
    EXPECT_TRUE(Admit("2001:db8::2"));
    EXPECT_FALSE(Admit("2001:db8::3"));
    EXPECT_TRUE(Admit("2001:db8:0:1::1"));
    EXPECT_TRUE(Admit("192.0.2.1"));
    EXPECT_TRUE(Admit("192.0.2.2"));
    EXPECT_TRUE(Admit("192.0.2.1"));
    EXPECT_FALSE(Admit("::ffff:192.0.2.1"));
}

TEST_F(ApxdRateLimiter, WhereAllAreBusyAnotherClientMustWait) {
    Fill();
    EXPECT_FALSE(Admit("192.0.2.1"));
    EXPECT_TRUE(limiter.Admit(ClientNumber(0), now)) << "is remembered";
}

TEST_F(ApxdRateLimiter, ClientsThatHaveBeenIdleMakeRoom) {
    Fill();
    now += std::chrono::milliseconds(999);
    EXPECT_FALSE(Admit("192.0.2.1"));
    EXPECT_TRUE(limiter.Admit(ClientNumber(0), now));
    now += std::chrono::milliseconds(1);
    EXPECT_TRUE(Admit("192.0.2.1"));
    EXPECT_TRUE(limiter.Admit(ClientNumber(0), now)) << "was busy and is remembered";
    EXPECT_FALSE(limiter.Admit(ClientNumber(0), now));
}

}  // namespace
}  // namespace nimbrel::apxd::test
