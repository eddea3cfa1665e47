// The private root of the proxy tests: its files, its plug-ins, and what calls throw.
//
// Everything that changes a file throws `std::runtime_error` outside a private root, before it has touched anything.

#ifndef TESTS_PROXY_ROOT_H_
#define TESTS_PROXY_ROOT_H_

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "support/files.h"
#include "support/private_root.h"

namespace nimbrel::authentication::test {

inline constexpr const char* kPluginFolder = "/usr/libexec/nimauth/";
inline constexpr const char* kProxyFile = "/etc/nimbrel/nimauth/apxprovider.conf";
inline constexpr const char* kProviderFile = "/etc/nimbrel/nimauth/provider.conf";

// Copies the test plug-in `plugin` to `path`, or to where a plug-in called `name` is found.
void InstallAt(const std::string& path, const std::string& plugin);
void Install(const std::string& name, const std::string& plugin);
void RemovePlugins();

// The text of the `Error` that `call` throws. A derived class fails the test; anything else goes on to the caller.
template <typename Error, typename Call>
std::string TextOf(const Call& call) {
    try {
        call();
    } catch (const Error& error) {
        EXPECT_STREQ(typeid(error).name(), typeid(Error).name());
        return error.what();
    }
    return "(nothing was thrown)";
}

// "IOError: Unable to open ...", the class without its namespace.
std::string Describe(const std::exception& error);

// What `call` throws, described, or "success".
template <typename Call>
std::string Outcome(const Call& call) {
    try {
        call();
    } catch (const std::exception& error) {
        return Describe(error);
    }
    return "success";
}

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PROXY_ROOT_H_
