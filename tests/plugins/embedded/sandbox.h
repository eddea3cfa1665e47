// A temporary folder with an embedded directory in it, and the words in which its tests are written.

#ifndef NIMBREL_TESTS_PLUGINS_EMBEDDED_SANDBOX_H_
#define NIMBREL_TESTS_PLUGINS_EMBEDDED_SANDBOX_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/membership.h"
#include "plugins/embedded/cheap_passwords.h"
#include "support/temporary_folder.h"

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
        MakePasswordsCheap(made, kPassword);
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
