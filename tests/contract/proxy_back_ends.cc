// The contract of the proxy service's back ends, passed by the embedded directory and by the tests' own in memory.

#include "apx/memory_back_end.h"
#include "contract/proxy_back_end_contract.h"
#include "embeddeddirectory/directory.h"
#include "services/apxd/embedded_back_end.h"
#include "support/temporary_folder.h"

namespace nimbrel::apxd::test {
namespace {

class InMemory {
 public:
    apxd::BackEnd& BackEnd() { return _backEnd; }
    std::uint32_t Join(const std::string& accountName, const std::string& secret) {
        auto& account = _backEnd.accounts.at(accountName.substr(0, accountName.size() - 1));
        if (!account.waiting || account.secret != secret) return kLogonFailure;
        account.waiting = false;
        return 0;
    }
    void PreStage(const std::string& name) { _backEnd.accounts[name] = {}; }
    void Delete(const std::string& name) { _backEnd.accounts.erase(name); }
    static std::string Domain() { return "corp.test"; }
    static std::string Unit() { return "Hosts"; }

 private:
    MemoryBackEnd _backEnd;
};

class Embedded {
 public:
    Embedded() {
        auto directory = embedded::Directory::Open(_file, embedded::OpenMode::CreateIfMissing);
        directory.AddDomain("corp.test");
        directory.AddOrganizationalUnit("corp.test", "Hosts");
        _backEnd = MakeEmbeddedBackEnd(_file, "corp.test");
    }
    apxd::BackEnd& BackEnd() { return *_backEnd; }
    std::uint32_t Join(const std::string& accountName, const std::string& secret) {
        try {
            Open().JoinPreStagedComputer("corp.test", accountName, secret);
            return 0;
        } catch (const embedded::DirectoryError& error) {
            return error.Status();
        }
    }
    void PreStage(const std::string& name) { Open().PreStageComputer("corp.test", name); }
    void Delete(const std::string& name) { Open().RemoveComputer("corp.test", name); }
    static std::string Domain() { return "corp.test"; }
    static std::string Unit() { return "Hosts"; }
    embedded::Directory Open() const { return embedded::Directory::Open(_file); }

 private:
    const TemporaryFolder _folder;
    const std::string _file = _folder / "directory.db";
    std::unique_ptr<apxd::BackEnd> _backEnd;
};

INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, ProxyBackEndContract, InMemory);
INSTANTIATE_TYPED_TEST_SUITE_P(Embedded, ProxyBackEndContract, Embedded);

// --- What only the embedded directory can show ---

TEST(EmbeddedProxyBackEnd, ADisabledAccountIsRefused) {
    Embedded maker;
    maker.BackEnd().Create({"NODE01", "", kMark});
    maker.Open().SetComputerEnabled("corp.test", "NODE01", false);
    EXPECT_EQ(StatusOf([&] { maker.BackEnd().Renew("NODE01", kMark); }), 1331U);
}

TEST(EmbeddedProxyBackEnd, AResetTakesTheMarkAway) {
    Embedded maker;
    maker.BackEnd().Create({"NODE01", "", kMark});
    maker.Open().ResetComputer("corp.test", "NODE01");
    EXPECT_EQ(StatusOf([&] { maker.BackEnd().Renew("NODE01", kMark); }), kAccountExists);
    EXPECT_EQ(StatusOf([&] { maker.BackEnd().TakeOver("NODE01", kMark); }), kAccountExists);
}

TEST(EmbeddedProxyBackEnd, AMalformedMarkIsRefused) {
    Embedded maker;
    for (const char* const mark : {"", "0123", "0123456789abcdef0123456789abcdeg"}) {
        EXPECT_EQ(StatusOf([&] { maker.BackEnd().Create({"NODE01", "", mark}); }), kInvalidParameter) << mark;
    }
}

TEST(EmbeddedProxyBackEnd, ADomainThatCannotBeAskedIs1355) {
    Embedded maker;
    maker.Open().SetControllerReachable("corp.test", "dc1.corp.test", false);
    EXPECT_EQ(StatusOf([&] { maker.BackEnd().Create({"NODE01", "", kMark}); }), kNoSuchDomain);
    EXPECT_EQ(StatusOf([&] { maker.BackEnd().Renew("NODE01", kMark); }), kNoSuchDomain);
    maker.Open().RemoveDomain("corp.test");
    EXPECT_EQ(StatusOf([&] { maker.BackEnd().Domain(); }), kNoSuchDomain);
}

}  // namespace
}  // namespace nimbrel::apxd::test
