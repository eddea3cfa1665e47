#include "logins_host.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using logins::FileState;

constexpr const char* kFolders[] = {"/etc/pam.d", "/var/lib/pam", "/usr/share/pam-configs", "/etc/authselect"};
constexpr char kNsswitch[] = "/etc/nsswitch.conf";
constexpr char kStockNsswitch[] = "/usr/share/libc-bin/nsswitch.conf";

// After a wrong password PAM waits for seconds; what it waits in returns at once here.
constexpr char kNoDelay[] = "LD_PRELOAD=" NIMAUTH_NO_DELAY;

// The machine's own files, as they are installed.
LoginFiles& Installed() {
    static LoginFiles files;
    return files;
}

// The domain and its users are made once: a password's hash is slow by design.
std::string& PreparedState() {
    static std::string folder = "/srv/prepared";
    return folder;
}

std::string HashOf(const std::string& password) {
    const ProgramResult result =
        RunProgram("/usr/bin/openssl", {.arguments = {"passwd", "-6", "-stdin"}, .input = password + '\n'});
    EXPECT_EQ(0, result.exitStatus);
    return result.output.substr(0, result.output.find('\n'));
}

void WriteState(const std::string& path, const FileState& state) {
    fs::remove(path);
    fs::create_directories(logins::FolderOf(path));
    logins::Stage(path, 999, state);
    if (state.kind != FileState::Kind::Absent) logins::Replace(path, 999, state);
}

}  // namespace

LoginFiles ReadLoginFiles() {
    LoginFiles files = {{kNsswitch, logins::ReadState(kNsswitch)}};
    for (const char* const folder : kFolders) {
        if (!fs::is_directory(folder)) continue;
        for (const auto& item : fs::recursive_directory_iterator(folder)) {
            if (item.is_symlink() || item.is_regular_file()) {
                files[item.path()] = logins::ReadState(item.path());
            }
        }
    }
    return files;
}

void PutBack(const LoginFiles& files) {
    for (const auto& [path, state] : ReadLoginFiles()) {
        if (!files.contains(path)) fs::remove(path);
    }
    for (const auto& [path, state] : files) {
        if (!(logins::ReadState(path) == state)) WriteState(path, state);
    }
}

std::vector<std::string> Differences(const LoginFiles& a, const LoginFiles& b) {
    std::vector<std::string> paths;
    for (const auto& [path, state] : a) {
        const auto other = b.find(path);
        if (other == b.end() || !(other->second == state)) paths.push_back(path);
    }
    for (const auto& [path, state] : b) {
        if (!a.contains(path)) paths.push_back(path);
    }
    return paths;
}

// Folders of this root's own, for an ordinary user's root, too, in which the machine's folders belong to nobody.
void LoginsHost::SetUpTestSuite() {
    if (!Installed().empty()) return;
    Installed() = ReadLoginFiles();
    Installed()[kNsswitch] = logins::ReadState(kStockNsswitch);
    for (auto& [path, state] : Installed()) state.owner = state.group = 0;
    for (const char* const folder : {"/etc/pam.d", "/var/lib/pam", "/usr/share/pam-configs"}) {
        ASSERT_EQ(0, mount("tmpfs", folder, "tmpfs", 0, "mode=0755")) << folder;
    }
    WriteFile("/etc/passwd", ReadFile("/etc/passwd") + "bob:x:1000:1000:Bob:/home/bob:/bin/bash\n");
    WriteFile("/etc/group", ReadFile("/etc/group") + "bob:x:1000:\n");
    WriteState("/etc/shadow", FileState().With("root:" + HashOf(kRootPassword) + ":19000:0:99999:7:::\nbob:" +
                                               HashOf(kBobPassword) + ":19000:0:99999:7:::\n"));
    PutBack(Installed());
}

