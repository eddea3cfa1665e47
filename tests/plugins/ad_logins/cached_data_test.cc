#include "cached_data.h"

#include <filesystem>
#include <string>

#include "log_ins_root.h"

namespace nimbrel::ad::test {
namespace {

using namespace logins;

// A credential cache as Kerberos writes it, up to the name of its owner: version, an empty header, the kind of name, one
// part, the realm, the part.
std::string CacheOf(const std::string& realm, const std::string& user) {
    const auto number = [](std::size_t value) {
        return std::string{0, 0, static_cast<char>(value >> 8), static_cast<char>(value)};
    };
    const std::string header("\x05\x04\x00\x0c\x00\x01\x00\x08\x00\x00\x00\x00\x00\x00\x00\x00", 16);
    return header + number(1) + number(1) + number(realm.size()) + realm + number(user.size()) + user;
}

class CachedDataTest : public LogInsRoot {
 protected:
    void PutDomain(const std::string& domain, const std::string& realm, const std::string& underscored) const {
        for (const auto& file :
             {"db/cache_" + domain + ".ldb", "db/timestamps_" + domain + ".ldb", "db/ccache_" + realm,
              "db/fast_ccache_" + realm, "pubconf/kdcinfo." + realm, "pubconf/kpasswdinfo." + realm,
              "pubconf/krb5.include.d/domain_realm_" + underscored, "gpo_cache/" + domain + "/Policies/gpt.ini"}) {
            Put("/var/lib/sss/" + file, "x", 0600);
        }
    }
};

TEST_F(CachedDataTest, EverythingOfTheDomainGoesAndTheOthersStay) {
    PutDomain("other.test", "OTHER.TEST", "other_test");
    Put("/var/lib/sss/pubconf/krb5.include.d/localauth_plugin", "x");
    const auto before = Everything();
    PutDomain("corp.test", "CORP.TEST", "corp_test");
    Put("/var/lib/sss/mc/passwd", "x");
    Put("/var/lib/sss/mc/group", "x");
    Put("/var/lib/sss/db/config.ldb", "x");
    RemoveCachedData(RootPath(), {"corp.test"});
    EXPECT_TRUE(std::filesystem::remove(Path("/var/lib/sss/mc")));
    EXPECT_EQ(Everything(), before);
}

TEST_F(CachedDataTest, TheDomainsNameMayHaveCapitals) {
    PutDomain("Corp.Test", "CORP.TEST", "corp_test");
    RemoveCachedData(RootPath(), {"Corp.Test"});
    EXPECT_FALSE(Has("/var/lib/sss/db/cache_Corp.Test.ldb"));
    EXPECT_FALSE(Has("/var/lib/sss/db/ccache_CORP.TEST"));
}

TEST_F(CachedDataTest, OnlyTicketsOfTheDomainsOwnUsersGo) {
    Put("/tmp/krb5cc_200001_Xy12Ab", CacheOf("CORP.TEST", "user1"), 0600);
    Put("/tmp/krb5cc_200002", CacheOf("CORP.TEST", "user2"), 0600);
    const std::pair<const char*, std::string> stay[] = {
        {"/tmp/krb5cc_0", CacheOf("CORP.TEST", "administrator")},
        {"/tmp/krb5cc_1000", CacheOf("CORP.TEST", "local")},
        {"/tmp/krb5cc_200003", CacheOf("OTHER.TEST", "user3")},
        {"/tmp/krb5cc_200004", CacheOf("CORP.TEST.EVIL", "user4")},
        {"/tmp/krb5cc_200005", "garbage"},
        {"/tmp/krb5cc_200006", ""},
        {"/tmp/krb5cc_200007", CacheOf("CORP.TEST", "user7").substr(0, 20)},
        {"/tmp/krb5cc_200008", std::string("\x05\x04\xff\xff", 4)},
        {"/tmp/krb5cc_200009", CacheOf("CORP.TEST", "user9").substr(0, 30)},
        {"/tmp/other", CacheOf("CORP.TEST", "user1")},
    };
    for (const auto& [path, text] : stay) Put(path, text, 0600);
    std::filesystem::create_symlink(Path("/tmp/krb5cc_0"), Path("/tmp/krb5cc_200010"));
    RemoveCachedData(RootPath(), {"corp.test"});
    EXPECT_FALSE(Has("/tmp/krb5cc_200001_Xy12Ab"));
    EXPECT_FALSE(Has("/tmp/krb5cc_200002"));
    for (const auto& [path, text] : stay) EXPECT_EQ(Text(path), text) << path;
    EXPECT_TRUE(Has("/tmp/krb5cc_200010"));
}

TEST_F(CachedDataTest, ALeaveTakesTheCachedDataOfTheDomainAndItsForests) {
    auto corp = Corp();
    corp.trustedForests = {"trust.test"};
    logIns.Enable(corp);
    PutDomain("corp.test", "CORP.TEST", "corp_test");
    PutDomain("trust.test", "TRUST.TEST", "trust_test");
    Put("/tmp/krb5cc_200001", CacheOf("TRUST.TEST", "user1"), 0600);
    logIns.Disable();
    for (const char* const folder :
         {"/var/lib/sss/db", "/var/lib/sss/pubconf/krb5.include.d", "/var/lib/sss/gpo_cache", "/tmp"}) {
        EXPECT_TRUE(NamesIn(folder).empty()) << folder;
    }
}

TEST_F(CachedDataTest, AnotherDomainDoesNotInheritTheOldOnes) {
    logIns.Enable(Corp());
    PutDomain("corp.test", "CORP.TEST", "corp_test");
    PutDomain("other.test", "OTHER.TEST", "other_test");
    logIns.Enable(Other());
    EXPECT_FALSE(Has("/var/lib/sss/db/cache_corp.test.ldb"));
    EXPECT_TRUE(Has("/var/lib/sss/db/cache_other.test.ldb"));
}

TEST_F(CachedDataTest, WhatCannotBeRemovedIsToldAndTheNextLeaveTriesAgain) {
    logIns.Enable(Corp());
    PutDomain("corp.test", "CORP.TEST", "corp_test");
    std::filesystem::remove(Path("/var/lib/sss/db/cache_corp.test.ldb"));
    Put("/var/lib/sss/db/cache_corp.test.ldb/in_the_way", "x");
    EXPECT_EQ(StatusOf([&] { logIns.Disable(); }), 1359U);
    EXPECT_FALSE(Has("/var/lib/sss/db/ccache_CORP.TEST")) << "the rest goes all the same";
    EXPECT_FALSE(Has(kDomainFile));
    EXPECT_TRUE(Has(kRecordFile));
    std::filesystem::remove_all(Path("/var/lib/sss/db/cache_corp.test.ldb"));
    logIns.Disable();
    EXPECT_FALSE(Has(kRecordFile));
}

}  // namespace
}  // namespace nimbrel::ad::test
