// How a provider is found, checked and closed again.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "authentication/exceptions.h"
#include "authentication/provider.h"
#include "plugins/calls.h"
#include "plugins/provider_root.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kFolder[] = "/usr/libexec/nimauth/";

class ProviderLoading : public ::testing::Test {
 protected:
    ProviderLoading() {
        RemoveProviders();
        std::filesystem::create_directories(kFolder);
        Closes().count.Reset();
    }

    // The message of what loading `name` throws, or the PAM module of the provider that was loaded.
    template <typename Error>
    static std::string Load(const std::string& name) {
        try {
            return "loaded " + ActiveDirectoryProvider(name).PAMModule();
        } catch (const Error& error) {
            return error.what();
        }
    }
    static std::string Load(const std::string& name) { return Load<IOError>(name); }
    static std::string Refusal(const std::string& name) { return Load<InvalidActiveDirectoryProviderException>(name); }
};

// ---------------------------------------------------------------- where it is looked for

TEST_F(ProviderLoading, The64BitFolderComesFirst) {
    InstallProvider("named_first", std::string(kFolder) + "lib64/libwhich.so");
    InstallProvider("named_second", std::string(kFolder) + "libwhich.so");
    EXPECT_EQ(Load("which"), "loaded first");
    EXPECT_FALSE(IsLoaded(std::string(kFolder) + "libwhich.so"));
}

TEST_F(ProviderLoading, ThePlainFolderComesSecond) {
    InstallProvider("named_second", std::string(kFolder) + "libplain.so");
    EXPECT_EQ(Load("plain"), "loaded second");
}

TEST_F(ProviderLoading, AFileThatCannotBeLoadedIsPassedOver) {
    WriteSystemFile(std::string(kFolder) + "lib64/libtorn.so", "\177ELF, but no more than that");
    InstallProvider("named_second", std::string(kFolder) + "libtorn.so");
    EXPECT_EQ(Load("torn"), "loaded second");
}

TEST_F(ProviderLoading, AnUnfitProviderIn64BitFolderIsNotPassedOver) {
    InstallProvider("api_version_4", std::string(kFolder) + "lib64/libunfit.so");
    InstallProvider("named_second", std::string(kFolder) + "libunfit.so");
    EXPECT_THAT(Refusal("unfit"), HasSubstr("The API version (4) is not supported"));
}

TEST_F(ProviderLoading, OnlyTheSecondAttemptsTextIsReported) {
    WriteSystemFile(std::string(kFolder) + "lib64/liboften.so", "no shared object");
    EXPECT_EQ(Load("often"),
              "Unable to open provider: /usr/libexec/nimauth/liboften.so: cannot open shared object file: "
              "No such file or directory");
}

TEST_F(ProviderLoading, ATextOfTheLoaderFromBeforeIsNotReported) {
    ASSERT_EQ(dlopen("/nonexistent/earlier.so", RTLD_LAZY), nullptr);
    EXPECT_THAT(Load("late"), Not(HasSubstr("earlier")));
    ASSERT_EQ(dlopen("/nonexistent/earlier.so", RTLD_LAZY), nullptr);
    InstallProvider("named_first");
    EXPECT_EQ(Load("named_first"), "loaded first");
}

TEST_F(ProviderLoading, NothingStaysOpenWhenNothingCouldBeOpened) {
    Load("absent");
    EXPECT_EQ(Closes().count.Get(), 0);
}

// ---------------------------------------------------------------- names

TEST_F(ProviderLoading, TheNameGoesIntoThePathAsItIs) {
    InstallProvider("named_first", std::string(kFolder) + "libfolder/inner.so");
    EXPECT_EQ(Load("folder/inner"), "loaded first");

    std::filesystem::create_directories(std::string(kFolder) + "lib64/lib.");
    InstallProvider("named_second", std::string(kFolder) + "up.so");
    EXPECT_EQ(Load("./../../up"), "loaded second");
}

TEST_F(ProviderLoading, AnEmptyNameIsLookedForLikeAnyOther) {
    EXPECT_THAT(Load(""), StartsWith("Unable to open provider: /usr/libexec/nimauth/lib.so: "));
    InstallProvider("named_first", std::string(kFolder) + "lib.so");
    EXPECT_EQ(Load(""), "loaded first");
}

TEST_F(ProviderLoading, ANameEndsAtANulByte) {
    EXPECT_EQ(Load(std::string("a\0b", 3)),
              "Unable to open provider: /usr/libexec/nimauth/liba: cannot open shared object file: "
              "No such file or directory");
}

