// A temporary folder, and the words in which the tests of the Active Directory library are written.

#ifndef NIMBREL_TESTS_PLUGINS_AD_SANDBOX_H_
#define NIMBREL_TESTS_PLUGINS_AD_SANDBOX_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>

#include "addirectory/ad_error.h"
#include "support/temporary_folder.h"

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

inline std::size_t FileCount(const std::string& folder) {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
}

class Sandbox : public ::testing::Test {
 protected:
    const std::string& Folder() const { return _folder.Path(); }
    std::string Path(const std::string& name) const { return _folder.Path(name); }

 private:
    TemporaryFolder _folder;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_SANDBOX_H_
