// Joining and leaving with everything real but the directory: host name, resolver, hosts file, DNS search list,
// configuration store on disk, and system log. Only `sleep` is stood in for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "store/journal.h"
#include "store/root.h"
#include "store/scripted_control.h"
#include "store/thrown.h"

namespace nimbrel::authentication::test {
namespace {

using HostMgmt::Lib::HostMgmtException;
using OrbConfigStore::ConfigStoreException;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kStoreFolder = "/var/lib/nimbrel";
constexpr const char* kStoreFile = "/var/lib/nimbrel/configstore.db";
constexpr const char* kResolverFile = "/etc/resolv.conf";

// The system log's end of /dev/log.
class SystemLog {
 public:
    SystemLog() : _socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        Remove("/dev/log");
        sockaddr_un address = {AF_UNIX, "/dev/log"};
        if (bind(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;
    ~SystemLog() { close(_socket); }

    // What was sent since the last time, with "<priority>" in front, as it arrived.
    std::vector<std::string> Take() const {
        std::vector<std::string> lines;
        char line[8192];
        for (ssize_t length = 0; (length = recv(_socket, line, sizeof line, 0)) > 0;) {
            lines.emplace_back(line, static_cast<std::size_t>(length));
        }
        return lines;
    }

 private:
    int _socket;
};

// A line of the system log with exactly this text, from a user process.
auto Line(int priority, const std::string& text) {
    return AllOf(StartsWith("<" + std::to_string(LOG_USER | priority) + ">"), EndsWith(": " + text));
}

class RealMembership : public ::testing::Test {
 protected:
    RealMembership() : _hosts(ReadFile(kHostsFile)), _resolver(ReadFile(kResolverFile)) {
        Remove(kStoreFolder);
        log.Take();
        Journal::Clear();
    }
    ~RealMembership() override {
        for (const std::string& line : log.Take()) ADD_FAILURE() << "not expected in the system log: " << line;
        WriteSystemFile(kHostsFile, _hosts);
        WriteSystemFile(kResolverFile, _resolver);
    }

    void Join(const std::string& domain) { store->JoinDomain(domain, {"administrator", "Pa55-w0rd"}, true); }
    void JoinChecked(const std::string& domain) { store->JoinDomain(domain, {"administrator", "Pa55-w0rd"}, false); }

    static std::string JoinCall(const std::string& domain) {
        return "join(" + domain + ", null, administrator, Pa55-w0rd)";
    }

    static std::string StoredDomain() { return ActiveDirectoryConfigStore().GetDomainName(); }

    // A join whose settings cannot be stored: the host leaves again, the reason is logged and reaches the caller.
    template <typename Matcher>
    void ExpectJoinIsUndone(const Matcher& reason) {
        Journal::Clear();
        const std::string text = TextOf<ConfigStoreException>([this] { Join("lab.test"); });
        EXPECT_THAT(text, reason);
        EXPECT_THAT(Journal::Entries(), ElementsAre(JoinCall("lab.test"), "part(null)"));
        EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_ERR, "Failed to store domain details to Config Store: " + text +
                                                              ".Leaving Domain...")));
    }

    static inline const SystemLog log;
    ScriptedControl provider;
    std::unique_ptr<ActiveDirectoryStore> store = std::make_unique<ActiveDirectoryStore>(60);

 private:
    const std::string _hosts;
    const std::string _resolver;
};

TEST_F(RealMembership, IsKeptOnDiskForItsOwnerAlone) {
    Join("corp.test/OU=Hosts");
    EXPECT_EQ(StoredDomain(), "corp.test");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetOrganizationalUnit(), "OU=Hosts");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetAuthProxyAddr(), "");
    EXPECT_EQ(StatusOfFile(kStoreFile).st_mode & 0777u, 0600u);
}

TEST_F(RealMembership, OfAHostThatNeverJoinedIsUnknownAndMakesNoFile) {
    EXPECT_EQ(TextOf<ConfigurationError>([] { StoredDomain(); }), "Failed to get the requested object");
    store->PartDomain();
    EXPECT_FALSE(Exists(kStoreFolder));
}

TEST_F(RealMembership, LosesTheOrganizationalUnitOfAnEarlierJoin) {
    Join("corp.test/OU=Hosts");
    Join("lab.test");
    EXPECT_EQ(StoredDomain(), "lab.test");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetOrganizationalUnit(), "");
}

TEST_F(RealMembership, EndsWithoutTheTrustedCertificate) {
    const std::string certificate = "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n";
    ActiveDirectoryConfigStore().StoreAuthProxyCertInfo("0A:1B", certificate);
    Join("corp.test");
    store->PartDomain();
    EXPECT_EQ(TextOf<ConfigurationError>([] { StoredDomain(); }), "Failed to get the requested object");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetThumbprint(), "0A:1B");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetCertificate(), certificate);
}

TEST_F(RealMembership, LeftWithCredentialsStaysOnDisk) {
    Join("corp.test");
    store->PartDomain({"administrator", "Pa55-w0rd"});
    EXPECT_EQ(StoredDomain(), "corp.test");
}

