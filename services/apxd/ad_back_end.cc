#include "services/apxd/ad_back_end.h"

#include <utility>

#include "addirectory/account_service.h"
#include "services/apxd/known_domain.h"

namespace nimbrel::apxd {
namespace {

// Both sides speak of the same numbers.
template <typename Call>
auto Translated(const Call& call) {
    try {
        return call();
    } catch (const ad::UnreachableError& error) {
        throw Unreachable(error.what());
    } catch (const ad::UnchangedError& error) {
        throw NothingChanged(error.Status(), error.what());
    } catch (const ad::AdError& error) {
        throw Refusal(error.Status(), error.what());
    }
}

HandOver ToHandOver(ad::HandedOutAccount account) {
    return {std::move(account.accountName), SecretText(std::string(account.oneTimeSecret.View()))};
}

class AdBackEnd : public BackEnd {
 public:
    AdBackEnd(ad::Settings settings, ad::ServiceAccount account)
        : _service(std::move(settings), std::move(account)),
          _domain([this] { return AskForDomain(); }, KnownDomain::Clock::now) {
        Translated([this] { _service.RequireKey(); });
    }

    DomainFacts Domain() override { return _domain.Facts(); }
    void RequireReachable() override { _domain.RequireReachable(); }
    HandOver Create(const NewAccount& account) override {
        return Asked([&] { return _service.Create(account.name, account.organizationalUnit, account.mark); });
    }
    HandOver Renew(const std::string& name, const std::string& mark) override {
        return Asked([&] { return _service.Renew(name, mark); });
    }
    HandOver TakeOver(const std::string& name, const std::string& mark) override {
        return Asked([&] { return _service.TakeOver(name, mark); });
    }

 private:
    DomainFacts AskForDomain() const {
        const ad::ServiceDomain domain = Translated([this] { return _service.Domain(); });
        return {domain.netbiosName, domain.dnsName, domain.sid};
    }

    // Clients that wait for the same account ask one after the other: each for itself, but not each for as long as a
    // directory that does not answer takes.
    template <typename Call>
    HandOver Asked(const Call& call) {
        _domain.RequireReachable();
        try {
            return ToHandOver(Translated(call));
        } catch (const Unreachable& refusal) {
            _domain.NoteUnreachable(refusal.what());
            throw;
        }
    }

    const ad::AccountService _service;
    KnownDomain _domain;
};

}  // namespace

std::unique_ptr<BackEnd> MakeAdBackEnd(const std::string& domain, const std::string& principal,
                                       const std::string& keytab) {
    return std::make_unique<AdBackEnd>(Translated([] { return ad::Settings::Load(); }),
                                       ad::ServiceAccount{domain, principal, keytab});
}

}  // namespace nimbrel::apxd
