// Which texts are IPv4 addresses.

#include <gtest/gtest.h>

#include <string>

#include "hostmgmt/network.h"

namespace {

using HostMgmt::Lib::HostMgmtException;
using HostMgmt::Network::IpConfig;
using HostMgmt::Network::Ipv4Address;

TEST(Ipv4Address, StrictDottedQuadsAreValid) {
    for (const std::string text : {"0.0.0.0", "192.0.2.10", "255.255.255.255", "1.2.3.4"}) {
        EXPECT_TRUE(Ipv4Address::IsValidAddress(text)) << text;
        EXPECT_EQ(Ipv4Address(text).GetStringAddress(), text);
    }
}

TEST(Ipv4Address, AnythingElseIsNot) {
    for (const std::string text :
         {"",           "192.0.2",     "192.0.2.",    "192.0.2.10.",       ".192.0.2.10",   "192.0.2.10.1",
          "256.0.0.1",  "192.0.2.-1",  "192.0.2.+1",  "192.0.2.010",       "01.2.3.4",      "0x7f.0.0.1",
          "3221225994", " 192.0.2.10", "192.0.2.10 ", "192.0.2.10\n",      "192.0.2.10/24", "192.0.2.10:443",
          "192.0.2.a",  "192..2.10",   "::1",         "::ffff:192.0.2.10", "node01",        "localhost"}) {
        EXPECT_FALSE(Ipv4Address::IsValidAddress(text)) << text;
        EXPECT_THROW(Ipv4Address{text}, HostMgmtException) << text;
    }
}

TEST(Ipv4Address, NulByteDoesNotEndTheText) {
    EXPECT_FALSE(Ipv4Address::IsValidAddress(std::string("192.0.2.10\0", 11)));
    EXPECT_FALSE(Ipv4Address::IsValidAddress(std::string("192.0.2.10\0.evil", 16)));
    EXPECT_FALSE(Ipv4Address::IsValidAddress(std::string("\0", 1)));
}

TEST(Ipv4Address, RefusalQuotesTheText) {
    try {
        Ipv4Address address("node01");
        ADD_FAILURE() << "accepted";
    } catch (const HostMgmtException& error) {
        EXPECT_STREQ(error.what(), "'node01' is not an IPv4 address");
    }
}

TEST(IpConfig, CarriesItsAddress) {
    EXPECT_EQ(IpConfig(Ipv4Address("192.0.2.10")).GetIpv4Address().GetStringAddress(), "192.0.2.10");
}

TEST(HostMgmtException, NullIsTheEmptyText) {
    EXPECT_STREQ(HostMgmtException(nullptr).what(), "");
    EXPECT_STREQ(HostMgmtException("text").what(), "text");
}

}  // namespace