TEST_F(RealMembership, MapsTheHostsOwnAddress) {
    WriteSystemFile(kHostsFile, "127.0.0.1 localhost\n192.0.2.10 node01 # rack 4\n192.0.2.53 corp.test\n");
    JoinChecked("corp.test");
    EXPECT_EQ(ReadFile(kHostsFile),
              "127.0.0.1 localhost\n192.0.2.10\tnode01.corp.test node01 # rack 4\n192.0.2.53 corp.test\n");
    EXPECT_EQ(ReadFile(kResolverFile), "nameserver 127.0.0.1\n");
}

TEST_F(RealMembership, InADomainElsewhereThatResolvesIsSearched) {
    WriteSystemFile(kHostsFile, "192.0.2.10 node01.old.test node01\n192.0.2.53 corp.test\n");
    JoinChecked("corp.test");
    EXPECT_EQ(ReadFile(kResolverFile), "nameserver 127.0.0.1\nsearch corp.test\n");
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_WARNING,
                                             "The fully qualified hostname node01.old.test does not match "
                                             "the expected value node01.corp.test\n")));
}

TEST_F(RealMembership, WithoutTheHostNameCheckChangesNoNetworkFile) {
    WriteSystemFile(kHostsFile, "192.0.2.10 node01.old.test node01\n192.0.2.53 corp.test\n");
    const ino_t before = StatusOfFile(kHostsFile).st_ino;
    Join("corp.test");
    EXPECT_EQ(StatusOfFile(kHostsFile).st_ino, before);
    EXPECT_EQ(ReadFile(kResolverFile), "nameserver 127.0.0.1\n");
}

TEST_F(RealMembership, IsNotBegunWhenTheHostsFileCannotBeWritten) {
    WriteSystemFile(kHostsFile, "192.0.2.10 node01\n");
    {
        const MountedOnItself hosts(kHostsFile);
        hosts.MakeReadOnly();
        EXPECT_THAT(TextOf<HostMgmtException>([this] { JoinChecked("corp.test"); }),
                    AllOf(HasSubstr(kHostsFile), HasSubstr("Read-only file system")));
    }
    EXPECT_THAT(Journal::Entries(), IsEmpty());
    EXPECT_EQ(ReadFile(kHostsFile), "192.0.2.10 node01\n");
    EXPECT_FALSE(Exists(kStoreFolder));
}

TEST_F(RealMembership, IsUndoneOnAReadOnlyFileSystemThatNeverHeldTheStore) {
    const MountedOver folder(kStoreFolder, "size=1m");
    folder.MakeReadOnly();
    ExpectJoinIsUndone(HasSubstr("Read-only file system"));
}

TEST_F(RealMembership, IsUndoneOnAFileSystemThatBecameReadOnly) {
    const MountedOver folder(kStoreFolder, "size=1m");
    Join("corp.test");
    folder.MakeReadOnly();
    ExpectJoinIsUndone(HasSubstr(kStoreFile));
}

TEST_F(RealMembership, IsUndoneOnAFullFileSystemAndTheEarlierSettingsStay) {
    const MountedOver folder(kStoreFolder, "size=1m");
    Join("corp.test");
    folder.Fill();
    ExpectJoinIsUndone(HasSubstr("No space left on device"));
    folder.Empty();
    EXPECT_EQ(StoredDomain(), "corp.test");
}

TEST_F(RealMembership, IsUndoneOnAFullFileSystemThatNeverHeldTheStore) {
    const MountedOver folder(kStoreFolder, "size=64k");
    folder.Fill();
    ExpectJoinIsUndone(HasSubstr("full"));
}

TEST_F(RealMembership, IsUndoneWhereAFolderIsInTheStoresPlace) {
    MakeFolder(kStoreFile);
    ExpectJoinIsUndone(AllOf(HasSubstr(kStoreFile), HasSubstr("not a regular file")));
}

TEST_F(RealMembership, IsUndoneWhereTheStoreIsNoDatabase) {
    WriteSystemFile(kStoreFile, "remote-authentication-store = \"None\"\n");
    ExpectJoinIsUndone(HasSubstr("not a database"));
    EXPECT_EQ(ReadFile(kStoreFile), "remote-authentication-store = \"None\"\n");
}

TEST_F(RealMembership, ThatCanBeNeitherStoredNorEndedReportsTheLeave) {
    MakeFolder(kStoreFile);
    provider.Answer(SCRIPTED_PART, {5});
    EXPECT_EQ(TextOf<AccessDeniedException>([this] { Join("corp.test"); }), "Exception 0x00000005: Access is denied.");
    EXPECT_THAT(log.Take(), ElementsAre(AllOf(HasSubstr("Failed to store domain details to Config Store: "),
                                              EndsWith(".Leaving Domain..."))));
}

TEST_F(RealMembership, EndsAlthoughTheSettingsCannotBeRemoved) {
    const MountedOver folder(kStoreFolder, "size=1m");
    Join("corp.test");
    Journal::Clear();
    folder.MakeReadOnly();
    const std::string text = TextOf<ConfigStoreException>([this] { store->PartDomain(); });
    EXPECT_THAT(Journal::Entries(), ElementsAre("part(null)"));
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_ERR, "Failed to remove domain details from Config Store: " + text)));
}

}  // namespace
}  // namespace nimbrel::authentication::test
