// How a proxy plug-in is found, checked and closed again.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "authentication/exceptions.h"
#include "authentication/proxy.h"
#include "proxy/journal.h"
#include "proxy/root.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string kFolder = kPluginFolder;

class ProxyLoading : public ::testing::Test {
 protected:
    ProxyLoading() {
        RemovePlugins();
        MakeFolder(kFolder);
        Script::Reset();
        Journal::Clear();
    }

    static APXProxy Load(const std::string& name) { return {name, "192.0.2.7", false, "", ""}; }

    // The domain that the proxy called `name` says it serves.
    static std::string DomainOf(const std::string& name) { return Load(name).GetDNSDomainName(); }

    template <typename Error>
    static std::string Refusal(const std::string& name) {
        return TextOf<Error>([&] { Load(name); });
    }

    static void SaveGarbage(const std::string& path) { WriteSystemFile(path, "\177ELF, but no more than that"); }
};

// ---------------------------------------------------------------- where it is looked for

TEST_F(ProxyLoading, The64BitFolderComesFirst) {
    InstallAt(kFolder + "lib64/libwhich.so", "named_first");
    InstallAt(kFolder + "libwhich.so", "named_second");
    EXPECT_EQ(DomainOf("which"), "first");
    EXPECT_THAT(Journal::Lines("dlopen"), ElementsAre("dlopen /usr/libexec/nimauth/lib64/libwhich.so"));
}

TEST_F(ProxyLoading, ThePlainFolderComesSecond) {
    Install("which", "named_second");
    EXPECT_EQ(DomainOf("which"), "second");
    EXPECT_THAT(Journal::Lines("dlopen"), ElementsAre("dlopen /usr/libexec/nimauth/lib64/libwhich.so failed",
                                                      "dlopen /usr/libexec/nimauth/libwhich.so"));
}

TEST_F(ProxyLoading, AFileThatCannotBeLoadedIsPassedOver) {
    SaveGarbage(kFolder + "lib64/libtorn.so");
    Install("torn", "named_second");
    EXPECT_EQ(DomainOf("torn"), "second");
}

TEST_F(ProxyLoading, AnUnfitPlugInInThe64BitFolderIsNotPassedOver) {
    InstallAt(kFolder + "lib64/libunfit.so", "no_table");
    Install("unfit", "named_second");
    EXPECT_THAT(Refusal<InvalidAPXProxyProviderException>("unfit"), HasSubstr("lib64/libunfit.so: undefined symbol"));
}

TEST_F(ProxyLoading, IsLookedForInNoOtherFolder) {
    InstallAt("/usr/lib/libelsewhere.so", "named_first");
    InstallAt(kFolder + "elsewhere.so", "named_first");
    EXPECT_THAT(Refusal<IOError>("elsewhere"), HasSubstr("No such file or directory"));
    Remove("/usr/lib/libelsewhere.so");
}

// ---------------------------------------------------------------- what cannot be opened

TEST_F(ProxyLoading, AMissingFileIsReportedWithTheLoadersText) {
    EXPECT_EQ(Refusal<IOError>("absent"),
              "Unable to open APX provider: /usr/libexec/nimauth/libabsent.so: cannot open shared object file: "
              "No such file or directory");
}

TEST_F(ProxyLoading, OnlyTheSecondAttemptsTextIsReported) {
    SaveGarbage(kFolder + "lib64/liboften.so");
    EXPECT_EQ(Refusal<IOError>("often"),
              "Unable to open APX provider: /usr/libexec/nimauth/liboften.so: cannot open shared object file: "
              "No such file or directory");
}

TEST_F(ProxyLoading, TheLoadersErrorIsClearedBeforeEachAttemptAndReadAfterTheLast) {
    Refusal<IOError>("absent");
    EXPECT_THAT(Journal::Lines(), ElementsAre("dlerror", "dlopen /usr/libexec/nimauth/lib64/libabsent.so failed",
                                              "dlerror", "dlopen /usr/libexec/nimauth/libabsent.so failed", "dlerror"));
}

TEST_F(ProxyLoading, ATextOfTheLoaderFromBeforeIsNotReported) {
    ASSERT_EQ(dlopen("/nowhere/libearlier.so", RTLD_LAZY), nullptr);
    EXPECT_THAT(Refusal<IOError>("absent"), StartsWith("Unable to open APX provider: /usr/libexec/nimauth/libabsent"));
}

TEST_F(ProxyLoading, AFileThatIsNoSharedObjectIsReported) {
    WriteSystemFile(kFolder + "libtext.so", "no shared object at all");
    EXPECT_THAT(Refusal<IOError>("text"), StartsWith("Unable to open APX provider: /usr/libexec/nimauth/libtext.so: "));
}

TEST_F(ProxyLoading, AnEmptyFileIsReported) {
    WriteSystemFile(kFolder + "libempty.so", "");
    EXPECT_EQ(Refusal<IOError>("empty"),
              "Unable to open APX provider: /usr/libexec/nimauth/libempty.so: file too short");
}

TEST_F(ProxyLoading, AFolderInItsPlaceIsReported) {
    MakeFolder(kFolder + "libfolder.so");
    EXPECT_THAT(Refusal<IOError>("folder"), HasSubstr("cannot read file data: Is a directory"));
}

TEST_F(ProxyLoading, AMissingVariableIsReported) {
    Install("unloadable", "unloadable");
    EXPECT_EQ(Refusal<IOError>("unloadable"),
              "Unable to open APX provider: /usr/libexec/nimauth/libunloadable.so: undefined symbol: "
              "variable_that_exists_nowhere");
}

