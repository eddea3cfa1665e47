#include "keytab.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "kerberos.h"
#include "sandbox.h"
#include "support/run_program.h"
#include "unit/without_file_capabilities.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

class Keytab : public Sandbox {
 protected:
    std::string File() const { return Path("krb5.keytab"); }

    void Write(const KeytabAccount& account, const std::string& secret = "secret") const {
        KeytabChange change(File());
        change.SetKeys(account, kit::Secret(secret));
        change.Commit();
    }

    // "KVNO principal (encryption)", as klist sees the file.
    std::vector<std::string> Entries() const {
        const auto result = testing::RunProgram("/usr/bin/klist", {.arguments = {"-k", "-e", File()}});
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
        std::vector<std::string> entries;
        std::istringstream lines(result.output);
        for (std::string line; std::getline(lines, line);) {
            if (line.find('@') != std::string::npos) {
                line.erase(0, line.find_first_not_of(' '));
                line.erase(line.find_last_not_of(' ') + 1);
                entries.push_back(line);
            }
        }
        return entries;
    }
};

TEST_F(Keytab, HoldsEveryPrincipalWithBothAesKeys) {
    Write({"NODE01", "corp.test", 3});
    const auto entries = Entries();
    EXPECT_THAT(entries, SizeIs(10));
    for (const char* principal :
         {"NODE01$@CORP.TEST", "host/node01.corp.test@CORP.TEST", "host/NODE01@CORP.TEST",
          "RestrictedKrbHost/node01.corp.test@CORP.TEST", "RestrictedKrbHost/NODE01@CORP.TEST"}) {
        for (const char* encryption : {"aes256-cts-hmac-sha1-96", "aes128-cts-hmac-sha1-96"}) {
            const std::string entry = std::string("3 ") + principal + " (" + encryption + ")";
            EXPECT_EQ(std::count(entries.begin(), entries.end(), entry), 1) << entry;
        }
    }
    EXPECT_EQ(ModeOf(File()), 0600U);
    EXPECT_EQ(FileCount(Folder()), 1U);
    const auto times = testing::RunProgram("/usr/bin/klist", {.arguments = {"-k", "-t", File()}});
    EXPECT_THAT(times.output, HasSubstr(" host/NODE01@CORP.TEST"));
    EXPECT_THAT(times.output, Not(::testing::AnyOf(HasSubstr("1969"), HasSubstr("1970"))))
        << "a key has the time at which it was written";
}

// The keys were made with ktutil's `addent -password` for the same name, salt and password.
TEST_F(Keytab, KeysAreThoseOfTheDomainsSalt) {
    EXPECT_EQ(MachineSalt("NODE01", "corp.test"), "CORP.TESThostnode01.corp.test");
    Write({"NODE01", "corp.test", 1}, "secret");
    const auto keys = testing::RunProgram("/usr/bin/klist", {.arguments = {"-k", "-K", "-e", File()}});
    const auto made = testing::RunProgram(
        "/usr/bin/ktutil", {.input = "addent -password -p NODE01$@CORP.TEST -k 1 -e aes256-cts-hmac-sha1-96 "
                                     "-s CORP.TESThostnode01.corp.test\nsecret\nwkt " +
                                     Path("theirs") + "\nquit\n"});
    ASSERT_EQ(made.exitStatus, 0) << made.errors;
    const auto theirs = testing::RunProgram("/usr/bin/klist", {.arguments = {"-k", "-K", "-e", Path("theirs")}});
    const auto key = theirs.output.find("(0x");
    ASSERT_NE(key, std::string::npos) << theirs.output;
    EXPECT_THAT(keys.output,
                HasSubstr("NODE01$@CORP.TEST (aes256-cts-hmac-sha1-96)  " + theirs.output.substr(key, 68)));
}

TEST_F(Keytab, NewKeysReplaceTheOldOnesAndNothingElse) {
    Write({"NODE01", "other.test", 1});
    Write({"WEB", "corp.test", 1});
    Write({"NODE01", "corp.test", 1});
    Write({"NODE01", "corp.test", 2});
    const auto entries = Entries();
    EXPECT_THAT(entries, SizeIs(30));
    EXPECT_THAT(entries, Not(::testing::Contains("1 NODE01$@CORP.TEST (aes256-cts-hmac-sha1-96)")));
    EXPECT_THAT(entries, ::testing::Contains("1 WEB$@CORP.TEST (aes256-cts-hmac-sha1-96)"));
}

TEST_F(Keytab, TrialFileIsCompleteBeforeItIsInPlace) {
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
    EXPECT_FALSE(std::filesystem::exists(File()));
    const auto listed = testing::RunProgram("/usr/bin/klist", {.arguments = {"-k", change.TrialName()}});
    EXPECT_THAT(listed.output, HasSubstr("NODE01$@CORP.TEST"));
}

