// The plug-in's table: every slot with every status it can answer with.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

#include "provider.h"
#include "support/system_log.h"

namespace nimbrel::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Module, DeclaresItsVersionsAndLogInModules) {
    EXPECT_EQ(Metadata().apiVersion, 3);
    EXPECT_STREQ(Metadata().pamModule, "pam_nimauth_embedded.so");
    EXPECT_STREQ(Metadata().nssModule, "nimembedded");
    EXPECT_EQ(Metadata().pamModuleParameters, nullptr);
    EXPECT_EQ(Metadata().nssModuleParameters, nullptr);
    EXPECT_EQ(Table().tableVersion, 2);
}

TEST(Module, FillsEverySlotButTheUnusedOne) {
    std::array<const void*, 16> slots = {};
    std::memcpy(slots.data(), reinterpret_cast<const char*>(&Table()) + 8, sizeof(slots));
    for (std::size_t i = 0; i < slots.size(); ++i) {
        EXPECT_EQ(slots[i] == nullptr, i + 1 == 6) << "slot " << i + 1;
    }
}

TEST(Module, ExportsTheTwoRecordsAndNothingElse) {
    FILE* nm = popen("nm -D --defined-only " NIMAUTH_EMBEDDED_MODULE " | awk '{print $3}' | sort", "r");
    ASSERT_NE(nm, nullptr);
    std::string symbols;
    for (int c = fgetc(nm); c != EOF; c = fgetc(nm)) {
        symbols += static_cast<char>(c);
    }
    EXPECT_EQ(pclose(nm), 0);
    EXPECT_EQ(symbols, "ActiveDirectoryClientMetadata\nActiveDirectoryClientOperations\n");
}

TEST(Module, StaysLoadedAfterItIsClosed) {
    void* module = LoadModule();
    const auto* table = static_cast<const NimauthProviderOperations*>(dlsym(module, "ActiveDirectoryClientOperations"));
    dlclose(module);
    EXPECT_EQ(table->tableVersion, 2);
}

// --- Null arguments ---

TEST_F(Provider, NullArgumentsAreInvalidParameters) {
    const auto& table = Table();
    const Credentials complete = {"admin1", kPassword};
    const Credentials noName = {nullptr, kPassword};
    const Credentials noPassword = {"admin1", nullptr};
    NimauthRelease release = nullptr;
    NimauthDomainRecord domain = {};
    NimauthDomainRecord** domains = nullptr;
    char* text = nullptr;
    char** texts = nullptr;
    EXPECT_EQ(table.joinDomain(nullptr, nullptr, &complete), 87U);
    EXPECT_EQ(table.joinDomain(kDomain, nullptr, nullptr), 87U);
    EXPECT_EQ(table.joinDomain(kDomain, nullptr, &noName), 87U);
    EXPECT_EQ(table.joinDomain(kDomain, nullptr, &noPassword), 87U);
    EXPECT_EQ(table.partDomain(&noName), 87U);
    EXPECT_EQ(table.partDomain(&noPassword), 87U);
    EXPECT_EQ(table.getActiveDomain(nullptr, &release), 87U);
    EXPECT_EQ(table.getActiveDomain(&domain, nullptr), 87U);
    EXPECT_EQ(table.setPreferredDomainControllers(nullptr), 87U);
    EXPECT_EQ(table.getPreferredDomainControllers(nullptr, &release), 87U);
    EXPECT_EQ(table.getPreferredDomainControllers(&texts, nullptr), 87U);
    EXPECT_EQ(table.getTrustedDomains(nullptr, &release), 87U);
    EXPECT_EQ(table.getTrustedDomains(&domains, nullptr), 87U);
    EXPECT_EQ(table.getMachineAccountDN(nullptr, &release), 87U);
    EXPECT_EQ(table.getMachineAccountDN(&text, nullptr), 87U);
    EXPECT_EQ(table.getAnyDomainController(nullptr, nullptr, &text, &release), 87U);
    EXPECT_EQ(table.getAnyDomainController(nullptr, kDomain, nullptr, &release), 87U);
    EXPECT_EQ(table.getAnyDomainController(nullptr, kDomain, &text, nullptr), 87U);
    EXPECT_EQ(table.convertCanonicalUsername(nullptr, &text, &release), 87U);
    EXPECT_EQ(table.convertCanonicalUsername("user1", nullptr, &release), 87U);
    EXPECT_EQ(table.convertCanonicalUsername("user1", &text, nullptr), 87U);
    EXPECT_EQ(table.getHostPrincipalForDomain(nullptr, &text, &release), 87U);
    EXPECT_EQ(table.getHostPrincipalForDomain(kDomain, nullptr, &release), 87U);
    EXPECT_EQ(table.getHostPrincipalForDomain(kDomain, &text, nullptr), 87U);
    EXPECT_EQ(table.setSmartCardEnabledServices(nullptr), 87U);
    EXPECT_EQ(table.getSmartCardEnabledServices(nullptr, &release), 87U);
    EXPECT_EQ(table.getSmartCardEnabledServices(&texts, nullptr), 87U);
    EXPECT_EQ(table.getDomainTrustRelationship(nullptr), kRelationshipNotMember);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(texts, nullptr);
}

