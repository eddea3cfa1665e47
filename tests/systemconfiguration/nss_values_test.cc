// Databases and services: names, values, equality, and the texts of the exception.

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <type_traits>

#include "authentication/exceptions.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/thrown.h"

namespace {

using namespace std::string_literals;
using SystemConfiguration::InvalidDatabaseException;
using SystemConfiguration::NSSConfiguration;
using SystemConfiguration::NSSDatabase;
using SystemConfiguration::NSSService;
using Words = std::list<std::string>;

constexpr int kSmallest = std::numeric_limits<std::int32_t>::min();
constexpr int kLargest = std::numeric_limits<std::int32_t>::max();

const char* const kNames[] = {"passwd",   "group",      "shadow",    "hosts",     "netmasks",
                              "networks", "protocols",  "services",  "ethers",    "rpc",
                              "netgroup", "bootparams", "publickey", "automount", "aliases"};

NSSDatabase DatabaseOf(int value) { return NSSDatabase(static_cast<NSSDatabase::Database>(value)); }
int ValueOf(const NSSDatabase& database) { return static_cast<NSSDatabase::Database>(database); }

TEST(NssExceptions, StandOnTheirOwn) {
    static_assert(std::is_base_of_v<std::exception, InvalidDatabaseException>);
    static_assert(!std::is_base_of_v<nimbrel::authentication::Exception, InvalidDatabaseException>);
    static_assert(sizeof(InvalidDatabaseException) == sizeof(std::exception) + sizeof(std::string));
    static_assert(!std::is_default_constructible_v<InvalidDatabaseException>);
    EXPECT_STREQ(InvalidDatabaseException("a text").what(), "a text");
}

TEST(NssValues, DatabaseIsFourSignedBytes) {
    static_assert(sizeof(NSSDatabase) == 4 && sizeof(NSSDatabase::Database) == 4);
    static_assert(std::is_signed_v<std::underlying_type_t<NSSDatabase::Database>>);
    static_assert(!std::is_polymorphic_v<NSSDatabase> && !std::is_polymorphic_v<NSSService>);
    static_assert(!std::is_polymorphic_v<NSSConfiguration>);
}

TEST(NssDatabase, NamesAndValuesBelongTogether) {
    int value = 0;
    for (const char* const name : kNames) {
        SCOPED_TRACE(name);
        ++value;
        const NSSDatabase database{std::string(name)};
        EXPECT_EQ(ValueOf(database), value);
        EXPECT_EQ(static_cast<std::string>(DatabaseOf(value)), name);
        NSSDatabase assigned;
        assigned = std::string(name);
        EXPECT_TRUE(assigned == database);
        EXPECT_TRUE(assigned == std::string(name));
        EXPECT_FALSE(assigned == DatabaseOf(value + 1));
        EXPECT_FALSE(DatabaseOf(value + 1) == std::string(name));
    }
    EXPECT_EQ(value, 15);
}

TEST(NssDatabase, OtherNamesAreRefused) {
    for (const std::string& name :
         {""s, "passw"s, "passwd:"s, "Passwd"s, "passwd "s, "sudoers"s, "initgroups"s, "\n"s}) {
        NSSDatabase database = NSSDatabase::Hosts;
        using Error = InvalidDatabaseException;
        EXPECT_EQ(Thrown<Error>([&] { NSSDatabase made(name); }), "Invalid Database: " + name);
        EXPECT_EQ(Thrown<Error>([&] { database = name; }), "Invalid Database: " + name);
        EXPECT_EQ(Thrown<Error>([&] { (void)(database == name); }), "Invalid Database: " + name);
        EXPECT_EQ(ValueOf(database), 4) << "a refused name leaves the value";
    }
}

TEST(NssDatabase, ValuesAreNotChecked) {
    for (const int value : {kSmallest, -1, 0, 16, kLargest}) {
        NSSDatabase assigned = NSSDatabase::Hosts;
        assigned = static_cast<NSSDatabase::Database>(value);
        EXPECT_EQ(ValueOf(assigned), value);
        EXPECT_TRUE(assigned == DatabaseOf(value));
        EXPECT_TRUE(NSSDatabase(assigned) == assigned);
    }
}

TEST(NssDatabase, StartsWithoutAName) {
    EXPECT_THROW((void)static_cast<std::string>(NSSDatabase()), InvalidDatabaseException);
}

TEST(NssDatabase, MessageOfANamelessValueStartsThere) {
    for (const int value : {0, 16, 17, 18}) {
        EXPECT_EQ(Thrown<InvalidDatabaseException>([&] { (void)static_cast<std::string>(DatabaseOf(value)); }),
                  std::string("Invalid Database: ").substr(static_cast<std::size_t>(value)));
    }
    for (const int value : {kSmallest, -1, 19, 1000, kLargest}) {
        EXPECT_THROW((void)static_cast<std::string>(DatabaseOf(value)), InvalidDatabaseException) << value;
    }
}

NSSService Service(const std::string& module, Words parameters = {}) {
    NSSService service(module);
    service.parameters() = std::move(parameters);
    return service;
}

TEST(NssService, StartsWithoutCriteria) {
    NSSService service("files");
    EXPECT_EQ(service.module(), "files");
    EXPECT_TRUE(service.parameters().empty());
}

TEST(NssService, EqualityNeedsModuleAndCriteriaInOrder) {
    const NSSService service = Service("files", {"a", "b"});
    EXPECT_TRUE(service == Service("files", {"a", "b"}));
    EXPECT_FALSE(service == Service("Files", {"a", "b"}));
    EXPECT_FALSE(service == Service("files", {"b", "a"}));
    EXPECT_FALSE(service == Service("files", {"a"}));
    EXPECT_FALSE(service == Service("files", {"a", "b", ""}));
}

TEST(NssConfiguration, DatabaseExistsFromTheFirstCallOn) {
    NSSConfiguration configuration;
    std::deque<NSSService>& services = configuration[NSSDatabase::Hosts];
    EXPECT_TRUE(services.empty());
    services.push_back(Service("files"));
    EXPECT_EQ(&configuration["hosts"s], &services);
    EXPECT_EQ(configuration[NSSDatabase::Hosts].size(), 1U);
}

}  // namespace
