// The host's advanced options by their full names.

#ifndef NIMAUTHCTL_COMMANDS_ADVANCED_OPTIONS_H_
#define NIMAUTHCTL_COMMANDS_ADVANCED_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace nimbrel::nimauthctl {

struct AdvancedOptionValue {
    std::string type;          // "integer" or "string"
    std::int64_t integer = 0;  // the value of an integer
    std::string text;          // the value of a string
    std::string description;

    bool IsInteger() const { return type == "integer"; }
    std::string AsText() const { return IsInteger() ? std::to_string(integer) : text; }
};

// All of them, branch by branch.
std::vector<std::string> AdvancedOptionNames();

// These throw `ToolError` if there is no such option. Writing throws `UsageError` for a value that is not of its type.
AdvancedOptionValue ReadAdvancedOption(const std::string& name);
void WriteAdvancedOption(const std::string& name, const std::string& value);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_ADVANCED_OPTIONS_H_
