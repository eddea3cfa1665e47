#ifndef TESTS_SUPPORT_TEMPORARY_FOLDER_H_
#define TESTS_SUPPORT_TEMPORARY_FOLDER_H_

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/files.h"

// A folder of a test's own, removed with all that is in it. In memory where the machine offers that: on a disk tests would
// mostly wait for it.
class TemporaryFolder {
 public:
    TemporaryFolder() {
        const bool memory = access("/dev/shm", W_OK) == 0;
        const std::filesystem::path parent = memory ? "/dev/shm" : std::filesystem::temp_directory_path();
        _path = parent / "nimauth.XXXXXX";
        if (mkdtemp(_path.data()) == nullptr) throw std::runtime_error("no temporary folder at " + _path);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    const std::string& Path() const { return _path; }
    std::string Path(const std::string& name) const { return _path + "/" + name; }
    std::string operator/(const std::string& name) const { return Path(name); }

    // Makes or replaces a file, with the mode as given.
    void Put(const std::string& name, const std::string& text, mode_t mode = 0644) const {
        WriteFile(Path(name), text);
        if (chmod(Path(name).c_str(), mode) != 0) throw std::runtime_error("cannot set the mode of " + Path(name));
    }
    std::string Get(const std::string& name) const { return ReadFile(Path(name)); }
    mode_t Mode(const std::string& name) const { return ModeOf(Path(name)); }

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

#endif  // TESTS_SUPPORT_TEMPORARY_FOLDER_H_
