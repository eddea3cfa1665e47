// A host of its own for each test: fresh settings, an empty /var/lib/nimbrel, its host name and hosts file as
// installed, and the installed nimauthctl to run on it.
//
// Runs in a private root only. Nothing that a program shows may hold one of the passwords used here: every run is
// searched for them.

#ifndef TESTS_SYSTEM_NIMAUTHCTL_TOOL_HOST_H_
#define TESTS_SYSTEM_NIMAUTHCTL_TOOL_HOST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/run_program.h"

namespace nimbrel::testing {

inline constexpr char kTool[] = "/usr/bin/nimauthctl";
inline constexpr char kPassword[] = "Correct-Horse-7";
inline constexpr char kWrongPassword[] = "Wrong-Donkey-8";
inline constexpr uid_t kNobody = 65534;

using Words = std::vector<std::string>;

class ToolHost : public ::testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;

    // Runs the tool, and expects that the command's help tells of the status that it ends with. Its time-out for answers
    // is the default of a minute unless the words say otherwise.
    static ProgramResult Ctl(Words words, ProgramOptions options = {});
    // The same with the password on standard input, and --password-stdin.
    static ProgramResult CtlWithPassword(Words words, const std::string& password = kPassword);
    // As an ordinary user.
    static ProgramResult CtlAsNobody(Words words);

    // Runs the tool and expects success.
    static std::string Done(const Words& words);

    // The embedded directory holds corp.test; "administrator" may join hosts, "alice" may not.
    static void HaveDomain();
    // The host is in corp.test, and its active store is "Active Directory".
    static void HaveJoined();
    static void AddUser(const std::string& name, const Words& flags = {});

    static void WriteFile(const std::string& path, const std::string& text);
    static std::string ReadFile(const std::string& path);
    static void SetHostName(const std::string& name);

 private:
    std::string _hosts;
};

MATCHER_P(ExitsWith, status, "exits with " + std::to_string(status)) { return arg.exitStatus == status; }

// Whether one of the text's lines is exactly this.
MATCHER_P(HasLine, line, "has the line \"" + std::string(line) + '"') {
    return ("\n" + std::string(arg)).find("\n" + std::string(line) + "\n") != std::string::npos;
}

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_NIMAUTHCTL_TOOL_HOST_H_
