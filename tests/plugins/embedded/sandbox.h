// A temporary folder with an embedded directory in it, and the words in which its tests are written.

#ifndef NIMBREL_TESTS_PLUGINS_EMBEDDED_SANDBOX_H_
#define NIMBREL_TESTS_PLUGINS_EMBEDDED_SANDBOX_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/membership.h"

namespace nimbrel::embedded::test {

inline constexpr char kPassword[] = "Winter-2031!";
inline constexpr char kDomain[] = "corp.test";
inline constexpr UserCredentials kAdmin = {"admin1", kPassword};
inline constexpr UserCredentials kDelegate = {"delegate1", kPassword};
inline constexpr UserCredentials kNobody = {"user1", kPassword};

// The status of the `DirectoryError` that `call` throws; 0 if it throws nothing.
template <class Call>
std::uint32_t StatusOf(const Call& call) {
    try {
        call();
        return 0;
    } catch (const DirectoryError& error) {
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

// Removed with everything in it. In memory where the machine offers that: on a disk the tests would mostly wait for it.
class TemporaryFolder {
 public:
    TemporaryFolder() {
        const bool memory = access("/dev/shm", W_OK) == 0;
        const std::filesystem::path parent = memory ? "/dev/shm" : std::filesystem::temp_directory_path();
        std::string name = (parent / "embedded.XXXXXX").string();
        if (!mkdtemp(name.data())) {
            throw std::runtime_error("mkdtemp failed");
        }
        _path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    std::string operator/(const std::string& name) const { return (_path / name).string(); }

 private:
    std::filesystem::path _path;
};

// corp.test with the units Hosts, Hosts/Sub and Lab, an administrator, a user to whom Hosts is delegated and one
// without rights. Made once per test program, because password hashes are slow by design.
inline const std::string& TemplateDirectory() {
    static const TemporaryFolder folder;
    static const std::string path = [] {
        std::string made = folder / "template.db";
        Directory directory = Directory::Open(made, OpenMode::CreateIfMissing);
        directory.AddDomain(kDomain);
        directory.AddOrganizationalUnit(kDomain, "Hosts/Sub");
        directory.AddOrganizationalUnit(kDomain, "Lab");
        directory.AddUser(kDomain, "admin1", kPassword, {.mayJoin = true});
        directory.AddUser(kDomain, "delegate1", kPassword, {}, {"Hosts"});
        directory.AddUser(kDomain, "user1", kPassword);
        return made;
    }();
    return path;
}

class Sandbox : public ::testing::Test {
 protected:
    Sandbox() { std::filesystem::copy_file(TemplateDirectory(), directoryPath); }

    Directory Open() const { return Directory::Open(directoryPath); }

    const TemporaryFolder folder;
    const std::string directoryPath = folder / "directory.db";
    const std::string membershipPath = folder / "membership.db";
};

}  // namespace nimbrel::embedded::test

#endif  // NIMBREL_TESTS_PLUGINS_EMBEDDED_SANDBOX_H_