TEST_F(Provider, NullFieldsOfAMachineAccountJoinAreInvalidParameters) {
    const NimauthDirectoryDomainRecord domain = {"", "CORP", kDomain, ""};
    const NimauthDirectoryDomainRecord nameless = {"", "CORP", nullptr, ""};
    const NimauthMachineAccountRecord account = {"node01", kDomain, "", "NODE01", "secret"};
    const auto join = Table().joinDomainWithMachineAccount;
    EXPECT_EQ(join(nullptr, &account), 87U);
    EXPECT_EQ(join(&domain, nullptr), 87U);
    EXPECT_EQ(join(&nameless, &account), 87U);
    const NimauthMachineAccountRecord noAccount = {"node01", kDomain, "", nullptr, "secret"};
    const NimauthMachineAccountRecord noSecret = {"node01", kDomain, "", "NODE01", nullptr};
    EXPECT_EQ(join(&domain, &noAccount), 87U);
    EXPECT_EQ(join(&domain, &noSecret), 87U);
    const std::string secret = Open().PreStageComputer(kDomain, "node01").oneTimeSecret;
    const NimauthDirectoryDomainRecord least = {nullptr, nullptr, kDomain, nullptr};
    const NimauthMachineAccountRecord leastAccount = {nullptr, nullptr, nullptr, "NODE01", secret.c_str()};
    EXPECT_EQ(join(&least, &leastAccount), 0U) << "the other fields may be null";
}

// --- A life in the domain ---

TEST_F(Provider, HostThatIsNotJoined) {
    EXPECT_EQ(ActiveDomain().status, 0U);
    EXPECT_EQ(ActiveDomain().text, "|");
    EXPECT_EQ(MachineAccountDN().status, 0U);
    EXPECT_EQ(MachineAccountDN().text, "");
    EXPECT_THAT(PreferredControllers().texts, IsEmpty());
    EXPECT_THAT(SmartCardServices().texts, IsEmpty());
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateNotMember);
    EXPECT_EQ(Table().getDomainTrustRelationship(kDomain), kRelationshipNotMember);
    EXPECT_EQ(TrustedDomains().status, 2U);
    EXPECT_EQ(CanonicalName("user1").status, 2692U);
    EXPECT_EQ(HostPrincipal(kDomain).status, 1355U);
    EXPECT_EQ(AnyController().text, "dc1.corp.test");
    EXPECT_EQ(Table().partDomain(nullptr), 2692U);
    EXPECT_EQ(Part(), 2692U);
}