TEST_F(Keytab, GivenUpChangeLeavesTheFileAsItWas) {
    Write({"NODE01", "other.test", 1});
    const std::string before = ReadFile(File());
    { KeytabChange(File()).SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret")); }
    EXPECT_EQ(ReadFile(File()), before);
    EXPECT_EQ(FileCount(Folder()), 1U);
}

TEST_F(Keytab, RevertBringsTheOldFileBack) {
    Write({"NODE01", "other.test", 1});
    const std::string before = ReadFile(File());
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
    change.Commit();
    EXPECT_NE(ReadFile(File()), before);
    change.Revert();
    EXPECT_EQ(ReadFile(File()), before);
}

TEST_F(Keytab, RevertBringsTheModeBack) {
    Write({"NODE01", "other.test", 1});
    std::filesystem::permissions(File(), std::filesystem::perms(0640));
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
    change.Commit();
    EXPECT_EQ(ModeOf(File()), 0600U);
    change.Revert();
    EXPECT_EQ(ModeOf(File()), 0640U);
}

TEST_F(Keytab, RevertLeavesAFileAloneThatWasNeverReplaced) {
    Write({"NODE01", "other.test", 1});
    const auto written = std::filesystem::last_write_time(File());
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
    std::filesystem::last_write_time(File(), written - std::chrono::hours(1));
    change.Revert();
    EXPECT_EQ(std::filesystem::last_write_time(File()), written - std::chrono::hours(1));
}

// A join takes as long as the network does.
TEST_F(Keytab, RevertDoesNotUndoWhatOthersDidToAFileThatWasNeverReplaced) {
    Write({"NODE01", "corp.test", 1}, "of before");
    const std::string before = ReadFile(File());
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 2}, kit::Secret("secret"));
    WriteFile(File(), before.substr(0, 2));
    change.Revert();
    EXPECT_EQ(ReadFile(File()), before.substr(0, 2));
    std::filesystem::remove(File());
    change.Revert();
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(Keytab, KeysThatOthersAddMeanwhileStay) {
    Write({"NODE01", "corp.test", 1});
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 2}, kit::Secret("secret"));
    Write({"WEB", "other.test", 1});
    change.Commit();
    EXPECT_THAT(Entries(), SizeIs(20));
    EXPECT_THAT(Entries(), ::testing::Contains("1 WEB$@OTHER.TEST (aes256-cts-hmac-sha1-96)"));
    Write({"SQL", "other.test", 1});
    change.Revert();
    EXPECT_THAT(Entries(), SizeIs(30));
    EXPECT_THAT(Entries(), ::testing::Contains("1 NODE01$@CORP.TEST (aes256-cts-hmac-sha1-96)"));
    EXPECT_THAT(Entries(), Not(::testing::Contains("2 NODE01$@CORP.TEST (aes256-cts-hmac-sha1-96)")));
    EXPECT_THAT(Entries(), ::testing::Contains("1 SQL$@OTHER.TEST (aes256-cts-hmac-sha1-96)"));
}

TEST_F(Keytab, FirstKeysOfOthersStayWhenOursGo) {
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
    change.Commit();
    Write({"WEB", "other.test", 1});
    change.Revert();
    EXPECT_THAT(Entries(), SizeIs(10));
    EXPECT_THAT(Entries(), ::testing::Contains("1 WEB$@OTHER.TEST (aes256-cts-hmac-sha1-96)"));
}

TEST_F(Keytab, RevertOfTheFirstKeysRemovesTheFile) {
    KeytabChange change(File());
    change.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
    change.Commit();
    change.Revert();
    EXPECT_EQ(FileCount(Folder()), 0U);
}

TEST_F(Keytab, LatestKeyVersionIsThatOfTheHostsOwnKeys) {
    EXPECT_EQ(KeyVersionIn(File(), "NODE01", "corp.test"), std::nullopt);
    const auto made = testing::RunProgram(
        "/usr/bin/ktutil", {.input = "addent -password -p NODE01$@CORP.TEST -k 9 -e arcfour-hmac\nold\n"
                                     "addent -password -p OTHER$@CORP.TEST -k 8 -e aes256-cts-hmac-sha1-96\nold\n"
                                     "wkt " +
                                     File() + "\nquit\n"});
    ASSERT_EQ(made.exitStatus, 0) << made.errors;
    EXPECT_EQ(KeyVersionIn(File(), "NODE01", "corp.test"), std::nullopt);
    for (const std::uint32_t version : {3U, 255U, 256U, 70000U}) {
        std::filesystem::remove(File());
        Write({"NODE01", "corp.test", version});
        EXPECT_EQ(KeyVersionIn(File(), "NODE01", "corp.test"), version);
    }
}

