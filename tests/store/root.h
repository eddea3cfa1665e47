// The files of a private root that the store reads and writes, and its providers.

#ifndef TESTS_STORE_ROOT_H_
#define TESTS_STORE_ROOT_H_

#include <string>
#include <vector>

#include "support/files.h"
#include "support/private_root.h"

namespace nimbrel::authentication::test {

inline constexpr const char* kSettingsFolder = "/etc/nimbrel/nimauth";
inline constexpr const char* kRecordFile = "/etc/nimbrel/nimauth/authentication.conf";
inline constexpr const char* kProviderFile = "/etc/nimbrel/nimauth/provider.conf";
inline constexpr const char* kProxyProviderFile = "/etc/nimbrel/nimauth/apxprovider.conf";
inline constexpr const char* kHostsFile = "/etc/hosts";

bool Exists(const std::string& path);

// The names in a folder, in byte order.
std::vector<std::string> Names(const std::string& folder);

// Makes authentication.conf say that this store is active, and nothing else.
void Record(const std::string& store);

// Copies the plug-in `file` to where a provider called `name` is found.
void InstallProvider(const std::string& name, const std::string& file);

}  // namespace nimbrel::authentication::test

#endif  // TESTS_STORE_ROOT_H_
