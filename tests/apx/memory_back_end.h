// A directory in memory, for the service's own tests: it passes the same contract suite as the real ones.

#ifndef TESTS_APX_MEMORY_BACK_END_H_
#define TESTS_APX_MEMORY_BACK_END_H_

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "services/apxd/back_end.h"
#include "services/apxd/names.h"

namespace nimbrel::apxd::test {

class MemoryBackEnd : public BackEnd {
 public:
    struct Account {
        std::string secret;
        std::string mark;
        std::string unit;
        bool waiting = true;  // no host has used the secret
    };

    DomainFacts Domain() override { return {"CORP", "corp.test", "S-1-5-21-1-2-3"}; }

    void RequireReachable() override {
        if (!reachable) throw Unreachable("no controller answers");
    }
    HandOver Create(const NewAccount& account) override {
        const std::lock_guard<std::mutex> lock(mutex);
        if (beforeCreate) beforeCreate();
        if (!kit::IsComputerName(account.name)) throw Refusal(kInvalidComputerName, "malformed");
        if (account.organizationalUnit == "Nowhere") throw Refusal(kFileNotFound, "no such unit");
        if (accounts.count(account.name) != 0) throw Refusal(kAccountExists, "taken");
        accounts[account.name] = {NextSecret(), account.mark, account.organizationalUnit};
        if (afterCreate) afterCreate();
        return HandOverOf(account.name);
    }
    HandOver Renew(const std::string& name, const std::string& mark) override {
        const std::lock_guard<std::mutex> lock(mutex);
        Account& account = Require(name);
        if (!account.waiting || account.mark != mark) throw Refusal(kAccountExists, "in use");
        account.secret = NextSecret();
        return HandOverOf(name);
    }
    HandOver TakeOver(const std::string& name, const std::string& mark) override {
        const std::lock_guard<std::mutex> lock(mutex);
        if (beforeTakeOver) beforeTakeOver();
        Account& account = Require(name);
        if (!account.waiting) throw Refusal(kAccountExists, "in use");
        account.secret = NextSecret();
        account.mark = mark;
        return HandOverOf(name);
    }

    std::mutex mutex;  // guards the accounts
    std::map<std::string, Account> accounts;
    std::atomic<bool> reachable = true;
    std::function<void()> beforeCreate;
    std::function<void()> afterCreate;
    std::function<void()> beforeTakeOver;

 private:
    Account& Require(const std::string& name) {
        const auto found = accounts.find(name);
        if (found == accounts.end()) throw Refusal(kNoSuchAccount, "unknown");
        return found->second;
    }
    HandOver HandOverOf(const std::string& name) const {
        return {name + '$', SecretText(std::string(accounts.at(name).secret))};
    }
    std::string NextSecret() { return "a-secret-that-must-not-be-seen-" + std::to_string(++_secrets); }

    int _secrets = 0;
};

}  // namespace nimbrel::apxd::test

#endif  // TESTS_APX_MEMORY_BACK_END_H_
