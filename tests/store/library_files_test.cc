// The three settings files of the library: where they lie, what they hold, and what their readers say when they are
// absent, empty or damaged.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <type_traits>

#include "authentication/configuration.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "authentication/store_factory.h"
#include "store/root.h"
#include "store/scripted_control.h"
#include "store/thrown.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;

// A class with the file that it fixes and a key of that file.
template <typename Class>
struct File;
template <>
struct File<AuthenticationConfiguration> {
    static constexpr const char* kPath = "/etc/nimbrel/nimauth/authentication.conf";
    static constexpr const char* kKey = "remote-authentication-store";
};
template <>
struct File<ProviderConfiguration> {
    static constexpr const char* kPath = "/etc/nimbrel/nimauth/provider.conf";
    static constexpr const char* kKey = "provider";
};
template <>
struct File<APXProviderConfiguration> {
    static constexpr const char* kPath = "/etc/nimbrel/nimauth/apxprovider.conf";
    static constexpr const char* kKey = "provider";
};

template <typename Class>
class LibraryFile : public ::testing::Test {
 protected:
    // Each file holds its own path under its key.
    void SetUp() override {
        Remove(kSettingsFolder);
        Write<AuthenticationConfiguration>();
        Write<ProviderConfiguration>();
        Write<APXProviderConfiguration>();
    }

    template <typename Other>
    static void Write() {
        WriteSystemFile(File<Other>::kPath, std::string(File<Other>::kKey) + " = \"" + File<Other>::kPath + "\"\n");
    }

    const std::string path = File<Class>::kPath;
    const std::string key = File<Class>::kKey;
};

using Classes = ::testing::Types<AuthenticationConfiguration, ProviderConfiguration, APXProviderConfiguration>;
TYPED_TEST_SUITE(LibraryFile, Classes);

TYPED_TEST(LibraryFile, HasOnlyADefaultConstructorAndAVirtualDestructor) {
    EXPECT_TRUE((std::is_base_of_v<Configuration, TypeParam>));
    EXPECT_TRUE(std::is_default_constructible_v<TypeParam>);
    EXPECT_FALSE((std::is_constructible_v<TypeParam, std::string>));
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
    EXPECT_EQ(sizeof(TypeParam), sizeof(Configuration));
}

TYPED_TEST(LibraryFile, IsReadFromItsOwnPath) {
    const TypeParam configuration;
    EXPECT_EQ(configuration.size(), 1u);
    EXPECT_EQ(configuration[this->key], this->path);
}

TYPED_TEST(LibraryFile, IsReadAnewByEachObject) {
    const TypeParam before;
    WriteSystemFile(this->path, this->key + " = \"changed\"\n");
    const TypeParam after;
    EXPECT_EQ(before[this->key], this->path);
    EXPECT_EQ(after[this->key], "changed");
}

TYPED_TEST(LibraryFile, IsWrittenToItsOwnPathAlone) {
    TypeParam configuration;
    configuration[this->key] = "changed";
    configuration.Write();
    EXPECT_EQ(ReadFile(this->path), this->key + " = \"changed\"\n");
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("apxprovider.conf", "authentication.conf", "provider.conf"));
    for (const char* other : {kRecordFile, kProviderFile, kProxyProviderFile}) {
        if (other == this->path) continue;
        EXPECT_THAT(ReadFile(other), ::testing::HasSubstr(other));
    }
}

TYPED_TEST(LibraryFile, AbsentIsAnErrorThatNamesThePath) {
    Remove(this->path);
    EXPECT_EQ(TextOf<IOError>([] { TypeParam(); }), "Unable to open '" + this->path + "': No such file or directory");
}

TYPED_TEST(LibraryFile, AFolderInItsPlaceIsNotAnEmptyFile) {
    Remove(this->path);
    MakeFolder(this->path);
    EXPECT_EQ(TextOf<IOError>([] { TypeParam(); }), "Unable to read '" + this->path + "': Is a directory");
}

TYPED_TEST(LibraryFile, WithoutReadPermissionIsAnErrorThatNamesThePath) {
    chmod(this->path.c_str(), 0);
    const WithoutPrivileges ordinary;
    EXPECT_EQ(TextOf<IOError>([] { TypeParam(); }), "Unable to open '" + this->path + "': Permission denied");
}

TYPED_TEST(LibraryFile, MalformedIsAnErrorThatNamesTheLine) {
    WriteSystemFile(this->path, "\n# the store\n");
    EXPECT_EQ(TextOf<ConfigurationError>([] { TypeParam(); }),
              "Error parsing configuration on line 2: no delimiter found");
    WriteSystemFile(this->path, this->key + " = '\n");
    EXPECT_EQ(TextOf<ConfigurationError>([] { TypeParam(); }),
              "Error parsing configuration at line 1: invalid quoting");
}

TYPED_TEST(LibraryFile, AnAbsentKeyIsNeverAdded) {
    WriteSystemFile(this->path, "other = \"1\"\n");
    TypeParam configuration;
    const std::string text = "The specified key '" + this->key + "' was not found in this configuration";
    EXPECT_EQ(TextOf<InvalidKeyException>([&] { configuration[this->key] = "x"; }), text);
    EXPECT_EQ(TextOf<InvalidKeyException>([&] { std::as_const(configuration)[this->key]; }), text);
    EXPECT_EQ(configuration.size(), 1u);
}