TEST_F(ProviderLoading, AnUnusableFileIsAnInputOutputError) {
    const std::string longName(300, 'n');
    EXPECT_EQ(Load(longName), "Unable to open provider: /usr/libexec/nimauth/lib" + longName +
                                  ".so: cannot open shared object file: File name too long");
    const std::string longerThanAPath(5000, 'p');
    EXPECT_THAT(Load(longerThanAPath), HasSubstr("File name too long"));

    EXPECT_THAT(Load("%s%n{}\n"), HasSubstr("lib%s%n{}\n.so: cannot open shared object file"));

    std::filesystem::create_directories(std::string(kFolder) + "libfolder.so");
    EXPECT_THAT(Load("folder"), StartsWith("Unable to open provider: /usr/libexec/nimauth/libfolder.so: "));

    WriteSystemFile(std::string(kFolder) + "libempty.so", "");
    EXPECT_THAT(Load("empty"), HasSubstr("libempty.so: file too short"));

    WriteSystemFile(std::string(kFolder) + "libtext.so", std::string(4096, 'x'));
    EXPECT_THAT(Load("text"), HasSubstr("libtext.so: invalid ELF header"));

    InstallProvider("needs_missing_data");
    EXPECT_THAT(Load("needs_missing_data"), HasSubstr("undefined symbol: nimauth_test_missing_variable"));
}

// ---------------------------------------------------------------- how it is opened

TEST_F(ProviderLoading, FunctionsAreBoundWhenTheyAreCalled) {
    InstallProvider("unresolved");
    EXPECT_EQ(Load("unresolved"), "loaded pam_test.so");
}

// Looking it up ties the plug-in to this program for good, so the test has a plug-in of its own.
TEST_F(ProviderLoading, ItsSymbolsAreOpenToLaterPlugIns) {
    InstallProvider("table_version_2");
    const ActiveDirectoryProvider provider("table_version_2");
    void* const own = dlopen(ProviderPath("table_version_2").c_str(), RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "ActiveDirectoryClientOperations"), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "ActiveDirectoryClientOperations"), dlsym(own, "ActiveDirectoryClientOperations"));
    dlclose(own);
}

TEST_F(ProviderLoading, EachProviderKeepsItsOwnTables) {
    InstallProvider("named_first");
    InstallProvider("named_second");
    InstallProvider("table_version_-1");
    const ActiveDirectoryProvider first("named_first");
    const ActiveDirectoryProvider second("named_second");
    const ActiveDirectoryProvider third("table_version_-1");
    EXPECT_EQ(first.PAMModule(), "first");
    EXPECT_EQ(second.PAMModule(), "second");
    EXPECT_EQ(second.GetAPIVersion(), 2);
    EXPECT_EQ(third.GetAPIVersion(), -1);
}

TEST_F(ProviderLoading, TheDestructorCloses) {
    InstallProvider("named_first");
    {
        const ActiveDirectoryProvider provider("named_first");
        const ActiveDirectoryProvider again("named_first");
        EXPECT_TRUE(IsLoaded(ProviderPath("named_first")));
        Closes().count.Reset();
    }
    EXPECT_EQ(Closes().count.Get(), 2);
    EXPECT_FALSE(IsLoaded(ProviderPath("named_first")));
}

// ---------------------------------------------------------------- what is refused

TEST_F(ProviderLoading, EveryVersionUpToThreeIsAccepted) {
    for (const char* version : {"3", "2", "1", "0", "-1", "-2147483648"}) {
        const std::string name = std::string("api_version_") + version;
        InstallProvider(name);
        EXPECT_EQ(Load<Exception>(name), "loaded pam_test.so") << version;
    }
}

TEST_F(ProviderLoading, AVersionAboveThreeIsRefusedAndTheLibraryClosed) {
    for (const char* version : {"4", "2147483647"}) {
        const std::string name = std::string("api_version_") + version;
        InstallProvider(name);
        Closes().count.Reset();
        EXPECT_EQ(Refusal(name), "The specified Active Directory provider '" + name +
                                     "' is invalid: The API version (" + version +
                                     ") is not supported by this version of libnimauth");
        EXPECT_EQ(Closes().count.Get(), 1) << version;
        EXPECT_FALSE(IsLoaded(ProviderPath(name))) << version;
    }
}

