#include <ostream>
#include <string>
#include <string_view>

#include "systemconfiguration/pam_policy.h"
#include "systemconfiguration/stream_access.h"

namespace SystemConfiguration {

// Adds what an entry is written as; up to the control's own text if the control has none.
void AppendEntry(std::string& line, const PAMEntry& entry) {
    if (entry._control._value == PAMControl::Bracketed) {
        line.append(entry._control._text);
    } else {
        line.append(static_cast<std::string>(entry._control));
    }
    line.append(1, '\t').append(entry._module).append(1, '\t');
    for (const std::string& parameter : entry._parameters) line.append(parameter).append(1, ' ');
}

std::ostream& operator<<(std::ostream& stream, const PAMEntry& entry) {
    stream << static_cast<std::string>(entry._control) << '\t' << entry._module << '\t';
    for (const std::string& parameter : entry._parameters) stream << parameter << ' ';
    return stream;
}

namespace {

// A file's buffer hands a piece of 1,024 characters and more to writev(2) at once. Smaller pieces gather in it, so that
// the flush makes one write(2) of a long line, too.
constexpr std::size_t kLargestPiece = 1000;

void WriteText(std::ostream& stream, std::string_view text) {
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, kLargestPiece);
        stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        text.remove_prefix(piece.size());
    }
}

// One line with one flush. What precedes a control that has no text is written all the same.
void WriteRule(std::ostream& stream, const std::string& facility, const PAMEntry& entry, std::string& line) {
    line.assign(facility).append(1, '\t');
    try {
        AppendEntry(line, entry);
    } catch (const InvalidControlException&) {
        WriteText(stream, line);
        throw;
    }
    line.append(1, '\n');
    WriteText(stream, line);
    stream.flush();
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
