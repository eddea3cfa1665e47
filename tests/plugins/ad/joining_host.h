// A host beside a small domain of the test's own.

#ifndef NIMBREL_TESTS_PLUGINS_AD_JOINING_HOST_H_
#define NIMBREL_TESTS_PLUGINS_AD_JOINING_HOST_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "addirectory/host.h"
#include "plugins/ad/domain/domain.h"
#include "sandbox.h"

namespace nimbrel::ad::test {

// Notes what it is told, and refuses it if it is to.
class NotingLogIns : public LogInSoftware {
 public:
    void Enable(const JoinedDomain& domain) override {
        if (refuses) throw AdError(kStatusAccessDenied, "refused");
        if (onEnable) onEnable();
        enabled = domain;
    }
    void Disable() override {
        if (refusesDisable) throw AdError(kStatusDiskFull, "refused");
        enabled.reset();
        services.clear();
    }
    void DisableDomain() override { enabled.reset(); }
    void SetPreferredControllers(const std::vector<std::string>&) override {}
    void SetSmartCardServices(const std::vector<std::string>& names) override { services = names; }
    std::vector<std::string> SmartCardServices() const override { return services; }

    std::optional<JoinedDomain> enabled;
    std::vector<std::string> services;
    bool refuses = false;
    bool refusesDisable = false;
    std::function<void()> onEnable;
};

inline std::string Utf16(const std::string& text) {
    std::string value;
    for (const char letter : text) value += std::string{letter, '\0'};
    return value;
}

class JoiningHost : public Sandbox {
 protected:
    JoiningHost() : settings(corp.HostSettings(Folder())) {}

    Host TheHost() { return Host(settings, logIns); }

    // The status; 0 when joined.
    std::uint32_t Join(const std::string& unit = "", const char* password = "Secret-1", const char* user = "admin1") {
        return StatusOf([&] { TheHost().Join("corp.test", "node01.corp.test", unit, {user, password}); });
    }
    // What the status's text says.
    std::string JoinText() {
        try {
            TheHost().Join("corp.test", "node01.corp.test", "", {"admin1", "Secret-1"});
        } catch (const AdError& error) {
            return error.what();
        }
        return "joined";
    }
    std::uint32_t Leave() {
        return StatusOf([&] { TheHost().Part(UserCredentials{"admin1", "Secret-1"}); });
    }
    std::optional<Entry> Account() { return corp.entries.Account("NODE01$"); }
    bool HasTraces() const {
        return std::filesystem::exists(settings.keytab) || std::filesystem::exists(settings.membership) ||
               logIns.enabled.has_value();
    }
    // Makes an account that is there before the join.
    void MakeAccount(const std::map<std::string, Values>& attributes = {}) {
        std::map<std::string, Values> all = {
            {"objectClass", {"top", "computer"}}, {"sAMAccountName", {"NODE01$"}}, {"userAccountControl", {"4096"}}};
        for (const auto& [name, values] : attributes) all[name] = values;
        corp.entries.Put(kAccount, all);
    }
    // Requests of the kind that begin so are answered with the result.
    void Refuse(const std::string& operation, const Result& result, int times = 1'000'000) {
        corp.controller.SetRefuse([=](const std::string& asked, const std::string&) mutable {
            return asked == operation && times-- > 0 ? std::optional(result) : std::nullopt;
        });
    }
    void Behave(const std::string& operation, Behaviour behaviour, int times = 1'000'000) {
        corp.controller.SetBehave([=](const std::string& asked, const std::string&) mutable {
            return asked == operation && times-- > 0 ? behaviour : Behaviour::Answers;
        });
    }

    static constexpr char kAccount[] = "CN=NODE01,CN=Computers,DC=corp,DC=test";
    static constexpr int kInsufficientAccess = 50;

    TestDomain corp;
    Settings settings;
    NotingLogIns logIns;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_JOINING_HOST_H_
