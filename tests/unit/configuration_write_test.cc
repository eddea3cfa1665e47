// Writing a settings file, and what a written file reads back as.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>
#include <type_traits>

#include "support/temporary_folder.h"
#include "unit/configuration_outcome.h"
#include "unit/virtual_slots.h"
#include "unit/without_file_capabilities.h"

namespace {

using namespace std::string_literals;
using namespace nimbrel::authentication;

class ConfigurationWrite : public ::testing::Test {
 protected:
    Configuration Reading(const std::string& text) const {
        _folder.Put("file", text);
        return Configuration(_folder.Path("file"));
    }

    // The bytes of the file that these settings are written as.
    std::string Written(const literal::Settings& settings) const {
        Configuration configuration = Reading("");
        configuration.insert(settings.begin(), settings.end());
        configuration.Write();
        return _folder.Get("file");
    }

    // What these settings are after a write and a fresh read.
    Outcome Reread(const literal::Settings& settings) const {
        Written(settings);
        return LibraryOutcome(_folder.Path("file"));
    }

    static std::string ErrorOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const IOError& error) {
            return error.what();
        }
        return "no error";
    }

    TemporaryFolder _folder;
};

// Calls `visit` with every text over the characters up to a length, the empty one included.
void ForEveryText(const std::string& characters, std::size_t length,
                  const std::function<void(const std::string&)>& visit, const std::string& start = "") {
    visit(start);
    if (length == 0) return;
    for (const char character : characters) ForEveryText(characters, length - 1, visit, start + character);
}

bool IsBlank(char character) { return character == ' ' || character == '\t'; }

bool KeySurvives(const std::string& key) {
    if (key.empty() || key.find_first_of("=\n") != std::string::npos) return false;
    if (IsBlank(key.front()) || IsBlank(key.back())) return false;
    const bool startsWithQuote = key.front() == '"' || key.front() == '\'';
    return !(startsWithQuote && key.back() == key.front());  // a lone quote is both its own start and end
}

TEST_F(ConfigurationWrite, EntriesAreWrittenInKeyOrder) {
    EXPECT_EQ(Written({{"b", "2"}, {"a", "1"}}), "a = \"1\"\nb = \"2\"\n");
    EXPECT_EQ(Written({{"b", ""}, {"B", ""}, {"\xff", ""}, {"", ""}}), " = \"\"\nB = \"\"\nb = \"\"\n\xff = \"\"\n");
    EXPECT_EQ(Written({}), "");
}

TEST_F(ConfigurationWrite, NothingIsQuotedTwiceOrEscaped) {
    EXPECT_EQ(Written({{"a b", "say \"hi\" \\ 'ho' = \r"}}), "a b = \"say \"hi\" \\ 'ho' = \r\"\n");
    EXPECT_EQ(Written({{"a", "b\nc"}}), "a = \"b\nc\"\n");
    EXPECT_EQ(Written({{"a\0"s, "\0"s}}), "a\0 = \"\0\"\n"s);
}

TEST_F(ConfigurationWrite, EveryValueWithoutALineEndSurvives) {
    literal::Settings settings;
    ForEveryText("a=\"' \t\r#\0\xff"s, 4,
                 [&](const std::string& value) { settings["k" + std::to_string(settings.size())] = value; });
    EXPECT_EQ(settings.size(), 11111U);
    EXPECT_TRUE(Reread(settings) == (Outcome{settings, ""}));
}

TEST_F(ConfigurationWrite, ValueWithALineEndDoesNotSurvive) {
    EXPECT_EQ(Reread({{"a", "b\nc"}}).error, "Error parsing configuration on line 2: no delimiter found");
    EXPECT_EQ(Reread({{"a", "b\nc = d"}}).settings, (literal::Settings{{"a", "\"b"}, {"c", "d\""}}));
    EXPECT_EQ(Reread({{"a", "b\n"}}).error, "Error parsing configuration on line 2: no delimiter found");
}

TEST_F(ConfigurationWrite, ExactlyTheKeysThatReadBackSurvive) {
    ForEveryText("a=\"' \t\n\r", 4, [&](const std::string& key) {
        const literal::Settings settings = {{key, "v"}};
        ASSERT_EQ(Reread(settings) == (Outcome{settings, ""}), KeySurvives(key)) << Shown(key);
    });
}

TEST_F(ConfigurationWrite, WritingAgainChangesNothing) {
    Configuration configuration = Reading(" 'a'=b\nc = \"  \"\n");
    configuration.Write();
    const std::string first = _folder.Get("file");
    Configuration(_folder.Path("file")).Write();
    EXPECT_EQ(first, "a = \"b\"\nc = \"  \"\n");
    EXPECT_EQ(_folder.Get("file"), first);
    EXPECT_EQ(_folder.Names(), std::vector<std::string>{"file"});
}

TEST_F(ConfigurationWrite, LargeSettingsAreWrittenWhole) {
    literal::Settings settings;
    for (std::size_t size = 1; size < 3000000; size *= 3) settings["k" + std::to_string(size)] = std::string(size, 'v');
    EXPECT_TRUE(Reread(settings) == (Outcome{settings, ""}));
}

TEST_F(ConfigurationWrite, ModeOfTheFileIsKept) {
    for (const mode_t mode : {0644U, 0600U, 0666U, 0444U, 0755U}) {
        _folder.Put("file", "a = 1\n", mode);
        Configuration(_folder.Path("file")).Write();
        EXPECT_EQ(_folder.Mode("file"), mode);
        unlink(_folder.Path("file").c_str());
    }
}

TEST_F(ConfigurationWrite, FileThatIsGoneIsMadeAnewForTheOwnerAlone) {
    const Configuration configuration = Reading("a = 1\n");
    unlink(_folder.Path("file").c_str());
    configuration.Write();
    EXPECT_EQ(_folder.Get("file"), "a = \"1\"\n");
    EXPECT_EQ(_folder.Mode("file"), 0600U);
}

