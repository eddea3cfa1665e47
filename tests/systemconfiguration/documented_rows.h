// The table rows of a document that tells what becomes of real files, and the files.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_DOCUMENTED_ROWS_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_DOCUMENTED_ROWS_H_

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

inline std::string ReadWhole(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The texts of a folder's files, by name.
inline std::map<std::string, std::string> ReadFolder(const std::filesystem::path& folder) {
    std::map<std::string, std::string> texts;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        texts[entry.path().filename()] = ReadWhole(entry.path());
    }
    return texts;
}

// The rows "| `name` | ... |" below the heading "## Real files", by name.
inline std::map<std::string, std::string> DocumentedRows(const std::filesystem::path& document) {
    std::ifstream stream(document);
    std::map<std::string, std::string> rows;
    bool started = false;
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind("## ", 0) == 0) started = line == "## Real files";
        if (started && line.rfind("| `", 0) == 0) rows[line.substr(3, line.find('`', 3) - 3)] = line;
    }
    return rows;
}

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_DOCUMENTED_ROWS_H_
