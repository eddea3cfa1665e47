// A settings file of so many lines, in memory: in the library's format, and with the section line that others ask for.

#ifndef NIMAUTH_BENCHMARKS_SETTINGS_FILE_H_
#define NIMAUTH_BENCHMARKS_SETTINGS_FILE_H_

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

class SettingsFile {
 public:
    // /dev/shm is memory, so that no disk is measured.
    explicit SettingsFile(long lines) : _path("/dev/shm/nimauth-benchmark-" + std::to_string(lines)) {
        std::ofstream plain(Plain());
        std::ofstream sectioned(Sectioned());
        sectioned << "[settings]\n";
        for (long i = 0; i < lines; ++i) {
            char line[80];
            std::snprintf(line, sizeof line, "setting-%07ld = \"value number %ld\"\n", i, i);
            plain << line;
            sectioned << line;
        }
    }
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;
    ~SettingsFile() {
        std::error_code ignored;
        std::filesystem::remove(Plain(), ignored);
        std::filesystem::remove(Sectioned(), ignored);
    }

    std::string Plain() const { return _path + ".conf"; }
    std::string Sectioned() const { return _path + ".ini"; }

 private:
    std::string _path;
};

#endif  // NIMAUTH_BENCHMARKS_SETTINGS_FILE_H_