TEST_F(ConfigurationWrite, FolderThatIsGoneIsReported) {
    const Configuration configuration = Reading("a = 1\n");
    std::filesystem::remove_all(_folder.Path(""));
    EXPECT_EQ(ErrorOf([&] { configuration.Write(); }),
              "Unable to create temporary file to write '" + _folder.Path("file") + "': No such file or directory");
}

TEST_F(ConfigurationWrite, FolderWithoutWritePermissionIsReportedAndTheFileStays) {
    const Configuration configuration = Reading("old = 1\n");
    ASSERT_EQ(chmod(_folder.Path("").c_str(), 0500), 0);
    const WithoutFileCapabilities guard;
    EXPECT_EQ(ErrorOf([&] { configuration.Write(); }),
              "Unable to create temporary file to write '" + _folder.Path("file") + "': Permission denied");
    EXPECT_EQ(_folder.Get("file"), "old = 1\n");
    ASSERT_EQ(chmod(_folder.Path("").c_str(), 0700), 0);
}

TEST_F(ConfigurationWrite, DirectoryInTheFilesPlaceIsNotReplaced) {
    const Configuration configuration = Reading("a = 1\n");
    unlink(_folder.Path("file").c_str());
    std::filesystem::create_directory(_folder.Path("file"));
    const std::string error = ErrorOf([&] { configuration.Write(); });
    EXPECT_EQ(error.find("Unable to rename '" + _folder.Path("file") + "."), 0U) << error;
    EXPECT_NE(error.find("' to '" + _folder.Path("file") + "': Is a directory"), std::string::npos) << error;
    EXPECT_TRUE(std::filesystem::is_directory(_folder.Path("file")));
}

TEST_F(ConfigurationWrite, LookupFindsChangesButNeverAdds) {
    Configuration configuration = Reading("a = 1\n");
    configuration["a"] = "2";
    EXPECT_EQ(configuration["a"], "2");
    EXPECT_EQ(std::as_const(configuration)["a"], "2");
    for (const std::string key : {"b", "A", "", "a "}) {
        EXPECT_THROW(configuration[key], InvalidKeyException) << key;
        EXPECT_THROW(std::as_const(configuration)[key], InvalidKeyException) << key;
    }
    EXPECT_EQ(configuration.size(), 1U);
}

TEST_F(ConfigurationWrite, AbsentKeyIsNamed) {
    const Configuration configuration = Reading("a = 1\n");
    try {
        static_cast<void>(configuration["provider"]);
        ADD_FAILURE() << "the key was found";
    } catch (const InvalidKeyException& error) {
        EXPECT_STREQ(error.what(), "The specified key 'provider' was not found in this configuration");
        EXPECT_EQ(error.GetCode(), 0U);
    }
}

TEST_F(ConfigurationWrite, KeysAreAddedByTheMapsOwnOperations) {
    Configuration configuration = Reading("b = 1\n");
    configuration.emplace("a", "2");
    configuration.erase("b");
    configuration.Write();
    EXPECT_EQ(_folder.Get("file"), "a = \"2\"\n");
}

TEST_F(ConfigurationWrite, CopyHasItsOwnSettingsAndTheSamePath) {
    const Configuration original = Reading("a = 1\n");
    Configuration copy(original);
    copy["a"] = "2";
    EXPECT_EQ(original["a"], "1");
    copy.Write();
    EXPECT_EQ(_folder.Get("file"), "a = \"2\"\n");
    copy = original;
    EXPECT_EQ(copy["a"], "1");
}

TEST_F(ConfigurationWrite, MovedConfigurationWritesToTheSamePath) {
    Configuration original = Reading("a = 1\n");
    Configuration moved(std::move(original));
    moved["a"] = "3";
    moved.Write();
    EXPECT_EQ(_folder.Get("file"), "a = \"3\"\n");
}

extern "C" void* RewriteUntilCancelled(void* path) {
    for (int i = 0;; ++i) {
        Configuration configuration(*static_cast<const std::string*>(path));
        configuration["n"] = std::to_string(i);
        configuration.Write();
        pthread_testcancel();
    }
}

// Closing a file is a cancellation point, and happens in destructors, which a cancelled thread may not leave.
TEST_F(ConfigurationWrite, CancelledThreadEndsAndLeavesAWholeFile) {
    _folder.Put("file", "n = old\n");
    std::string path = _folder.Path("file");
    for (int round = 0; round < 200; ++round) {
        pthread_t writer = {};
        ASSERT_EQ(pthread_create(&writer, nullptr, RewriteUntilCancelled, &path), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(round * 10));  // at another point each time
        pthread_cancel(writer);
        void* result = nullptr;
        pthread_join(writer, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_NO_THROW(Configuration{path}["n"]);
    }
    const std::filesystem::directory_iterator files(_folder.Path(""));
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "a temporary file is left";
}

TEST(ConfigurationShape, IsAMapWithTwoVirtualOperations) {
    static_assert(std::is_base_of_v<std::map<std::string, std::string>, Configuration>);
    static_assert(std::has_virtual_destructor_v<Configuration>);
    static_assert(std::is_base_of_v<Configuration, AuthenticationConfiguration>);
    static_assert(std::is_base_of_v<Configuration, ProviderConfiguration>);
    static_assert(std::is_base_of_v<Configuration, APXProviderConfiguration>);
    EXPECT_EQ(sizeof(ProviderConfiguration), sizeof(Configuration)) << "no subclass adds a field";
    EXPECT_EQ(SlotOf(&Configuration::Write), 2U);
}

}  // namespace
