#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sstream>

#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/plan.h"
#include "tools/loginfiles/run.h"

namespace nimbrel::logins {
namespace {

namespace fs = std::filesystem;

constexpr char kProgram[] = "/usr/bin/authselect";
constexpr char kOwnName[] = "custom/nimauth";
constexpr char kOwnProfile[] = "/etc/authselect/custom/nimauth";
constexpr char kBaseFile[] = "made-from";
constexpr char kStateFolder[] = "/var/lib/authselect";

std::string MustRun(const std::vector<std::string>& words) {
    const RunResult result = Run(words);
    if (result.status == 0) return result.output;
    throw LoginsError(LoginsError::Kind::System, fs::path(words[0]).filename().string() + " failed: " + result.output);
}

std::vector<std::string> Split(const std::string& text) {
    std::istringstream stream(text);
    stream.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

void Mount(const char* source, const std::string& target, const char* type, unsigned long flags) {
    const bool mounted = mount(source, target.c_str(), type, flags, nullptr) == 0;
    const int error = errno;
    if (!mounted) ThrowSystemError("mount a copy at", target, error);
}

void PutCopyOver(const std::string& folder, const std::string& space) {
    if (!fs::is_directory(folder)) return;
    const std::string copy = space + '/' + fs::path(folder).filename().string();
    // What cannot be read or kept as it is matters only where authselect needs it, and then it says so.
    const RunResult result = Run({"/bin/cp", "-a", folder, copy});
    if (!fs::is_directory(copy)) {
        throw LoginsError(LoginsError::Kind::System, "'" + folder + "' cannot be copied: " + result.output);
    }
    Mount(copy.c_str(), folder, nullptr, MS_BIND);
}

// From here on this process and its children have a /etc of their own.
void EnterCopy(const std::string& folder) {
    const bool apart = unshare(CLONE_NEWNS) == 0;
    const int error = errno;
    if (!apart) ThrowSystemError("make a mount namespace for", folder, error);
    Mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE);
    const std::string space = folder + "/space";
    fs::create_directory(space);
    Mount("tmpfs", space, "tmpfs", 0);
    PutCopyOver("/etc", space);
    PutCopyOver(kStateFolder, space);
}

void Select(const std::vector<std::string>& selection) {
    std::vector<std::string> words = {kProgram, "select"};
    words.insert(words.end(), selection.begin(), selection.end());
    MustRun(words);
}

// The profile's templates by name; includes between them are by name, too.
PamFiles Templates() {
    PamFiles files;
    if (!fs::is_directory(kOwnProfile)) return files;
    for (const auto& item : fs::directory_iterator(kOwnProfile)) {
        if (!item.is_regular_file()) continue;
        files[item.path().filename().string()] = ReadWhole(item.path().string());
    }
    return files;
}

void WriteTemplate(const std::string& name, const std::string& text) {
    const std::string path = std::string(kOwnProfile) + '/' + name;
    WriteDurably(path, text);
    fs::permissions(path, fs::perms(0644));
}

// Anew, whatever is there: it may be empty, of an earlier base or with another provider's modules.
void MakeOwnProfile(const std::string& base, const ProviderModules& provider) {
    fs::remove_all(kOwnProfile);
    MustRun({kProgram, "create-profile", "nimauth", "--base-on", base});
    const PamFiles templates = Templates();
    for (const char* const name : {"system-auth", "password-auth"}) {
        if (templates.contains(name)) WriteTemplate(name, WithPamModuleInTemplate(templates, name, provider));
    }
    WriteTemplate("nsswitch.conf", WithNssServiceInTemplate(templates.at("nsswitch.conf"), provider));
    WriteTemplate(kBaseFile, base + '\n');
}

// What our own profile was made from; authselect itself does not remember it. Empty if that is not known.
std::string BaseOf(const PamFiles& templates) {
    const auto file = templates.find(kBaseFile);
    const std::vector<std::string> words = file == templates.end() ? std::vector<std::string>() : Split(file->second);
    return words.size() == 1 ? words[0] : "";
}

bool IsProfile(const std::string& name) { return Run({kProgram, "show", name}).status == 0; }

bool HasModules(const PamFiles& templates, const ProviderModules& provider) {
    const auto sources = templates.find("nsswitch.conf");
    if (sources == templates.end() || WithNssServiceInTemplate(sources->second, provider) != sources->second)
        return false;
    return std::any_of(templates.begin(), templates.end(),
                       [&](const auto& file) { return HasPamModule(file.second, provider.pamModule); });
}

[[noreturn]] void RefuseWithoutBase(const std::string& base) {
    const std::string reason =
        base.empty() ? std::string(kOwnProfile) + "/" + kBaseFile + " does not say what the profile was made from"
                     : "the profile '" + base + "', from which " + kOwnName + " was made, is not there any more";
    throw LoginsError(LoginsError::Kind::Refused, reason,
                      "choose another profile to begin with: 'authselect list', then 'authselect select PROFILE'");
}

// True if it is another one now. Without its base it stays what it is, as long as it has the modules: it was made by an
// earlier version, or authselect has renamed the base since.
bool RemakeOwnProfile(const std::string& selected, const ProviderModules& provider) {
    const PamFiles before = Templates();
    const std::string base = selected == kOwnName ? BaseOf(before) : selected;
    if (selected == kOwnName && (base.empty() || !IsProfile(base))) {
        if (HasModules(before, provider)) return false;
        RefuseWithoutBase(base);
    }
    MakeOwnProfile(base, provider);
    return Templates() != before;
}

void Enable(const ProviderModules& provider) {
    std::vector<std::string> selection = Split(MustRun({kProgram, "current", "--raw"}));
    if (selection.empty()) throw LoginsError(LoginsError::Kind::Refused, "authselect has no profile selected");
    const bool sssd = provider.pamModule == "pam_sss.so" && provider.nssService == "sss";
    const bool remade = !sssd && RemakeOwnProfile(selection[0], provider);
    const std::string wanted = sssd ? "sssd" : kOwnName;
    if (selection[0] == wanted && !remade) return;
    selection[0] = wanted;
    Select(selection);
}

void Leave(const std::string& folder) {
    const std::string out = folder + "/out";
    fs::create_directories(out + "/etc");
    fs::create_directories(out + "/var/lib");
    for (const std::string path : {"/etc/authselect", "/etc/pam.d", "/etc/nsswitch.conf", "/etc/dconf", kStateFolder}) {
        if (fs::exists(fs::symlink_status(path))) MustRun({"/bin/cp", "-a", path, out + path});
    }
}

}  // namespace

void MakeAuthselectCandidate(const std::string& folder, const std::vector<std::string>& words) {
    EnterCopy(folder);
    if (!words.empty() && words[0] == "enable" && words.size() == 5) {
        Enable({words[1], Split(words[2]), words[3], Split(words[4])});
    } else {
        Select({words.begin() + (words.empty() ? 0 : 1), words.end()});
    }
    Leave(folder);
}

}  // namespace nimbrel::logins