void LoginsHost::SetUp() {
    ToolHost::SetUp();
    if (fs::exists(PreparedState())) {
        fs::copy(PreparedState(), "/var/lib/nimbrel", fs::copy_options::recursive);
        WriteFile("/etc/nimbrel/nimauth/authentication.conf", "remote-authentication-store = \"Active Directory\"\n");
    } else {
        HaveJoined();
        fs::copy("/var/lib/nimbrel", PreparedState(), fs::copy_options::recursive);
    }
    PutBack(Installed());
    _before = ReadLoginFiles();
}

void LoginsHost::TearDownLook() {
    for (const auto& [path, state] : ReadLoginFiles()) {
        EXPECT_EQ(std::string::npos, path.find(".nimauth-")) << path;
    }
}

void LoginsHost::TearDown() {
    TearDownLook();
    ToolHost::TearDown();
}

bool LoginsHost::LogsIn(const std::string& service, const std::string& user, const std::string& password) {
    const ProgramResult result =
        RunProgram("/usr/bin/pamtester", {.arguments = {service, user, "authenticate", "acct_mgmt"},
                                          .input = password + '\n',
                                          .environment = {kNoDelay}});
    EXPECT_FALSE(result.limitReached);
    EXPECT_EQ(0, result.signal);
    return result.exitStatus == 0;
}

void LoginsHost::ExpectRefused(const std::vector<Attempt>& attempts) {
    constexpr char kScript[] =
        "while read -r service user password; do\n"
        "  (echo \"$password\" | pamtester \"$service\" \"$user\" authenticate acct_mgmt >/dev/null 2>&1;"
        " echo \"$service $user $?\") &\n"
        "done; wait";
    std::string input;
    for (const Attempt& attempt : attempts) {
        input += attempt.service + ' ' + attempt.user + ' ' + attempt.password + '\n';
    }
    const ProgramResult result =
        RunProgram("/bin/sh", {.arguments = {"-c", kScript}, .input = input, .environment = {kNoDelay}});
    EXPECT_FALSE(result.limitReached);
    for (const Attempt& attempt : attempts) {
        EXPECT_THAT(result.output, HasLine(attempt.service + ' ' + attempt.user + " 1"));
        EXPECT_THAT(result.output, ::testing::Not(HasLine(attempt.service + ' ' + attempt.user + " 0")));
    }
}

void LoginsHost::Enable(const Words& more) {
    Words words = {"logins", "enable"};
    words.insert(words.end(), more.begin(), more.end());
    Done(words);
}

void LoginsHost::Disable(const Words& more) {
    Words words = {"logins", "disable"};
    words.insert(words.end(), more.begin(), more.end());
    Done(words);
}

std::string LoginsHost::Refused(const Words& words, int status) {
    const ProgramResult result = Ctl(words);
    EXPECT_THAT(result, ExitsWith(status));
    EXPECT_EQ("", result.output);
    return result.errors;
}

void LoginsHost::ExpectUntouched() const { EXPECT_THAT(Differences(_before, ReadLoginFiles()), ::testing::IsEmpty()); }

std::string LoginsHost::StateOf(int id) {
    const std::string text = ReadFile("/var/lib/nimbrel/logins/" + std::to_string(id) + "/state");
    return text.substr(0, text.find('\n'));
}

void LoginsHost::AwaitState(int id, const std::string& state) {
    const std::string folder = "/var/lib/nimbrel/logins/" + std::to_string(id);
    const int events = inotify_init1(IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(events, folder.c_str(), IN_MOVED_TO), 0);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (StateOf(id) != state && std::chrono::steady_clock::now() < end) {
        struct pollfd wait = {events, POLLIN, 0};
        poll(&wait, 1, 30'000);
        std::array<char, 4096> buffer{};
        if (wait.revents != 0) static_cast<void>(!read(events, buffer.data(), buffer.size()));
    }
    close(events);
    EXPECT_EQ(state, StateOf(id));
}

}  // namespace nimbrel::testing
