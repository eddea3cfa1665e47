#include "log_ins_root.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace nimbrel::ad::test {
namespace {

std::string Octal(unsigned mode) {
    std::ostringstream text;
    text << std::oct << mode;
    return text.str();
}

}  // namespace

DomainLogIns Corp() { return {"corp.test", "CORP.TEST", "CORP", "node01.corp.test", "NODE01$", "/etc/krb5.keytab"}; }

DomainLogIns Other() {
    return {"other.test", "OTHER.TEST", "OTHER", "node01.other.test", "NODE01$", "/etc/krb5.keytab"};
}

LogInsRoot::LogInsRoot() { Put("/etc/krb5.keytab", "keys", 0600); }

std::map<std::string, std::string> LogInsRoot::Everything() const {
    std::map<std::string, std::string> all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(RootPath())) {
        const std::string path = entry.path().string().substr(RootPath().size());
        all[path] = Octal(Mode(path)) + ' ' + (entry.is_directory() ? "folder" : Text(path));
    }
    return all;
}

bool LogInsRoot::Has(const std::string& path) const { return std::filesystem::exists(Path(path)); }

std::string LogInsRoot::Text(const std::string& path) const {
    std::ifstream stream(Path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

unsigned LogInsRoot::Mode(const std::string& path) const {
    struct stat status = {};
    if (stat(Path(path).c_str(), &status) != 0) throw std::runtime_error("no file " + path);
    return status.st_mode & 07777U;
}

void LogInsRoot::Put(const std::string& path, const std::string& text, unsigned mode) const {
    std::filesystem::create_directories(std::filesystem::path(Path(path)).parent_path());
    std::ofstream stream(Path(path), std::ios::binary);
    stream << text << std::flush;
    stream.close();
    std::filesystem::permissions(Path(path), static_cast<std::filesystem::perms>(mode));
}

std::vector<std::string> LogInsRoot::NamesIn(const std::string& folder) const {
    std::vector<std::string> names;
    if (!Has(folder)) return names;
    for (const auto& entry : std::filesystem::directory_iterator(Path(folder))) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace nimbrel::ad::test
