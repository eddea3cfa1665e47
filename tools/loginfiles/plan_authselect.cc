// Where authselect manages the host, files are never edited by hand: it is authselect that makes them, on a copy of /etc,
// and what it has made is put in place like every other change.
//
// A provider that logs in through SSSD gets authselect's own profile "sssd". For any other one a profile of its own,
// custom/nimauth, is made from the present one, every time anew: it follows the provider and its base.

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/plan.h"
#include "tools/loginfiles/run.h"
#include "tools/loginfiles/watch.h"

namespace nimbrel::logins {
namespace {

namespace fs = std::filesystem;

constexpr char kFolder[] = "/etc/authselect/";
constexpr char kConfiguration[] = "/etc/authselect/authselect.conf";

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    stream.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string Trimmed(const std::string& text) { return text.substr(0, text.find_last_not_of('\n') + 1); }

bool MayBeReplaced(const fs::directory_entry& item) { return item.is_symlink() || item.is_regular_file(); }

// Every file that authselect has left, and every one that it has removed.
void Collect(const std::string& out, ChangeSet& changes) {
    for (const auto& item : fs::recursive_directory_iterator(out)) {
        if (!MayBeReplaced(item)) continue;
        changes.SetExactly(item.path().string().substr(out.size()), ReadState(item.path().string()));
    }
    for (const std::string folder : {"/etc/authselect", "/etc/pam.d", "/var/lib/authselect"}) {
        std::error_code missing;
        for (const auto& item : fs::recursive_directory_iterator(folder, missing)) {
            const std::string path = item.path().string();
            const bool gone = !fs::exists(fs::symlink_status(out + path));
            if (MayBeReplaced(item) && gone) changes.SetExactly(path, {});
        }
    }
}

void RunHelper(const Journal& journal, std::vector<std::string> words, ChangeSet& changes) {
    const std::string folder = journal.MakeCandidateFolder();
    words.insert(words.begin(), {kHelper, "authselect", folder});
    const RunResult result = Run(words);
    if (result.status == 0) Collect(folder + "/out", changes);
    std::error_code ignored;  // left over for the next call to remove
    fs::remove_all(folder, ignored);
    if (result.status == 0) return;
    const std::size_t mark = result.output.find(kRemedyMark);
    throw LoginsError(LoginsError::Kind::Refused,
                      "authselect does not make the change on a copy: " + Trimmed(result.output.substr(0, mark)),
                      mark == std::string::npos
                          ? "run 'authselect check' to see whether somebody has edited its files by hand"
                          : Trimmed(result.output.substr(mark + std::strlen(kRemedyMark))));
}

// The profile and features of the time before the last change that switched the logins on.
std::vector<std::string> EarlierSelection(const Journal& journal) {
    const std::vector<Entry> entries = journal.Entries();
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (entry->record.action != "enable" || entry->progress != Progress::Confirmed) continue;
        for (const Change& change : entry->record.changes) {
            if (change.path == kConfiguration) return LinesOf(change.before.content);
        }
    }
    return {};
}

}  // namespace

bool IsMadeByAuthselect(const std::string& name, const std::vector<Change>& changes) {
    const auto isThere = [](const std::string& path) { return path.starts_with(kFolder); };
    return isThere(PlaceAfter(name, {})) || isThere(PlaceAfter(name, changes));
}

void EnableAuthselect(const Journal& journal, const ProviderModules& provider, ChangeSet& changes) {
    RunHelper(journal,
              {"enable", provider.pamModule, Joined(provider.pamParameters), provider.nssService,
               Joined(provider.nssParameters)},
              changes);
}

void DisableAuthselect(const Journal& journal, const ProviderModules& provider, ChangeSet& changes) {
    const std::vector<std::string> present = LinesOf(ReadWhole(Resolve(kConfiguration)));
    const bool ours =
        !present.empty() && present[0] == (provider.pamModule == "pam_sss.so" ? "sssd" : "custom/nimauth");
    if (!ours) return;
    std::vector<std::string> words = {"select"};
    const std::vector<std::string> earlier = EarlierSelection(journal);
    if (earlier.empty()) {
        throw LoginsError(LoginsError::Kind::Refused, "the profile that the host had before is not known",
                          "choose one: 'authselect list', then 'authselect select PROFILE'");
    }
    words.insert(words.end(), earlier.begin(), earlier.end());
    RunHelper(journal, words, changes);
}

}  // namespace nimbrel::logins
