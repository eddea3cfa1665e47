// The modes and owners of all that the tool, the providers, the log-in modules and the proxy service make on a host, by
// their real operations, whatever the umask of who started them.

#include <sys/stat.h>

#include <filesystem>

#include "apx/service.h"
#include "files.h"
#include "logins/logins_host.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;

constexpr char kCertificate[] = "/srv/proxy.pem";

class CreatedFilesTest : public LoginsHost, public ::testing::WithParamInterface<mode_t> {
 protected:
    // A host that nobody has used yet.
    void SetUp() override {
        LoginsHost::SetUp();
        fs::remove_all("/var/lib/nimbrel");
        fs::remove_all("/run/apxd");
        WriteFile("/etc/nimbrel/nimauth/authentication.conf", "remote-authentication-store = \"None\"\n");
        Configure(_certificate);
        WriteFile(kCertificate, _certificate.pem);
        _earlier = FilesOfTheHost();
        umask(GetParam());
    }
    void TearDown() override {
        umask(022);
        LoginsHost::TearDown();
    }

    void ExpectMade() const {
        umask(022);
        ExpectModes(_earlier, FilesOfTheHost());
        umask(GetParam());
    }

 private:
    const Certificate _certificate = MakeCertificate("proxy.corp.test");
    Files _earlier;
};

TEST_P(CreatedFilesTest, HaveTheirModesAndBelongToRoot) {
    HaveJoined();
    Done({"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "1"});
    Done({"proxy", "cert", "import", kCertificate});
    Done({"dc", "prefer", "dc1.corp.test"});
    Done({"smartcard", "set", "sshd"});
    ExpectMade();

    Enable();
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
    ExpectMade();

    {
        Service service;
        EXPECT_EQ(0U, AskAccount("127.0.0.1", {}, "node02.corp.test").status);
        ExpectMade();
    }
    Disable();
    Done({"leave"});
    ExpectMade();
}

INSTANTIATE_TEST_SUITE_P(Umasks, CreatedFilesTest, ::testing::Values(0000, 0022, 0077, 0777));

}  // namespace
}  // namespace nimbrel::testing
