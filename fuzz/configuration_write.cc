// Settings of any keys and values are written as told, whatever stood in the file; what the header promises to read
// back does.
//
// Input: the file's old text, then keys and values in turn.

#include "fuzz.h"
#include "unit/configuration_outcome.h"

namespace {

using fuzzing::Require;

std::string Literal(const literal::Settings& settings) {
    std::string text;
    for (const auto& [key, value] : settings) text += key + " = \"" + value + "\"\n";
    return text;
}

bool ReadsBack(const std::string& key, const std::string& value) {
    if (key.empty() || key.find_first_of("=\n") != std::string::npos || value.find('\n') != std::string::npos) {
        return false;
    }
    const bool quoted = (key.front() == '"' || key.front() == '\'') && key.back() == key.front();
    return !quoted && !literal::IsBlank(key.front()) && !literal::IsBlank(key.back());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzzing::ScratchFolder folder;
    static const std::string path = folder / "settings";
    fuzzing::Input input(data, size);
    fuzzing::WriteFile(path, input.Field());
    if (!LibraryOutcome(path).error.empty()) return 0;

    nimbrel::authentication::Configuration configuration(path);
    bool readsBack = true;
    while (!input.AtEnd()) {
        const std::string key = input.Field();
        configuration.insert_or_assign(key, input.Field());
    }
    const literal::Settings settings(configuration.begin(), configuration.end());
    for (const auto& [key, value] : settings) readsBack = readsBack && ReadsBack(key, value);
    configuration.Write();

    const std::string text = fuzzing::ReadFile(path);
    const Outcome outcome = LibraryOutcome(path);
    Require(text == Literal(settings), "the file holds the settings as told");
    Require(outcome == LiteralOutcome(text), "library and literal reader agree");
    Require(!readsBack || outcome.settings == settings, "the settings read back");
    return 0;
}
