// pam-auth-update works on a copy, with a debconf database of its own: a preview leaves no trace, and what it makes is
// put in place with everything else.

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/plan.h"
#include "tools/loginfiles/run.h"

namespace nimbrel::logins {
namespace {

namespace fs = std::filesystem;

constexpr char kProfile[] = "/usr/share/pam-configs/nimauth";
constexpr char kProfiles[] = "/usr/share/pam-configs";
constexpr char kSaved[] = "/var/lib/pam";
constexpr std::array<const char*, 5> kTypes = {"auth", "account", "password", "session", "session-noninteractive"};

std::vector<std::string> Made() {
    std::vector<std::string> paths = {std::string(kSaved) + "/seen"};
    for (const char* const type : kTypes) {
        paths.push_back(std::string(kPamFolder) + "/common-" + type);
        paths.push_back(std::string(kSaved) + '/' + type);
    }
    return paths;
}

class Candidate {
 public:
    explicit Candidate(const Journal& journal) : _root(journal.MakeCandidateFolder()) {}
    Candidate(const Candidate&) = delete;
    Candidate& operator=(const Candidate&) = delete;
    ~Candidate() {
        std::error_code ignored;  // left over for the next call to remove
        fs::remove_all(_root, ignored);
    }

    std::string operator+(const std::string& path) const { return _root + path; }

    void Write(const std::string& path, const std::string& content) const {
        fs::create_directories(FolderOf(_root + path));
        WriteDurably(_root + path, content);
    }

 private:
    std::string _root;
};

bool HasLine(const std::string& text, const std::string& wanted) {
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(lines, line);) {
        if (line == wanted) return true;
    }
    return false;
}

// A default profile that pam-auth-update has never seen would be switched on along with ours; so it does not see it.
void CopyProfiles(const Candidate& root, const std::string& seen) {
    for (const auto& item : fs::directory_iterator(kProfiles)) {
        const std::string name = item.path().filename().string();
        if (name != "nimauth" && item.is_regular_file() && HasLine(seen, name)) {
            root.Write(item.path().string(), ReadWhole(Resolve(item.path().string())));
        }
    }
}

void CopyState(const Candidate& root, ChangeSet& changes) {
    fs::create_directories(root + kSaved);
    for (const std::string& path : Made()) {
        if (const std::optional<std::string> content = changes.Content(path)) root.Write(path, *content);
    }
    CopyProfiles(root, changes.Content(std::string(kSaved) + "/seen").value_or(""));
}

void WriteDebconf(const Candidate& root) {
    const auto database = [&](const std::string& name) {
        return "\nName: " + name + "\nDriver: File\nFilename: " + (root + "/" + name + ".dat") + '\n';
    };
    root.Write("/debconf.conf", "Config: config\nTemplates: templates\n" + database("config") + database("templates"));
}

void RunOn(const Candidate& root, bool enable) {
    std::vector<std::string> words = {"/usr/sbin/pam-auth-update", "--root", root + "", "--package"};
    words.insert(words.end(), {enable ? "--enable" : "--remove", "nimauth"});
    const RunResult result = Run(words, {"DEBIAN_FRONTEND=noninteractive", "DEBCONF_NOWARNINGS=yes",
                                         "DEBCONF_SYSTEMRC=" + (root + "/debconf.conf")});
    if (result.status == 0) return;
    throw LoginsError(LoginsError::Kind::System, "pam-auth-update failed on the copy: " + result.output,
                      "run 'pam-auth-update' by hand to see what it complains about");
}

// It ends well and does nothing where it finds local changes.
void CheckOutcome(const Candidate& root, const ProviderModules& provider, bool enable) {
    const std::string path = std::string(kPamFolder) + "/common-auth";
    if (HasPamModule(ReadWhole(root + path), provider.pamModule) == enable) return;
    throw LoginsError(
        LoginsError::Kind::Refused,
        "pam-auth-update leaves /etc/pam.d/common-* alone, because somebody has edited their managed part",
        "undo the edits or run 'pam-auth-update --force', which drops them; or name single services with "
        "--services");
}

void Make(const Journal& journal, const ProviderModules& provider, bool enable, ChangeSet& changes) {
    const Candidate root(journal);
    CopyState(root, changes);
    root.Write(kProfile, PamProfile(provider));
    WriteDebconf(root);
    RunOn(root, enable);
    CheckOutcome(root, provider, enable);
    for (const std::string& path : Made()) {
        std::error_code error;
        if (fs::exists(root + path, error)) changes.SetContent(path, ReadWhole(root + path));
    }
}

}  // namespace

bool IsMadeByPamAuthUpdate(const std::string& name) {
    return std::any_of(kTypes.begin(), kTypes.end(),
                       [&](const char* type) { return name == std::string("common-") + type; });
}

// A package's own profile may have put the module there already.
void EnablePamAuthUpdate(const Journal& journal, const ProviderModules& provider, ChangeSet& changes) {
    const std::string auth = changes.Content(std::string(kPamFolder) + "/common-auth").value_or("");
    const bool ours = changes.Content(kProfile) == PamProfile(provider);
    if (HasPamModule(auth, provider.pamModule) && (ours || !changes.Content(kProfile))) return;
    Make(journal, provider, true, changes);
    changes.SetContent(kProfile, PamProfile(provider));
}

void DisablePamAuthUpdate(const Journal& journal, const ProviderModules& provider, ChangeSet& changes) {
    if (!changes.Content(kProfile)) return;
    Make(journal, provider, false, changes);
    changes.Remove(kProfile);
}

}  // namespace nimbrel::logins
