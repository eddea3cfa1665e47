// What every back end of the proxy service promises. A program instantiates the suite with a `Maker` for its back end:
// a type with
//
//     BackEnd& BackEnd();
//     std::uint32_t Join(const std::string& accountName, const std::string& secret);   // as a host; 0 or the refusal
//     void PreStage(const std::string& name);                                          // as an administrator
//     void Delete(const std::string& name);
//     std::string Domain();  std::string Unit();                                       // a unit that is there

#ifndef TESTS_CONTRACT_PROXY_BACK_END_CONTRACT_H_
#define TESTS_CONTRACT_PROXY_BACK_END_CONTRACT_H_

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "services/apxd/back_end.h"

namespace nimbrel::apxd::test {

constexpr char kMark[] = "0123456789abcdef0123456789abcdef";
constexpr char kOtherMark[] = "fedcba9876543210fedcba9876543210";
constexpr std::uint32_t kLogonFailure = 1326;

// The refusal's status; 0 if `call` succeeds.
template <typename Call>
std::uint32_t StatusOf(const Call& call) {
    try {
        call();
        return 0;
    } catch (const Refusal& refusal) {
        return refusal.Status();
    }
}

template <typename Maker>
class ProxyBackEndContract : public ::testing::Test {
 protected:
    HandOver Create(const std::string& name = "NODE01", const std::string& unit = "", const std::string& mark = kMark) {
        return maker.BackEnd().Create({name, unit, mark});
    }
    std::uint32_t Join(const HandOver& account) {
        return maker.Join(account.accountName, account.oneTimeSecret.Text());
    }

    Maker maker;
};

TYPED_TEST_SUITE_P(ProxyBackEndContract);

TYPED_TEST_P(ProxyBackEndContract, DomainIsTold) {
    const DomainFacts domain = this->maker.BackEnd().Domain();
    EXPECT_EQ(domain.dnsName, this->maker.Domain());
    EXPECT_FALSE(domain.netbiosName.empty());
    EXPECT_EQ(domain.sid.substr(0, 9), "S-1-5-21-");
}

TYPED_TEST_P(ProxyBackEndContract, CreatedAccountIsJoinedOnce) {
    const HandOver account = this->Create();
    EXPECT_EQ(account.accountName, "NODE01$");
    EXPECT_EQ(this->maker.Join(account.accountName, "wrong"), kLogonFailure);
    EXPECT_EQ(this->Join(account), 0U);
    EXPECT_EQ(this->Join(account), kLogonFailure);
}

TYPED_TEST_P(ProxyBackEndContract, ExistingAccountIsNotCreatedAgain) {
    const HandOver first = this->Create();
    EXPECT_EQ(StatusOf([&] { this->Create("NODE01", "", kOtherMark); }), kAccountExists);
    EXPECT_EQ(this->Join(first), 0U);
    EXPECT_EQ(StatusOf([&] { this->Create(); }), kAccountExists);
}

TYPED_TEST_P(ProxyBackEndContract, UnitIsUsedOrRefused) {
    EXPECT_EQ(StatusOf([&] { this->Create("NODE01", this->maker.Unit()); }), 0U);
    EXPECT_EQ(StatusOf([&] { this->Create("NODE02", "Nowhere"); }), kFileNotFound);
    EXPECT_EQ(StatusOf([&] { this->maker.BackEnd().Renew("NODE02", kMark); }), kNoSuchAccount);
}

TYPED_TEST_P(ProxyBackEndContract, MalformedNameIsRefused) {
    EXPECT_EQ(StatusOf([&] { this->Create("a-name-of-more-than-15"); }), kInvalidComputerName);
}

TYPED_TEST_P(ProxyBackEndContract, RenewedSecretReplacesTheLostOne) {
    const HandOver lost = this->Create();
    const HandOver renewed = this->maker.BackEnd().Renew("NODE01", kMark);
    EXPECT_NE(lost.oneTimeSecret.Text(), renewed.oneTimeSecret.Text());
    EXPECT_EQ(this->Join(lost), kLogonFailure);
    const HandOver again = this->maker.BackEnd().Renew("NODE01", kMark);
    EXPECT_EQ(this->Join(renewed), kLogonFailure);
    EXPECT_EQ(this->Join(again), 0U);
}

TYPED_TEST_P(ProxyBackEndContract, RenewalNeedsTheMarkAndAnUnusedSecret) {
    const HandOver account = this->Create();
    EXPECT_EQ(StatusOf([&] { this->maker.BackEnd().Renew("NODE01", kOtherMark); }), kAccountExists);
    EXPECT_EQ(this->Join(account), 0U);
    EXPECT_EQ(StatusOf([&] { this->maker.BackEnd().Renew("NODE01", kMark); }), kAccountExists);
    this->maker.Delete("NODE01");
    EXPECT_EQ(StatusOf([&] { this->maker.BackEnd().Renew("NODE01", kMark); }), kNoSuchAccount);
}

TYPED_TEST_P(ProxyBackEndContract, AnAdministratorsAccountIsNotRenewed) {
    this->maker.PreStage("NODE07");
    EXPECT_EQ(StatusOf([&] { this->maker.BackEnd().Renew("NODE07", kMark); }), kAccountExists);
    EXPECT_EQ(StatusOf([&] { this->Create("NODE07"); }), kAccountExists);
}

TYPED_TEST_P(ProxyBackEndContract, PreStagedAccountIsTakenOverWhileUnused) {
    EXPECT_EQ(StatusOf([&] { this->maker.BackEnd().TakeOver("NODE07", kMark); }), kNoSuchAccount);
    this->maker.PreStage("NODE07");
    const HandOver lost = this->maker.BackEnd().TakeOver("NODE07", kMark);
    const HandOver account = this->maker.BackEnd().Renew("NODE07", kMark);
    EXPECT_EQ(account.accountName, "NODE07$");
    EXPECT_EQ(this->Join(lost), kLogonFailure);
    EXPECT_EQ(this->Join(account), 0U);
    EXPECT_EQ(StatusOf([&] { this->maker.BackEnd().TakeOver("NODE07", kOtherMark); }), kAccountExists);
}

TYPED_TEST_P(ProxyBackEndContract, OfTwoAtOnceOneGetsTheAccount) {
    std::atomic<int> created = 0;
    std::atomic<int> refused = 0;
    std::vector<std::thread> hosts;
    for (int host = 0; host < 4; ++host) {
        hosts.emplace_back([&, host] {
            const std::uint32_t status = StatusOf([&] { this->Create("NODE01", "", host == 0 ? kMark : kOtherMark); });
            if (status == 0) ++created;
            if (status == kAccountExists) ++refused;
        });
    }
    for (std::thread& host : hosts) host.join();
    EXPECT_EQ(created, 1);
    EXPECT_EQ(refused, 3);
}

REGISTER_TYPED_TEST_SUITE_P(ProxyBackEndContract, DomainIsTold, CreatedAccountIsJoinedOnce,
                            ExistingAccountIsNotCreatedAgain, UnitIsUsedOrRefused, MalformedNameIsRefused,
                            RenewedSecretReplacesTheLostOne, RenewalNeedsTheMarkAndAnUnusedSecret,
                            AnAdministratorsAccountIsNotRenewed, PreStagedAccountIsTakenOverWhileUnused,
                            OfTwoAtOnceOneGetsTheAccount);

}  // namespace nimbrel::apxd::test

#endif  // TESTS_CONTRACT_PROXY_BACK_END_CONTRACT_H_
