#include <ostream>
#include <string>

#include "systemconfiguration/nss_configuration.h"

namespace SystemConfiguration {

std::ostream& operator<<(std::ostream& stream, const NSSService& service) {
    stream << service._module;
    const char* separator = " [";
    for (const std::string& parameter : service._parameters) {
        stream << separator << parameter;
        separator = " ";
    }
    if (!service._parameters.empty()) stream << ']';
    return stream;
}

std::ostream& operator<<(std::ostream& stream, const NSSConfiguration& configuration) {
    for (const auto& [database, services] : configuration._databases) {
        stream << static_cast<std::string>(database) << ':';
        for (const NSSService& service : services) stream << ' ' << service;
        stream << std::endl;
    }
    return stream;
}

}  // namespace SystemConfiguration
