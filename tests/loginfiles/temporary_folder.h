// A folder of its own for a test, in memory where the machine offers that, and small files in it.

#ifndef TESTS_LOGINFILES_TEMPORARY_FOLDER_H_
#define TESTS_LOGINFILES_TEMPORARY_FOLDER_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace nimbrel::testing {

class TemporaryFolder {
 public:
    TemporaryFolder() {
        const bool memory = access("/dev/shm", W_OK) == 0;
        std::string name = (memory ? std::string("/dev/shm") : ::testing::TempDir()) + "/logins.XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        _path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    std::string operator/(const std::string& name) const { return _path + '/' + name; }
    const std::string& Path() const { return _path; }

 private:
    std::string _path;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << text << std::flush;
    ASSERT_TRUE(stream.good()) << path;
}

}  // namespace nimbrel::testing

#endif  // TESTS_LOGINFILES_TEMPORARY_FOLDER_H_
