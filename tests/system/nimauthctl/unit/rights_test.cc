#include "tools/nimauthctl/checks/rights.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "unit/temporary_folder.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct RightsCase {
    uid_t owner;
    mode_t mode;
    const char* how;
};

TEST(RightsTest, OnlyRootMayWrite) {
    constexpr RightsCase kCases[] = {{0, 0755, ""},
                                     {0, 0600, ""},
                                     {0, 0, ""},
                                     {0, 0775, "may be written by its group"},
                                     {0, 0020, "may be written by its group"},
                                     {0, 0757, "may be written by everybody"},
                                     {0, 01777, "may be written by everybody"},
                                     {1000, 0755, "belongs to user 1000"},
                                     {1000, 0444, "belongs to user 1000"}};
    for (const RightsCase& row : kCases) {
        EXPECT_EQ(row.how, WhoElseMayWrite(row.owner, row.mode)) << row.owner << ' ' << std::oct << row.mode;
    }
}

// Run by an ordinary user, everything here belongs to that user, and is told so.
class RightsOfFilesTest : public ::testing::Test {
 protected:
    std::string Root() const { return _folder.Path("root"); }
    void Put(const std::string& path, mode_t mode) const {
        std::filesystem::create_directories(std::filesystem::path(Root() + path).parent_path());
        _folder.Put("root" + path, "", mode);
    }

 private:
    TemporaryFolder _folder;
};

TEST_F(RightsOfFilesTest, EachWrongFileIsNamedWithItsRemedy) {
    Put("/usr/libexec/nimauth/libgood.so", 0644);
    Put("/usr/libexec/nimauth/libopen.so", 0666);
    Put("/usr/libexec/nimauth/lib64/libgroup.so", 0664);
    const Finding finding = CheckProviderFiles(Root());
    EXPECT_EQ(Verdict::Fail, finding.verdict);
    EXPECT_EQ(ExitCode::Permission, finding.exitCode);
    for (const char* const path : {"/usr/libexec/nimauth/libopen.so", "/usr/libexec/nimauth/lib64/libgroup.so"}) {
        EXPECT_THAT(finding.found, HasSubstr(path));
        EXPECT_THAT(finding.remedy, HasSubstr(path));
    }
    EXPECT_THAT(finding.found, Not(HasSubstr(Root())));
}

TEST_F(RightsOfFilesTest, FolderThatOthersMayWriteIsNamedToo) {
    Put("/etc/nimbrel/nimauth/provider.conf", 0644);
    std::filesystem::permissions(Root() + "/etc/nimbrel", std::filesystem::perms(0777));
    EXPECT_THAT(CheckSettingsFiles(Root()).found, HasSubstr("/etc/nimbrel "));
}

TEST_F(RightsOfFilesTest, MissingFolderIsAFailure) {
    EXPECT_THAT(CheckProviderFiles(Root()).found, HasSubstr("/usr/libexec/nimauth is missing"));
    EXPECT_THAT(CheckSettingsFiles(Root()).found, HasSubstr("/etc/nimbrel/nimauth is missing"));
}

TEST_F(RightsOfFilesTest, LinksLeadToWhatIsChecked) {
    Put("/usr/libexec/nimauth/libgood.so", 0644);
    Put("/usr/lib/libelsewhere.so", 0666);
    std::filesystem::create_symlink(Root() + "/usr/lib/libelsewhere.so", Root() + "/usr/libexec/nimauth/liblink.so");
    std::filesystem::create_symlink("nowhere", Root() + "/usr/libexec/nimauth/libdangling.so");
    const std::string found = CheckProviderFiles(Root()).found;
    EXPECT_THAT(found, HasSubstr("/usr/libexec/nimauth/liblink.so"));
    EXPECT_THAT(found, Not(HasSubstr("libdangling")));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
