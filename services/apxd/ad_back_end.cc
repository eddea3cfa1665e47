#include "services/apxd/ad_back_end.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

#include "addirectory/account_service.h"

namespace nimbrel::apxd {
namespace {

using Clock = std::chrono::steady_clock;

// A domain changes none of its names while hosts join it; each join asks for them four times.
constexpr std::chrono::minutes kDomainKeeps(5);

// Both sides speak of the same numbers.
template <typename Call>
auto Translated(const Call& call) {
    try {
        return call();
    } catch (const ad::AdError& error) {
        throw Refusal(error.Status(), error.what());
    }
}

HandOver ToHandOver(ad::HandedOutAccount account) {
    return {std::move(account.accountName), SecretText(std::string(account.oneTimeSecret.View()))};
}

class AdBackEnd : public BackEnd {
 public:
    AdBackEnd(ad::Settings settings, ad::ServiceAccount account) : _service(std::move(settings), std::move(account)) {}

    DomainFacts Domain() override {
        const std::lock_guard<std::mutex> lock(_lock);
        if (!_domain || Clock::now() >= _domainEnds) {
            const ad::ServiceDomain domain = Translated([this] { return _service.Domain(); });
            _domain = DomainFacts{domain.netbiosName, domain.dnsName, domain.sid};
            _domainEnds = Clock::now() + kDomainKeeps;
        }
        return *_domain;
    }
    HandOver Create(const NewAccount& account) override {
        return Translated(
            [&] { return ToHandOver(_service.Create(account.name, account.organizationalUnit, account.mark)); });
    }
    HandOver Renew(const std::string& name, const std::string& mark) override {
        return Translated([&] { return ToHandOver(_service.Renew(name, mark)); });
    }
    HandOver TakeOver(const std::string& name, const std::string& mark) override {
        return Translated([&] { return ToHandOver(_service.TakeOver(name, mark)); });
    }

 private:
    const ad::AccountService _service;
    std::mutex _lock;  // guards the two below; held while they are asked for, so that many hosts ask once
    std::optional<DomainFacts> _domain;
    Clock::time_point _domainEnds;
};

}  // namespace

std::unique_ptr<BackEnd> MakeAdBackEnd(const std::string& domain, const std::string& principal,
                                       const std::string& keytab) {
    return std::make_unique<AdBackEnd>(Translated([] { return ad::Settings::Load(); }),
                                       ad::ServiceAccount{domain, principal, keytab});
}

}  // namespace nimbrel::apxd