TEST_F(Keytab, RealmIsRemovedAtEveryKeyVersion) {
    Write({"NODE01", "other.test", 1});
    const std::string before = ReadFile(File());
    Write({"NODE01", "corp.test", 1});
    Write({"OLD", "corp.test", 7});
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(ReadFile(File()), before);
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(ReadFile(File()), before);
}

TEST_F(Keytab, LastRealmTakesTheFileWithIt) {
    Write({"NODE01", "corp.test", 1});
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(FileCount(Folder()), 0U);
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(FileCount(Folder()), 0U);
}

TEST_F(Keytab, KeysOfAnotherKeytabAreRemovedAtEveryVersionAndNoOthers) {
    Write({"WEB", "corp.test", 1});
    const std::string before = ReadFile(File());
    WriteMachineKeytab(Path("other"), {"NODE01", "corp.test", 1},
                       KeysOfSecret("NODE01", "corp.test", kit::Secret("secret")));
    Write({"NODE01", "corp.test", 7});
    RemoveKeysFromKeytab(File(), ReadFile(Path("other")));
    EXPECT_EQ(ReadFile(File()), before);
    Write({"NODE01", "corp.test", 1}, "another secret");
    const std::string another = ReadFile(File());
    RemoveKeysFromKeytab(File(), ReadFile(Path("other")));
    EXPECT_EQ(ReadFile(File()), another);
    EXPECT_EQ(StatusOf([&] { RemoveKeysFromKeytab(File(), "damaged"); }), kStatusInternalError);
}

TEST_F(Keytab, RealmOfASimilarNameStays) {
    Write({"NODE01", "xcorp.test", 1});
    const std::string before = ReadFile(File());
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(ReadFile(File()), before);
}

// An entry of version 2 with one key of zeros.
std::string Entry(const std::string& realm, const std::vector<std::string>& parts) {
    const auto text = [](const std::string& one) { return std::string(1, '\0') + static_cast<char>(one.size()) + one; };
    std::string entry = std::string(1, '\0') + static_cast<char>(parts.size()) + text(realm);
    for (const auto& part : parts) {
        entry += text(part);
    }
    entry += std::string("\0\0\0\1\0\0\0\0\1\0\x12\0\x20", 13) + std::string(32, '\0');
    return std::string(3, '\0') + static_cast<char>(entry.size()) + entry;
}

TEST_F(Keytab, KeysAreReadAsTheyWereMade) {
    Write({"NODE01", "corp.test", 3}, "secret");
    const MachineKeys made = KeysOfSecret("NODE01", "corp.test", kit::Secret("secret"));
    const MachineKeys read = KeysInKeytab("FILE:" + File(), "NODE01", "corp.test");
    ASSERT_THAT(read, SizeIs(2));
    for (std::size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(read[i].encryption, made[i].encryption);
        EXPECT_EQ(read[i].bytes.View(), made[i].bytes.View());
    }
    EXPECT_THAT([&] { KeysInKeytab("FILE:" + File(), "WEB", "corp.test"); },
                ::testing::ThrowsMessage<KerberosError>(HasSubstr("read a key of 'WEB$@CORP.TEST'")));
}

TEST_F(Keytab, MachineAccountIsKnownByItsName) {
    const std::string others = "\x05\x02" + Entry("CORP.TEST", {"host", "NODE01$"}) + Entry("CORP.TEST", {"alice"}) +
                               Entry("CORP.TEST", {"$"});
    EXPECT_FALSE(MachineAccountIn(others).has_value());
    const auto found = MachineAccountIn(others + Entry("CORP.TEST", {"A$"}) + Entry("OTHER.TEST", {"NODE01$"}));
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->computer, "A");
    EXPECT_EQ(found->domain, "corp.test");
}

TEST_F(Keytab, NamesThatOnlyReadLikeOursStay) {
    const std::string others = Entry("X@CORP.TEST", {"a"}) + Entry("OTHER.TEST", {"b@CORP.TEST"}) +
                               Entry("CORP.TEST@", {"c"}) + Entry("Y@CORP.TEST", {"host/NODE01"});
    WriteFile(File(), "\x05\x02" + others + Entry("CORP.TEST", {"d"}));
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(ReadFile(File()), "\x05\x02" + others);

    const std::string similar = Entry("CORP.TEST", {"host/NODE01"}) + others;
    WriteFile(File(), "\x05\x02" + similar + Entry("CORP.TEST", {"host", "NODE01"}));
    Write({"NODE01", "corp.test", 1});
    EXPECT_EQ(ReadFile(File()).substr(0, 2 + similar.size()), "\x05\x02" + similar);
    EXPECT_THAT(Entries(), SizeIs(5 + 10));
}

