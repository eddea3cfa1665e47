#include <ostream>
#include <string>

#include "systemconfiguration/pam_policy.h"
#include "systemconfiguration/stream_access.h"

namespace SystemConfiguration {

// Adds what an entry is written as; up to the control's own text if the control has none.
void AppendEntry(std::string& line, const PAMEntry& entry) {
    line.append(static_cast<std::string>(entry._control)).append(1, '\t').append(entry._module).append(1, '\t');
    for (const std::string& parameter : entry._parameters) line.append(parameter).append(1, ' ');
}

std::ostream& operator<<(std::ostream& stream, const PAMEntry& entry) {
    stream << static_cast<std::string>(entry._control) << '\t' << entry._module << '\t';
    for (const std::string& parameter : entry._parameters) stream << parameter << ' ';
    return stream;
}

namespace {

void WriteLine(std::ostream& stream, const std::string& line) {
    stream.write(line.data(), static_cast<std::streamsize>(line.size()));
    stream.flush();
}

// One line with one insertion and one flush. What precedes a control that has no text is written all the same.
void WriteRule(std::ostream& stream, const std::string& facility, const PAMEntry& entry, std::string& line) {
    line.assign(facility).append(1, '\t');
    try {
        AppendEntry(line, entry);
    } catch (const InvalidControlException&) {
        stream.write(line.data(), static_cast<std::streamsize>(line.size()));
        throw;
    }
    line.append(1, '\n');
    WriteLine(stream, line);
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const PAMStack& stack) {
    if (stack.empty()) return stream;
    if (!HasPlainSettings(stream)) {
        for (const PAMEntry& entry : stack) stream << stack.Facility() << '\t' << entry << std::endl;
        return stream;
    }
    const std::string facility = stack.Facility();
    std::string line;
    for (const PAMEntry& entry : stack) WriteRule(stream, facility, entry, line);
    return stream;
}

std::ostream& operator<<(std::ostream& stream, const PAMPolicy& policy) {
    stream << "#%PAM-1.0" << std::endl << std::endl;
    for (const auto& [facility, stack] : policy._stacks) stream << stack << std::endl;
    return stream;
}

}  // namespace SystemConfiguration
