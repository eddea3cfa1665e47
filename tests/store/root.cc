#include "store/root.h"

#include <algorithm>
#include <filesystem>

namespace nimbrel::authentication::test {

namespace fs = std::filesystem;

bool Exists(const std::string& path) { return fs::exists(path); }

std::vector<std::string> Names(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

void Record(const std::string& store) {
    WriteSystemFile(kRecordFile, "remote-authentication-store = \"" + store + "\"\n");
}

void InstallProvider(const std::string& name, const std::string& file) {
    CopySystemFile(file, "/usr/libexec/nimauth/lib" + name + ".so");
}

}  // namespace nimbrel::authentication::test
