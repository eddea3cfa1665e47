#include "tool_host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "embeddeddirectory/directory.h"
#include "plugins/embedded/cheap_passwords.h"

namespace nimbrel::testing {

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr char kState[] = "/var/lib/nimbrel";
constexpr char kHosts[] = "/etc/hosts";
constexpr char kPrepared[] = "/srv/domain";  // made once, as passwords are slow
constexpr auto kAll = std::filesystem::copy_options::recursive;

void ExpectNoPassword(const ProgramResult& result) {
    for (const std::string* const text : {&result.output, &result.errors, &result.terminal}) {
        EXPECT_THAT(*text, Not(HasSubstr(kPassword)));
        EXPECT_THAT(*text, Not(HasSubstr(kWrongPassword)));
    }
}

constexpr int kFirstSpecialStatus = 3;  // what lies below, every command may end with

// Scripts go by the exit status: one that says more than "failed" must be in the help of the command.
void ExpectDocumented(Words words, int exitStatus) {
    if (exitStatus < kFirstSpecialStatus) return;
    words.emplace_back("--help");
    const std::string line = "\n  " + std::to_string(exitStatus) + "  ";
    EXPECT_THAT(RunProgram(kTool, {.arguments = words}).output, HasSubstr(line)) << ::testing::PrintToString(words);
}

}  // namespace

void ToolHost::SetUp() {
    umask(022);  // a host's usual one, whatever the caller's is
    std::filesystem::remove_all(kState);
    std::filesystem::create_directories("/etc/nimbrel/nimauth");
    std::filesystem::permissions("/etc/nimbrel/nimauth", std::filesystem::perms(0755));
    WriteFile("/etc/nimbrel/nimauth/authentication.conf", "remote-authentication-store = \"None\"\n");
    WriteFile("/etc/nimbrel/nimauth/provider.conf", "provider = \"embedded\"\n");
    WriteFile("/etc/nimbrel/nimauth/apxprovider.conf", "provider = \"apxhttps\"\n");
    SetHostName("node01");
    _hosts = ReadFile(kHosts);
}

void ToolHost::TearDown() { WriteFile(kHosts, _hosts); }

ProgramResult ToolHost::Ctl(Words words, ProgramOptions options) {
    options.arguments = words;
    ProgramResult result = RunProgram(kTool, options);
    ExpectDocumented(std::move(words), result.exitStatus);
    ExpectNoPassword(result);
    EXPECT_FALSE(result.limitReached);
    EXPECT_EQ(0, result.signal);
    return result;
}

ProgramResult ToolHost::CtlWithPassword(Words words, const std::string& password) {
    words.emplace_back("--password-stdin");
    return Ctl(std::move(words), {.input = password + '\n'});
}

ProgramResult ToolHost::CtlAsNobody(Words words) { return Ctl(std::move(words), {.user = kNobody}); }

std::string ToolHost::Done(const Words& words) {
    const ProgramResult result = Ctl(words);
    EXPECT_THAT(result, ExitsWith(0));
    EXPECT_EQ("", result.errors);
    return result.output;
}

void ToolHost::AddUser(const std::string& name, const Words& flags) {
    Words words = {"directory", "user", "add", "corp.test", name};
    words.insert(words.end(), flags.begin(), flags.end());
    EXPECT_THAT(CtlWithPassword(words), ExitsWith(0));
}

void ToolHost::HaveDomain() {
    // Copied files would have the modes of the copy.
    const mode_t mask = umask(022);
    umask(mask);
    const bool isFresh = mask == 022 && !std::filesystem::exists(kState);
    if (isFresh && std::filesystem::exists(kPrepared)) {
        std::filesystem::copy(kPrepared, kState, kAll);
        return;
    }
    Done({"directory", "domain", "add", "corp.test"});
    AddUser("administrator", {"--may-join"});
    AddUser("alice");
    embedded::test::MakePasswordsCheap(embedded::kDefaultDirectoryPath, kPassword);
    if (isFresh) std::filesystem::copy(kState, kPrepared, kAll);
}

void ToolHost::HaveJoined() {
    HaveDomain();
    Done({"store", "set", "Active Directory"});
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
}

void ToolHost::WriteFile(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::trunc);
    stream << text << std::flush;
    ASSERT_TRUE(stream.good()) << path;
}

std::string ToolHost::ReadFile(const std::string& path) {
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void ToolHost::SetHostName(const std::string& name) { ASSERT_EQ(0, sethostname(name.data(), name.size())); }

}  // namespace nimbrel::testing
