// A folder of a test's own, removed with all that is in it.

#ifndef NIMAUTH_TESTS_UNIT_TEMPORARY_FOLDER_H_
#define NIMAUTH_TESTS_UNIT_TEMPORARY_FOLDER_H_

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

class TemporaryFolder {
 public:
    TemporaryFolder() : _path((std::filesystem::temp_directory_path() / "nimauth.XXXXXX").string()) {
        if (mkdtemp(_path.data()) == nullptr) throw std::runtime_error("no temporary folder at " + _path);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    std::string Path(const std::string& name) const { return _path + "/" + name; }

    // Makes or replaces a file, with the mode as given.
    void Put(const std::string& name, const std::string& text, mode_t mode = 0644) const {
        std::ofstream stream(Path(name), std::ios::binary);
        stream << text << std::flush;
        if (!stream || chmod(Path(name).c_str(), mode) != 0) throw std::runtime_error("cannot make " + Path(name));
    }

    std::string Get(const std::string& name) const {
        std::ifstream stream(Path(name), std::ios::binary);
        if (!stream) throw std::runtime_error("cannot read " + Path(name));
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    // The twelve permission bits.
    unsigned Mode(const std::string& name) const {
        struct stat status = {};
        if (stat(Path(name).c_str(), &status) != 0) throw std::runtime_error("no file " + Path(name));
        return status.st_mode & 07777U;
    }

    // What is in the folder, sorted.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(_path)) names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

 private:
    std::string _path;
};

#endif  // NIMAUTH_TESTS_UNIT_TEMPORARY_FOLDER_H_
