#include <utility>

#include "systemconfiguration/names.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/nss_names.h"

namespace SystemConfiguration {
namespace {

constexpr std::string_view kInvalidDatabase = "Invalid Database: ";

NSSDatabase::Database ParseDatabase(const std::string& name) {
    if (const auto* const entry = FindName(kDatabaseNames, name)) return entry->value;
    throw InvalidDatabaseException(std::string(kInvalidDatabase) + name);
}

}  // namespace

InvalidDatabaseException::InvalidDatabaseException(const std::string& message) : _message(message) {}
InvalidDatabaseException::~InvalidDatabaseException() = default;
const char* InvalidDatabaseException::what() const noexcept { return _message.c_str(); }

NSSDatabase::NSSDatabase(const std::string& name) : _value(ParseDatabase(name)) {}

NSSDatabase& NSSDatabase::operator=(Database value) {
    _value = value;
    return *this;
}

NSSDatabase& NSSDatabase::operator=(const std::string& name) {
    _value = ParseDatabase(name);
    return *this;
}

bool NSSDatabase::operator==(const std::string& name) const { return _value == ParseDatabase(name); }

NSSDatabase::operator std::string() const {
    const std::string_view name = FindValue(kDatabaseNames, _value);
    if (name.empty()) throw InvalidDatabaseException(AdvancedPrefix(kInvalidDatabase, _value));
    return std::string(name);
}

NSSService::NSSService(const std::string& module) : _module(module) {}

bool NSSService::operator==(const NSSService& other) const {
    return _module == other._module && _parameters == other._parameters;
}

std::deque<NSSService>& NSSConfiguration::operator[](NSSDatabase database) { return _databases[database]; }

}  // namespace SystemConfiguration
