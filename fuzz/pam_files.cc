// PAM service files of any text: read line by line without loss, expanded along their includes in bounded time, and
// extended as templates without touching a line that was there.
//
// Input: names and texts of files in turn; a file may include any other and itself.

#include "fuzz.h"
#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/pam_text.h"

namespace {

using fuzzing::Require;
using namespace nimbrel::logins;

void CheckLines(const std::string& text) {
    std::string joined;
    int number = 0;
    for (const PamLine& line : ParsePam(text)) {
        Require(line.number > number, "lines are counted upwards");
        Require(!line.raw.empty(), "a line is something");
        Require(line.kind != PamLine::Kind::Rule || (!line.module.empty() && !line.control.empty()), "a rule is whole");
        number = line.number;
        joined += line.raw;
    }
    Require(joined == text, "the lines together are the file");
}

// Whether `after` is `before` with whole lines added.
bool HasOnlyMore(const std::string& before, const std::string& after) {
    const std::vector<PamLine> kept = ParsePam(before);
    std::size_t found = 0;
    std::string rest = after;
    while (!rest.empty()) {
        if (found < kept.size() && rest.starts_with(kept[found].raw)) {
            rest.erase(0, kept[found++].raw.size());
        } else {
            rest.erase(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
        }
    }
    return found == kept.size();
}

void CheckTemplate(PamFiles files, const std::string& name) {
    static const ProviderModules provider{"pam_sss.so", {"quiet"}, "sss", {}};
    const std::string edited = WithPamModuleInTemplate(files, name, provider);
    Require(HasOnlyMore(files[name], edited), "every line that was there is there");
    files[name] = edited;
    Require(WithPamModuleInTemplate(files, name, provider) == edited, "again changes nothing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::Input input(data, size);
    PamFiles files;
    while (!input.AtEnd() && files.size() < 12) {
        const std::string name = input.Field();
        files[name] = input.Field();
    }
    for (const auto& [name, text] : files) {
        CheckLines(text);
        for (const char* const type : {"", "auth"}) {
            for (const EffectiveRule& rule : EffectiveStack(files, name, type)) {
                Require(files.contains(rule.file), "a rule tells its file");
            }
        }
    }
    if (!files.empty()) CheckTemplate(files, files.begin()->first);
    return 0;
}
