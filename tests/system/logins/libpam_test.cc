// Our reader of PAM files against libpam itself: modules that write down how they are called tell what it has read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <security/pam_appl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "loginfiles/pam_lines.h"
#include "support/leave_child.h"
#include "support/temporary_folder.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using logins::PamLine;

constexpr char kModules[] = "/usr/lib/" NIMAUTH_MULTIARCH "/security/";
constexpr char kServices[] = "/tmp/services";
constexpr char kLog[] = "/tmp/probe.log";

int NoConversation(int, const struct pam_message**, struct pam_response**, void*) { return PAM_CONV_ERR; }

class LibpamTest : public ::testing::Test {
 protected:
    static void SetUpTestSuite() {
        for (const char* const name : {"a.so", "b.so", "x.so", "a].so", "]]a.so", "\\a]] b"})
            fs::copy_file(NIMAUTH_PROBE, kModules + std::string(name));
        fs::create_directory(kServices);
        // Types without a rule of their own are asked here.
        WriteFile(kServices + std::string("/other"),
                  "auth required pam_permit.so\naccount required pam_permit.so\n"
                  "password required pam_permit.so\nsession required pam_permit.so\n");
        WriteFile(kIncludedFile, "auth required x.so\n");
    }
};

// Whether one of the four stacks of the service, or libpam as a whole, says no.
bool IsRefused() {
    constexpr struct pam_conv kConversation = {NoConversation, nullptr};
    pam_handle_t* handle = nullptr;
    const int status = pam_start_confdir("row", "root", &kConversation, kServices, &handle);
    bool refused = status != PAM_SUCCESS;
    for (int (*const ask)(pam_handle_t*, int) : {pam_authenticate, pam_acct_mgmt, pam_chauthtok, pam_open_session}) {
        if (status == PAM_SUCCESS) refused = ask(handle, PAM_SILENT) != PAM_SUCCESS || refused;
    }
    return refused;
}

// The calls of the modules, and in the end "refused". A process of its own asks: libpam loses memory over services that
// it refuses.
std::string Called(const std::string& text) {
    WriteFile(kServices + std::string("/row"), text);
    WriteFile(kLog, "");
    const pid_t child = fork();
    if (child == 0) LeaveChild(IsRefused() ? 1 : 0);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status)) << text;
    return ReadFile(kLog) + (WEXITSTATUS(status) == 0 ? "" : "refused");
}

std::string Inner(std::string word) {
    if (!word.starts_with('[')) return word;
    word.erase(0, 1);
    if (word.ends_with(']')) word.pop_back();
    for (std::size_t at = word.find("\\]"); at != std::string::npos; at = word.find("\\]", at + 1)) word.erase(at, 1);
    return word;
}

// What our reader expects libpam to call.
std::string Expected(const PamLinesRow& row) {
    std::string calls;
    bool refused = row.isRefused;
    for (const PamLine& line : logins::ParsePam(row.text)) {
        refused = refused || line.kind == PamLine::Kind::Unreadable;
        if (line.IncludesAnother()) calls += "auth x.so\n";
        if (line.kind != PamLine::Kind::Rule || line.IncludesAnother()) continue;
        calls += line.type + ' ' + line.module;
        for (const std::string& word : line.arguments) calls += '|' + Inner(word);
        calls += '\n';
    }
    return calls + (refused ? "refused" : "");
}

TEST_F(LibpamTest, EveryRowOfTheTableIsReadAsTold) {
    int rows = 0;
    for (const PamLinesRow& row : kPamLines) {
        const std::string called = Called(row.text);
        // What cannot be read is refused; what of it is called is libpam's own affair.
        if (row.shown.starts_with('?')) {
            EXPECT_THAT(called, ::testing::EndsWith("refused")) << row.text;
        } else {
            EXPECT_EQ(Expected(row), called) << row.text;
        }
        ++rows;
    }
    EXPECT_GT(rows, 50);
}

}  // namespace
}  // namespace nimbrel::testing