// What making the directory store says about provider.conf. Each row prepares the file.
struct Unfit {
    const char* name;
    void (*prepare)();
    const char* provider;
};

class UnfitProviderFile : public ::testing::TestWithParam<Unfit> {
 protected:
    void SetUp() override {
        Remove(kSettingsFolder);
        MakeFolder(kSettingsFolder);
        GetParam().prepare();
    }
};

const Unfit kUnfit[] = {
    {"Absent", [] {}, "(none installed)"},
    {"FolderAbsent", [] { Remove(kSettingsFolder); }, "(none installed)"},
    {"AFolderInItsPlace", [] { MakeFolder(kProviderFile); }, "(none installed)"},
    {"ALoopOfLinks", [] { EXPECT_EQ(symlink("provider.conf", kProviderFile), 0); }, "(none installed)"},
    {"EmptyQuotes", [] { WriteSystemFile(kProviderFile, "provider = \"\"\n"); }, "(unset)"},
    {"NothingBehindTheSign", [] { WriteSystemFile(kProviderFile, "provider ="); }, "(unset)"},
    {"FirstOfTwoEmpty", [] { WriteSystemFile(kProviderFile, "provider=''\nprovider=scripted\n"); }, "(unset)"},
    {"BlanksAreAName", [] { WriteSystemFile(kProviderFile, "provider =   \n"); }, "   "},
    {"NoSuchPlugin", [] { WriteSystemFile(kProviderFile, "provider = \"nosuch\"\n"); }, "nosuch"},
    {"APathOutside", [] { WriteSystemFile(kProviderFile, "provider = \"/../../../etc/passwd\"\n"); },
     "/../../../etc/passwd"},
};

TEST_P(UnfitProviderFile, NamesTheProviderThatWasNotFound) {
    const std::string text =
        "The specified Active Directory provider '" + std::string(GetParam().provider) + "' is invalid";
    EXPECT_EQ(TextOf<InvalidActiveDirectoryProviderException>([] { ActiveDirectoryStore(60); }), text);
    EXPECT_EQ(TextOf<InvalidActiveDirectoryProviderException>(
                  [] { Singleton<AuthenticationStoreFactory>::_instance->CreateInstance("Active Directory"); }),
              text);
}

INSTANTIATE_TEST_SUITE_P(ProviderFile, UnfitProviderFile, ::testing::ValuesIn(kUnfit),
                         [](const auto& row) { return row.param.name; });

class ProviderFile : public ::testing::Test {
 protected:
    void SetUp() override { Remove(kSettingsFolder); }
};

TEST_F(ProviderFile, WithoutTheKeyGivesTheKeyError) {
    WriteSystemFile(kProviderFile, "providers = \"scripted\"\n");
    EXPECT_EQ(TextOf<InvalidKeyException>([] { ActiveDirectoryStore(60); }),
              "The specified key 'provider' was not found in this configuration");
}

TEST_F(ProviderFile, MalformedGivesTheParsingError) {
    WriteSystemFile(kProviderFile, "provider = \"\n");
    EXPECT_EQ(TextOf<ConfigurationError>([] { ActiveDirectoryStore(60); }),
              "Error parsing configuration at line 1: invalid quoting");
}

TEST_F(ProviderFile, WithoutReadPermissionCountsAsNotInstalled) {
    WriteSystemFile(kProviderFile, "provider = \"scripted\"\n");
    chmod(kProviderFile, 0);
    const WithoutPrivileges ordinary;
    EXPECT_EQ(TextOf<InvalidActiveDirectoryProviderException>([] { ActiveDirectoryStore(60); }),
              "The specified Active Directory provider '(none installed)' is invalid");
}

// What finding the proxy's domain says about apxprovider.conf; the directory's own provider is at hand.
class ProxyProviderFile : public ::testing::Test {
 protected:
    template <typename Error>
    std::string Failure() {
        return TextOf<Error>([this] { store.GetDomainForAPXService("192.0.2.7"); });
    }

    const ScriptedControl provider;
    ActiveDirectoryStore store{60};
};

TEST_F(ProxyProviderFile, AbsentCountsAsNotInstalled) {
    EXPECT_EQ(Failure<InvalidAPXProxyProviderException>(),
              "The specified APXProxy provider '(none installed)' is invalid");
}

TEST_F(ProxyProviderFile, WithAFolderInItsPlaceCountsAsNotInstalled) {
    MakeFolder(kProxyProviderFile);
    EXPECT_EQ(Failure<InvalidAPXProxyProviderException>(),
              "The specified APXProxy provider '(none installed)' is invalid");
}

TEST_F(ProxyProviderFile, WithAnEmptyValueCountsAsUnset) {
    WriteSystemFile(kProxyProviderFile, "provider = \"\"\n");
    EXPECT_EQ(Failure<InvalidAPXProxyProviderException>(), "The specified APXProxy provider '(unset)' is invalid");
}

TEST_F(ProxyProviderFile, WithoutTheKeyGivesTheKeyError) {
    WriteSystemFile(kProxyProviderFile, "Provider = \"apxhttps\"\n");
    EXPECT_EQ(Failure<InvalidKeyException>(), "The specified key 'provider' was not found in this configuration");
}

}  // namespace
}  // namespace nimbrel::authentication::test