TEST_F(Keytab, CutAndChangedFilesAreReadWithinTheirBounds) {
    Write({"NODE01", "other.test", 1});
    const std::string good = ReadFile(File());
    for (std::size_t at = 0; at < 100; ++at) {
        for (const char value : {'\x00', '\x7f', '\x80', '\xff'}) {
            std::string changed = good;
            changed[at] = value;
            WriteFile(File(), changed);
            const auto status = StatusOf([&] { RemoveRealmFromKeytab(File(), "CORP.TEST"); });
            EXPECT_TRUE(status == 0 || status == kStatusInternalError);
        }
        WriteFile(File(), good.substr(0, at));
        StatusOf([&] { RemoveRealmFromKeytab(File(), "OTHER.TEST"); });
    }
}

TEST_F(Keytab, EntriesDeletedInPlaceAreNoEntries) {
    Write({"NODE01", "other.test", 1});
    const std::string good = ReadFile(File());
    WriteFile(File(), good.substr(0, 2) + std::string("\xff\xff\xff\xfd", 4) + "abc" + good.substr(2));
    Write({"NODE01", "corp.test", 1});
    EXPECT_THAT(Entries(), SizeIs(20));
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(ReadFile(File()), good);
}

TEST_F(Keytab, LengthOfZeroEndsTheFile) {
    const std::string header = "\x05\x02";
    const std::string other = Entry("OTHER.TEST", {"a"});
    const std::string end(4, '\0');
    WriteFile(File(), header + Entry("CORP.TEST", {"a"}) + other + end + Entry("CORP.TEST", {"b"}) + "no entry");
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(ReadFile(File()), header + other);
}

TEST_F(Keytab, EmptyFileHasNoEntries) {
    WriteFile(File(), "");
    RemoveRealmFromKeytab(File(), "CORP.TEST");
    EXPECT_EQ(ReadFile(File()), "");
    Write({"NODE01", "corp.test", 1});
    EXPECT_THAT(Entries(), SizeIs(10));
}

// Also an entry's last text, and the length of the next entry, may be what is missing.
TEST_F(Keytab, FileThatEndsInTheMiddleIsDamaged) {
    const std::string whole = "\x05\x02" + Entry("OTHER.TEST", {"a", "b"});
    for (std::size_t size = 1; size < whole.size(); ++size) {
        WriteFile(File(), whole.substr(0, size));
        const std::uint32_t expected = size == 2 ? 0U : kStatusInternalError;
        EXPECT_EQ(StatusOf([&] { RemoveRealmFromKeytab(File(), "CORP.TEST"); }), expected) << size;
    }
    for (const std::string& entry : {std::string("\0\0\0\x08\0\1\0\2ab\0\5", 12), std::string("\0\0\0\1a", 5)}) {
        WriteFile(File(), "\x05\x02" + entry);
        try {
            RemoveRealmFromKeytab(File(), "CORP.TEST");
            ADD_FAILURE() << "an entry without a name was taken";
        } catch (const AdError& error) {
            EXPECT_EQ(error.Status(), kStatusInternalError);
            EXPECT_STREQ(error.what(), "The keytab is damaged or of another format");
        }
    }
}

TEST_F(Keytab, WhyItCannotBeWrittenIsTold) {
    const auto reasonFor = [&](const auto& spoil) -> std::string {
        KeytabChange change(File());
        spoil(change.TrialName().substr(std::string("FILE:").size()));
        try {
            const WithoutFileCapabilities asAnyUser;
            change.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
        } catch (const AdError& error) {
            return std::to_string(error.Status()) + ' ' + error.what();
        }
        return "(none)";
    };
    EXPECT_THAT(reasonFor([](const std::string& name) { chmod(name.c_str(), 0400); }),
                ::testing::StartsWith(std::to_string(kStatusAccessDenied) + " Unable to write a keytab: "));
    EXPECT_THAT(reasonFor([](const std::string& name) {
                    std::filesystem::remove(name);
                    std::filesystem::create_directory(name);
                }),
                ::testing::StartsWith(std::to_string(kStatusInternalError) + " Unable to write a keytab: "));
}

TEST_F(Keytab, DamagedFileIsNeverReplaced) {
    WriteFile(File(), "no keytab");
    EXPECT_EQ(StatusOf([&] { Write({"NODE01", "corp.test", 1}); }), kStatusInternalError);
    EXPECT_EQ(StatusOf([&] { RemoveRealmFromKeytab(File(), "CORP.TEST"); }), kStatusInternalError);
    EXPECT_EQ(ReadFile(File()), "no keytab");
    EXPECT_EQ(FileCount(Folder()), 1U);
}

}  // namespace
}  // namespace nimbrel::ad::test
