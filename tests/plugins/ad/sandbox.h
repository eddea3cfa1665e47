// A temporary folder, and the words in which the tests of the Active Directory library are written.

#ifndef NIMBREL_TESTS_PLUGINS_AD_SANDBOX_H_
#define NIMBREL_TESTS_PLUGINS_AD_SANDBOX_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "addirectory/ad_error.h"

namespace nimbrel::ad::test {

// The status of the `AdError` that `call` throws; 0 if it throws nothing.
template <class Call>
std::uint32_t StatusOf(const Call& call) {
    try {
        call();
        return 0;
    } catch (const AdError& error) {
        return error.Status();
    }
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    ASSERT_TRUE(file.flush().good()) << path;
}

inline mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

inline std::size_t FileCount(const std::string& folder) {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
}

class Sandbox : public ::testing::Test {
 protected:
    Sandbox() {
        std::string name = "/tmp/ad-test-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        _folder = name;
    }
    ~Sandbox() override { std::filesystem::remove_all(_folder); }

    const std::string& Folder() const { return _folder; }
    std::string Path(const std::string& name) const { return _folder + "/" + name; }

 private:
    std::string _folder;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_SANDBOX_H_
