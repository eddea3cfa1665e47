#include "tools/nimauthctl/command.h"

#include "tools/nimauthctl/report.h"
#include "tools/nimauthctl/standard_streams.h"

namespace nimbrel::nimauthctl {

std::string Invocation::Text(std::string_view key) const {
    const auto found = _values.find(key);
    return found == _values.end() ? "" : found->second.front();
}

std::vector<std::string> Invocation::Texts(std::string_view key) const {
    const auto found = _values.find(key);
    return found == _values.end() ? std::vector<std::string>() : found->second;
}

void Invocation::Trace(const std::string& text) const {
    if (_settings.verbose) WriteError("verbose: " + Printable(text) + '\n');
}

}  // namespace nimbrel::nimauthctl