TEST_F(ProviderLoading, TheVersionIsCheckedBeforeTheOperationsAreLookedFor) {
    InstallProvider("new_api_no_operations");
    EXPECT_THAT(Refusal("new_api_no_operations"), HasSubstr("The API version (4) is not supported"));
}

TEST_F(ProviderLoading, AMissingSymbolIsRefusedWithTheLoadersTextAndTheLibraryClosed) {
    const struct {
        const char* name;
        const char* symbol;
    } kRows[] = {{"no_metadata", "ActiveDirectoryClientMetadata"},
                 {"no_operations", "ActiveDirectoryClientOperations"},
                 {"no_symbols", "ActiveDirectoryClientMetadata"}};
    for (const auto& row : kRows) {
        InstallProvider(row.name);
        Closes().count.Reset();
        EXPECT_EQ(Refusal(row.name), std::string("The specified Active Directory provider '") + row.name +
                                         "' is invalid: " + ProviderPath(row.name) +
                                         ": undefined symbol: " + row.symbol);
        EXPECT_EQ(Closes().count.Get(), 1) << row.name;
        EXPECT_FALSE(IsLoaded(ProviderPath(row.name))) << row.name;
    }
}

TEST_F(ProviderLoading, ASymbolAtAddressZeroIsMissingWithoutAText) {
    InstallProvider("null_symbol");
    EXPECT_EQ(Refusal("null_symbol"), "The specified Active Directory provider 'null_symbol' is invalid: ");
    EXPECT_EQ(Closes().count.Get(), 1);
}

TEST_F(ProviderLoading, AnotherProvidersSymbolsDoNotStandInForMissingOnes) {
    InstallProvider("named_first");
    InstallProvider("no_operations");
    const ActiveDirectoryProvider complete("named_first");
    EXPECT_THAT(Refusal("no_operations"), HasSubstr("undefined symbol: ActiveDirectoryClientOperations"));
}

TEST_F(ProviderLoading, ANullModuleNameIsALogicErrorAndLeavesTheLibraryOpen) {
    for (const char* name : {"null_pam_module", "null_nss_module"}) {
        InstallProvider(name);
        Closes().count.Reset();
        EXPECT_THROW(ActiveDirectoryProvider{name}, std::logic_error) << name;
        EXPECT_EQ(Closes().count.Get(), 0) << name;
        EXPECT_TRUE(IsLoaded(ProviderPath(name))) << name;
        dlclose(dlopen(ProviderPath(name).c_str(), RTLD_LAZY | RTLD_NOLOAD));
        dlclose(dlopen(ProviderPath(name).c_str(), RTLD_LAZY | RTLD_NOLOAD));
    }
}

// ---------------------------------------------------------------- module names and parameters

TEST_F(ProviderLoading, ParametersAreSplitAtWhiteSpace) {
    InstallProvider("spaced_parameters");
    const ActiveDirectoryProvider provider("spaced_parameters");
    EXPECT_EQ(provider.PAMModule(), "pam_test.so");
    EXPECT_THAT(provider.PAMModuleParameters(), ElementsAre("a", "b", "c"));
    EXPECT_EQ(provider.NSSModule(), "test");
    EXPECT_THAT(provider.NSSModuleParameters(), ElementsAre("x=1", "y=[z]"));
}

TEST_F(ProviderLoading, NullParametersAreNone) {
    InstallProvider("api_version_3");
    const ActiveDirectoryProvider provider("api_version_3");
    EXPECT_THAT(provider.PAMModuleParameters(), IsEmpty());
    EXPECT_THAT(provider.NSSModuleParameters(), IsEmpty());
}

TEST_F(ProviderLoading, BlankParametersAreNoneAndEmptyNamesAreNames) {
    InstallProvider("blank_parameters");
    const ActiveDirectoryProvider provider("blank_parameters");
    EXPECT_EQ(provider.PAMModule(), "");
    EXPECT_THAT(provider.PAMModuleParameters(), IsEmpty());
    EXPECT_EQ(provider.NSSModule(), "");
    EXPECT_THAT(provider.NSSModuleParameters(), IsEmpty());
}

TEST_F(ProviderLoading, CachingAgainAppendsTheParametersAgain) {
    InstallProvider("spaced_parameters");
    ActiveDirectoryProvider provider("spaced_parameters");
    provider.CacheMetadata();
    EXPECT_EQ(provider.PAMModule(), "pam_test.so");
    EXPECT_THAT(provider.PAMModuleParameters(), ElementsAre("a", "b", "c", "a", "b", "c"));
}

}  // namespace
}  // namespace nimbrel::authentication::test