TEST_F(Provider, JoinedHost) {
    Open().AddTrust({kDomain, "trust.test", "TRUST", TrustDirection::Bidirectional, {}});
    ASSERT_EQ(Join("admin1", kPassword, "OU=Hosts,DC=corp,DC=test"), 0U);
    EXPECT_EQ(ActiveDomain().text, "corp.test|CORP");
    EXPECT_EQ(MachineAccountDN().text, "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateHealthy);
    EXPECT_EQ(Table().getDomainTrustRelationship("corp.test"), kRelationshipOwnDomain);
    EXPECT_EQ(Table().getDomainTrustRelationship("trust.test"), kRelationshipBidirectional);
    EXPECT_EQ(Table().getDomainTrustRelationship("no.test"), kRelationshipUnknownDomain);
    EXPECT_THAT(TrustedDomains().texts, ElementsAre("trust.test|TRUST"));
    EXPECT_EQ(CanonicalName("CORP\\user1").text, "user1@corp.test");
    EXPECT_EQ(HostPrincipal("trust.test").text, "host/node01.corp.test@CORP.TEST");
    EXPECT_EQ(Join(), 2691U);
    EXPECT_EQ(Part(), 0U);
    EXPECT_EQ(ActiveDomain().text, "|");
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

TEST_F(Provider, LeaveTellsTheLogOfAnAccountThatIsNotItsOwnAnyMore) {
    ASSERT_EQ(Join(), 0U);
    Open().ResetComputer(kDomain, "NODE01");
    authentication::test::SystemLog log;
    EXPECT_EQ(Part(), 0U);
    EXPECT_THAT(log.Take(), ElementsAre(authentication::test::LogRecord{
                                LOG_WARNING,
                                "This host leaves 'corp.test' and its machine account 'NODE01' stays "
                                "there: it does not take this host's secret"}));
    EXPECT_EQ(ActiveDomain().text, "|");
    EXPECT_EQ(Open().ListComputers().size(), 1U);
}

TEST_F(Provider, ListsComeBackAsTheyWereSet) {
    const char* controllers[] = {"dc2.corp.test", "dc1.corp.test", nullptr};
    EXPECT_EQ(Table().setPreferredDomainControllers(controllers), 0U);
    EXPECT_THAT(PreferredControllers().texts, ElementsAre("dc2.corp.test", "dc1.corp.test"));
    const char* services[] = {"login", "sshd", nullptr};
    EXPECT_EQ(Table().setSmartCardEnabledServices(services), 0U);
    EXPECT_THAT(SmartCardServices().texts, ElementsAre("login", "sshd"));
    const char* none[] = {nullptr};
    EXPECT_EQ(Table().setPreferredDomainControllers(none), 0U);
    EXPECT_EQ(Table().setSmartCardEnabledServices(none), 0U);
    EXPECT_THAT(PreferredControllers().texts, IsEmpty());
    EXPECT_THAT(SmartCardServices().texts, IsEmpty());
}

TEST_F(Provider, MalformedListsAreRefused) {
    const std::string longText(100000, 'x');
    const char* malformed[] = {"no good", nullptr};
    const char* notUtf8[] = {"\xff\xfe", nullptr};
    const char* tooLong[] = {longText.c_str(), nullptr};
    EXPECT_EQ(Table().setPreferredDomainControllers(malformed), 1210U);
    EXPECT_EQ(Table().setPreferredDomainControllers(notUtf8), 1210U);
    EXPECT_EQ(Table().setPreferredDomainControllers(tooLong), 1210U);
    EXPECT_EQ(Table().setSmartCardEnabledServices(notUtf8), 87U);
    EXPECT_EQ(Table().setSmartCardEnabledServices(tooLong), 87U);
    std::vector<const char*> many(257, "login");
    many.push_back(nullptr);
    EXPECT_EQ(Table().setPreferredDomainControllers(many.data()), 87U);
    EXPECT_EQ(Table().setSmartCardEnabledServices(many.data()), 87U);
}

// --- Joins ---

TEST_F(Provider, JoinStatuses) {
    EXPECT_EQ(Join("admin1", kPassword, nullptr, "no.test"), 1355U);
    EXPECT_EQ(Join("admin1", kPassword, nullptr, "no good"), 1212U);
    EXPECT_EQ(Join("admin1", kPassword, nullptr, ""), 1212U);
    EXPECT_EQ(Join("admin1", "wrong"), 1326U);
    EXPECT_EQ(Join("nobody"), 1326U);
    EXPECT_EQ(Join("user1"), 5U);
    EXPECT_EQ(Join("admin1", kPassword, "Nowhere"), 2U);
    EXPECT_EQ(Join("admin1", kPassword, "a//b"), 267U);
    const struct {
        UserFlags flags;
        std::uint32_t status;
    } rows[] = {{{.disabled = true}, 1331},
                {{.locked = true}, 1909},
                {{.expired = true}, 1793},
                {{.passwordExpired = true}, 1330},
                {{.mustChangePassword = true}, 1907}};
    for (const auto& row : rows) {
        Open().SetUserFlags(kDomain, "user1", row.flags);
        EXPECT_EQ(Join("user1"), row.status);
    }
    Open().SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(Join(), 1355U);
    EXPECT_EQ(ActiveDomain().text, "|");
}

TEST_F(Provider, OddBytesInAJoinAreRefusedWithAStatus) {
    const std::string longText(100000, 'x');
    EXPECT_EQ(Join("admin1", kPassword, nullptr, "\xff\xfe"), 1212U);
    EXPECT_EQ(Join("admin1", kPassword, nullptr, longText.c_str()), 1212U);
    EXPECT_EQ(Join("\xff\xfe"), 1326U);
    EXPECT_EQ(Join(longText.c_str()), 1326U);
    EXPECT_EQ(Join("admin1", "\xff\xfe"), 1326U);
    EXPECT_EQ(Join("admin1", longText.c_str()), 1326U);
    EXPECT_EQ(Join("admin1", kPassword, "\xff\xfe"), 267U);
    EXPECT_EQ(Join("admin1", kPassword, longText.c_str()), 267U);
    EXPECT_EQ(AnyController(longText.c_str(), "\xff").status, 1212U);
    EXPECT_EQ(HostPrincipal("\xff").status, 1355U);
    EXPECT_EQ(CanonicalName("\xff").status, 1315U);
    EXPECT_EQ(CanonicalName(longText.c_str()).status, 1315U);
}

// The host name belongs to the private root; each test leaves it as it was.
class HostName {
 public:
    explicit HostName(const std::string& name) {
        gethostname(_before.data(), _before.size() - 1);
        EXPECT_EQ(sethostname(name.data(), name.size()), 0);
    }
    HostName(const HostName&) = delete;
    HostName& operator=(const HostName&) = delete;
    ~HostName() { EXPECT_EQ(sethostname(_before.data(), std::strlen(_before.data())), 0); }

 private:
    std::array<char, 256> _before = {};
};

TEST_F(Provider, JoinUsesTheShortHostName) {
    const HostName set("node77.lab.corp.test");
    EXPECT_EQ(Join(), 0U);
    EXPECT_EQ(MachineAccountDN().text, "CN=NODE77,CN=Computers,DC=corp,DC=test");
}

TEST_F(Provider, HostNamesThatADomainCannotTakeAreRefused) {
    for (const char* name : {"abcdefghijklmnop", "node_01", "12345"}) {
        const HostName set(name);
        EXPECT_EQ(Join(), 1210U) << name;
    }
}

TEST_F(Provider, MissingOrDamagedDirectory) {
    ASSERT_EQ(Join(), 0U);
    std::filesystem::remove(kDefaultDirectoryPath);
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateNoController);
    EXPECT_EQ(TrustedDomains().status, 1355U);
    EXPECT_EQ(AnyController().status, 1355U);
    EXPECT_EQ(Part(), 1355U);
    WriteFile(kDefaultDirectoryPath, "damaged");
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateUnreadable);
    EXPECT_EQ(TrustedDomains().status, 1359U);
    EXPECT_EQ(Part(), 1359U);
    EXPECT_EQ(ActiveDomain().text, "corp.test|CORP");
    EXPECT_EQ(Table().partDomain(nullptr), 0U);
    std::filesystem::remove_all("/var/lib/nimbrel");
    EXPECT_EQ(Join(), 1355U);
    EXPECT_FALSE(std::filesystem::exists("/var/lib/nimbrel")) << "questions and failed joins create nothing";
}