TEST_F(ProxyLoading, AMissingFunctionIsOnlyLookedForWhenItIsCalled) {
    Install("unresolved", "unresolved");
    EXPECT_EQ(DomainOf("unresolved"), "lazy.test");
}

// ---------------------------------------------------------------- unusual names

TEST_F(ProxyLoading, TheNameMayLeadIntoAFolder) {
    InstallAt(kFolder + "libdeep/er.so", "named_first");
    EXPECT_EQ(DomainOf("deep/er"), "first");
}

TEST_F(ProxyLoading, AnEmptyNameIsANameLikeAnyOther) {
    EXPECT_THAT(Refusal<IOError>(""), StartsWith("Unable to open APX provider: /usr/libexec/nimauth/lib.so: "));
    InstallAt(kFolder + "lib.so", "named_first");
    EXPECT_EQ(DomainOf(""), "first");
}

TEST_F(ProxyLoading, AnOverlongNameIsReported) {
    const std::string name(5000, 'x');
    EXPECT_EQ(Refusal<IOError>(name), "Unable to open APX provider: " + kFolder + "lib" + name +
                                          ".so: cannot open shared object file: File name too long");
}

TEST_F(ProxyLoading, ANameMayHoldAnyCharacter) {
    Install("%s ü\n", "named_first");
    EXPECT_EQ(DomainOf("%s ü\n"), "first");
}

// ---------------------------------------------------------------- what is not a proxy

TEST_F(ProxyLoading, AMissingTableIsReportedWithTheLoadersText) {
    Install("empty_handed", "no_table");
    EXPECT_EQ(Refusal<InvalidAPXProxyProviderException>("empty_handed"),
              "The specified APXProxy provider 'empty_handed' is invalid: /usr/libexec/nimauth/libempty_handed.so: "
              "undefined symbol: APXProxyClientOperations");
    EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded", "proxy closed"));
    EXPECT_FALSE(IsLoaded(kFolder + "libempty_handed.so"));
}

TEST_F(ProxyLoading, TheLoadersTextIsReadBeforeThePlugInIsClosed) {
    Install("empty_handed", "no_table");
    Refusal<InvalidAPXProxyProviderException>("empty_handed");
    const std::vector<std::string> lines = Journal::Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "dlerror");
    EXPECT_EQ(lines.back(), "proxy closed");
}

TEST_F(ProxyLoading, TheRefusalCarriesNoStatus) {
    Install("empty_handed", "no_table");
    try {
        Load("empty_handed");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const InvalidAPXProxyProviderException& error) {
        EXPECT_EQ(error.GetCode(), 0u);
    }
}

class IncompleteProxy : public ProxyLoading, public ::testing::WithParamInterface<int> {
 protected:
    const std::string name = "without_field_" + std::to_string(GetParam());
};

TEST_P(IncompleteProxy, IsALogicErrorAndClosed) {
    Install(name, name);
    Refusal<std::logic_error>(name);
    EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded", "proxy closed"));
    EXPECT_FALSE(IsLoaded(kFolder + "lib" + name + ".so"));
}

TEST_P(IncompleteProxy, IsALogicErrorWhateverTheLoaderSaidBefore) {
    InstallAt(kFolder + "lib64/lib" + name + ".so", name);
    ASSERT_EQ(dlopen("/nowhere/libearlier.so", RTLD_LAZY), nullptr);
    EXPECT_NE(Refusal<std::logic_error>(name), "(nothing was thrown)");
}

TEST_P(IncompleteProxy, IsALogicErrorInThePlainFolderToo) {
    SaveGarbage(kFolder + "lib64/lib" + name + ".so");
    Install(name, name);
    EXPECT_NE(Refusal<std::logic_error>(name), "(nothing was thrown)");
}

TEST_P(IncompleteProxy, IsNeverCalled) {
    Install(name, name);
    EXPECT_NE(Refusal<std::logic_error>(name), "(nothing was thrown)");
    EXPECT_THAT(Journal::Lines("an incomplete"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Field, IncompleteProxy, ::testing::Values(2, 3, 4), ::testing::PrintToStringParamName());

// ---------------------------------------------------------------- how long it stays

TEST_F(ProxyLoading, StaysOpenAsLongAsTheObject) {
    Install("scripted", "scripted_proxy");
    {
        const APXProxy proxy = Load("scripted");
        EXPECT_TRUE(IsLoaded(kFolder + "libscripted.so"));
        EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded"));
    }
    EXPECT_FALSE(IsLoaded(kFolder + "libscripted.so"));
    EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded", "proxy closed"));
}

TEST_F(ProxyLoading, TwoObjectsShareThePlugIn) {
    Install("scripted", "scripted_proxy");
    const APXProxy one = Load("scripted");
    { const APXProxy other = Load("scripted"); }
    EXPECT_TRUE(IsLoaded(kFolder + "libscripted.so"));
    EXPECT_THAT(Journal::Lines("proxy"), ElementsAre("proxy loaded"));
}

TEST_F(ProxyLoading, CallsNothingByItself) {
    Install("scripted", "scripted_proxy");
    Load("scripted");
    EXPECT_THAT(Journal::Lines("domain"), IsEmpty());
    EXPECT_THAT(Journal::Lines("account"), IsEmpty());
    EXPECT_THAT(Journal::Lines("release"), IsEmpty());
}

}  // namespace
}  // namespace nimbrel::authentication::test
