// The edits of nsswitch.conf and of PAM files: what they take they change as told, all other lines stay byte for byte,
// doing it again changes nothing, taking out what was put in gives the old text, and jumps end where they did.
//
// Input: a byte, then by its lowest bit a name-service or a PAM text.

#include <sstream>
#include <vector>

#include "fuzz.h"
#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/pam_jumps.h"

namespace {

using fuzzing::Require;
using namespace nimbrel::logins;

const ProviderModules kProvider{"pam_sss.so", {}, "sss", {}};

// Without those of the databases that the edit concerns.
std::vector<std::string> OtherLines(const std::string& text) {
    std::vector<std::string> others;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string name = line.substr(0, line.find(':'));
        const bool concerned = name.find("passwd") != std::string::npos || name.find("group") != std::string::npos ||
                               line.find("sss") != std::string::npos;
        if (!concerned) others.push_back(line);
    }
    return others;
}

// Whether the lines are in the text, in their order.
bool Has(const std::string& text, const std::vector<std::string>& lines) {
    std::size_t found = 0;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) found += found < lines.size() && line == lines[found] ? 1 : 0;
    return found == lines.size();
}

void CheckNss(const std::string& text) try {
    const std::string with = WithNssService(text, kProvider);
    Require(HasNssService(with, "sss"), "the service is there");
    Require(WithNssService(with, kProvider) == with, "again changes nothing");
    Require(OtherLines(with) == OtherLines(text), "other lines stay");
    const std::string without = WithoutNssService(with, kProvider);
    Require(WithoutNssService(without, kProvider) == without, "taken out, it is gone");
    Require(Has(without, OtherLines(text)), "other lines stay when it goes");
} catch (const LoginsError& error) {
    Require(error.Reason() == LoginsError::Kind::Refused, "a text is refused, and nothing fails");
}

bool JumpsAreKept(const std::string& before, const std::string& after) try {
    ProveJumpsKept({{"sshd", before}}, {{"sshd", after}}, "pam_sss.so");
    return true;
} catch (const LoginsError&) {
    return false;
}

void CheckPam(const std::string& text) try {
    const PamFiles files = {{"sshd", text}};
    const bool had = HasPamModule(text, "pam_sss.so");
    const std::string with = WithPamModule(files, "sshd", kProvider);
    Require(JumpsAreKept(text, with), "no jump passes over what was put in");
    Require(WithPamModule({{"sshd", with}}, "sshd", kProvider) == with, "again changes nothing");
    const std::string without = WithoutPamModule({{"sshd", with}}, "sshd", "pam_sss.so");
    Require(!HasPamModule(without, "pam_sss.so"), "the module is gone");
    Require(JumpsAreKept(with, without), "jumps count without it");
    Require(had || without == text, "taken out again the old text is there");
} catch (const LoginsError& error) {
    Require(error.Reason() == LoginsError::Kind::Refused, "a text is refused, and nothing fails");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::Input input(data, size);
    const bool isPam = (input.Byte() & 1U) != 0;
    const std::string text = input.Rest();
    isPam ? CheckPam(text) : CheckNss(text);
    return 0;
}