TEST_F(Provider, DamagedMembership) {
    WriteFile(kDefaultMembershipPath, "damaged");
    EXPECT_EQ(ActiveDomain().status, 1359U);
    EXPECT_EQ(MachineAccountDN().status, 1359U);
    EXPECT_EQ(PreferredControllers().status, 1359U);
    EXPECT_EQ(SmartCardServices().status, 1359U);
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateUnreadable);
    EXPECT_EQ(Table().getDomainTrustRelationship(kDomain), kRelationshipUnreadable);
    EXPECT_EQ(Join(), 1359U);
    EXPECT_EQ(Table().partDomain(nullptr), 1359U);
    EXPECT_THAT(Open().ListComputers(), IsEmpty());
}

TEST_F(Provider, FilesAreForRootAlone) {
    ASSERT_EQ(Join(), 0U);
    EXPECT_EQ(ModeOf(kDefaultDirectoryPath), 0600U);
    EXPECT_EQ(ModeOf(kDefaultMembershipPath), 0600U);
}

TEST_F(Provider, MachineAccountJoinWorksOnce) {
    const std::string secret = Open().PreStageComputer(kDomain, "node01", "Hosts").oneTimeSecret;
    EXPECT_EQ(JoinWithMachineAccount("NODE01$", secret.c_str(), "abcdefghijklmnop"), 1210U);
    EXPECT_EQ(JoinWithMachineAccount("NODE01$", "wrong"), 1326U);
    EXPECT_EQ(JoinWithMachineAccount("NODE01$", secret.c_str()), 0U);
    EXPECT_EQ(JoinWithMachineAccount("NODE01$", secret.c_str()), 2691U);
    EXPECT_EQ(MachineAccountDN().text, "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    EXPECT_EQ(Table().partDomain(nullptr), 0U);
    EXPECT_EQ(JoinWithMachineAccount("NODE01$", secret.c_str()), 1326U);
}

TEST_F(Provider, MachineAccountJoinComparesTheDomain) {
    const std::string secret = Open().PreStageComputer(kDomain, "node01").oneTimeSecret;
    const NimauthDirectoryDomainRecord domain = {"", "CORP", kDomain, "S-1-5-21-1-2-3"};
    const NimauthMachineAccountRecord account = {"node01", kDomain, "", "NODE01", secret.c_str()};
    EXPECT_EQ(Table().joinDomainWithMachineAccount(&domain, &account), 1810U);
}

TEST_F(Provider, TrustStates) {
    ASSERT_EQ(Join(), 0U);
    const auto state = [] { return Table().getDomainTrustState(); };
    Open().SetComputerEnabled(kDomain, "node01", false);
    EXPECT_EQ(state(), 4);
    Open().SetComputerEnabled(kDomain, "node01", true);
    EXPECT_EQ(state(), 1);
    Open().ResetComputer(kDomain, "node01");
    EXPECT_EQ(state(), 3);
    EXPECT_EQ(CanonicalName("user1").status, 1326U);
    Open().RemoveComputer(kDomain, "node01");
    EXPECT_EQ(state(), 5);
    EXPECT_EQ(TrustedDomains().status, 1787U);
    Open().SetControllerReachable(kDomain, "dc1.corp.test", false);
    EXPECT_EQ(state(), 8);
}

// --- Many at once ---

TEST_F(Provider, SixteenThreadsUseEveryOperation) {
    Open().AddTrust({kDomain, "trust.test", "TRUST", TrustDirection::Bidirectional, {}});
    ASSERT_EQ(Join(), 0U);
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([i] {
            const std::string name = "dc" + std::to_string(i);
            const char* controllers[] = {name.c_str(), nullptr};
            const char* services[] = {"login", nullptr};
            for (int round = 0; round < 3; ++round) {
                EXPECT_EQ(ActiveDomain().text, "corp.test|CORP");
                EXPECT_EQ(Table().setPreferredDomainControllers(controllers), 0U);
                EXPECT_EQ(PreferredControllers().texts.size(), 1U);
                EXPECT_EQ(Table().getDomainTrustState(), kTrustStateHealthy);
                EXPECT_EQ(TrustedDomains().texts.size(), 1U);
                EXPECT_EQ(MachineAccountDN().status, 0U);
                EXPECT_EQ(AnyController().text, "dc1.corp.test");
                EXPECT_EQ(CanonicalName("USER1").text, "user1@corp.test");
                EXPECT_EQ(HostPrincipal(kDomain).status, 0U);
                EXPECT_EQ(Table().getDomainTrustRelationship("trust.test"), kRelationshipBidirectional);
                EXPECT_EQ(Table().setSmartCardEnabledServices(services), 0U);
                EXPECT_EQ(SmartCardServices().texts.size(), 1U);
            }
            EXPECT_EQ(Join("admin1", "wrong"), 2691U);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

// --- The disk ---

// /var/lib/nimbrel with room for these bytes, for as long as it lives.
class SmallDisk {
 public:
    explicit SmallDisk(const std::string& options) {
        EXPECT_EQ(mount("tmpfs", "/var/lib/nimbrel", "tmpfs", 0, ("mode=0755," + options).c_str()), 0);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() { umount2("/var/lib/nimbrel", MNT_DETACH); }
};

TEST_F(Provider, FullDiskIsTold) {
    const SmallDisk disk("size=512k");
    std::filesystem::copy_file(TemplateDirectory(), kDefaultDirectoryPath);
    std::ofstream filler("/var/lib/nimbrel/filler");
    while (filler << 'x' << std::flush) continue;
    const char* const services[] = {"login", nullptr};
    EXPECT_EQ(Table().setSmartCardEnabledServices(services), 112U);
    EXPECT_EQ(Join(), 112U);
    std::filesystem::resize_file("/var/lib/nimbrel/filler", 0);
    EXPECT_EQ(Join(), 0U);
}

// No file can be made at all: neither a lock nor a log.
TEST_F(Provider, DiskWithoutRoomForANameIsTold) {
    const SmallDisk disk("nr_inodes=2");
    std::filesystem::copy_file(TemplateDirectory(), kDefaultDirectoryPath);
    const char* const services[] = {"login", nullptr};
    EXPECT_EQ(Table().setSmartCardEnabledServices(services), 112U);
}

}  // namespace
}  // namespace nimbrel::embedded::test
