// A host of its own for each test of `nimauthctl logins`: the machine's real PAM files and the C library's stock
// nsswitch.conf, in the private root; the host joined to the embedded domain corp.test with the user alice; a local user
// bob. The provider's log-in modules are installed.
//
// Every test ends with a look: no file lies about that was only prepared.

#ifndef TESTS_SYSTEM_LOGINS_LOGINS_HOST_H_
#define TESTS_SYSTEM_LOGINS_LOGINS_HOST_H_

#include <map>
#include <string>

#include "nimauthctl/tool_host.h"
#include "tools/loginfiles/file_state.h"

namespace nimbrel::testing {

inline constexpr char kBobPassword[] = "Local-Bob-9";
inline constexpr char kRootPassword[] = "Local-Root-9";
inline constexpr char kModule[] = "pam_nimauth_embedded.so";
inline constexpr char kPamModulePath[] = "/usr/lib/" NIMAUTH_MULTIARCH "/security/pam_nimauth_embedded.so";
inline constexpr char kHelperPath[] = "/usr/libexec/nimauth/logins-helper";

// The state of every file that decides about logins, by path. Only what differs from the state is touched by `PutBack`.
using LoginFiles = std::map<std::string, logins::FileState>;
LoginFiles ReadLoginFiles();
void PutBack(const LoginFiles& files);

// The paths at which two sets differ.
std::vector<std::string> Differences(const LoginFiles& a, const LoginFiles& b);

class LoginsHost : public ToolHost {
 protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    // `pamtester` with the password typed; true if it says yes to logging in and to the account.
    static bool LogsIn(const std::string& service, const std::string& user, const std::string& password);
    // Many at once: expects each of them to be refused.
    struct Attempt {
        std::string service;
        std::string user;
        std::string password;
    };
    static void ExpectRefused(const std::vector<Attempt>& attempts);
    static void Enable(const Words& more = {"--confirm-within", "0"});
    static void Disable(const Words& more = {"--confirm-within", "0"});
    // Returns what nimauthctl said on standard error.
    static std::string Refused(const Words& words, int status = 1);

    // No file that was only prepared lies about.
    static void TearDownLook();

    // As the host was when the test began.
    void ExpectUntouched() const;
    const LoginFiles& Before() const { return _before; }

    // Waits until change `id` has this state, as its watcher brings it about; fails after half a minute.
    static void AwaitState(int id, const std::string& state);
    static std::string StateOf(int id);

 private:
    LoginFiles _before;
};

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_LOGINS_LOGINS_HOST_H_
