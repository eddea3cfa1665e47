// The library's name-service switch reader and the literal one, in the shape of `OutcomeOf`.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_NSS_OUTCOME_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_NSS_OUTCOME_H_

#include <exception>
#include <istream>
#include <list>
#include <ostream>
#include <string>
#include <typeinfo>

#include "systemconfiguration/literal_nss.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/outcome.h"

// One service: "{files|NOTFOUND=return|}".
inline void AddService(std::string& text, const std::string& module, const std::list<std::string>& parameters) {
    text.append(1, '{').append(module).append(1, '|');
    for (const std::string& parameter : parameters) text.append(parameter).append(1, '|');
    text.append(1, '}');
}

class LibraryNssReader {
 public:
    void Read(std::istream& stream) { stream >> _configuration; }
    void Write(std::ostream& stream) const { stream << _configuration; }

    // For each database that has services its number, a colon, and the services.
    std::string Model() {
        using namespace SystemConfiguration;
        std::string text;
        for (int value = NSSDatabase::Passwd; value <= NSSDatabase::Aliases; ++value) {
            std::deque<NSSService>& services = _configuration[static_cast<NSSDatabase::Database>(value)];
            if (services.empty()) continue;
            text.append(std::to_string(value)).append(1, ':');
            for (NSSService& service : services) AddService(text, service.module(), service.parameters());
        }
        return text;
    }

    static std::string ErrorClass(const std::exception& error) { return std::string(typeid(error).name()) + ": "; }

 private:
    SystemConfiguration::NSSConfiguration _configuration;
};

class LiteralNssReader {
 public:
    void Read(std::istream& stream) { literal_nss::ReadConfiguration(stream, _configuration); }
    void Write(std::ostream& stream) const { literal_nss::WriteConfiguration(stream, _configuration); }

    std::string Model() const {
        std::string text;
        for (const auto& [database, services] : _configuration) {
            text.append(std::to_string(database)).append(1, ':');
            for (const literal_nss::Service& service : services) AddService(text, service.module, service.parameters);
        }
        return text;
    }

    static std::string ErrorClass(const std::exception& error) { return std::string(typeid(error).name()) + ": "; }

 private:
    literal_nss::Configuration _configuration;
};

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_NSS_OUTCOME_H_
