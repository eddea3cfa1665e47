#include "benchmarks/systemconfiguration/contenders.h"

#include <filesystem>
#include <fstream>
#include <iterator>

Texts StockFiles(const std::string& folder, bool (*read)(const std::string& text)) {
    Texts texts;
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS "/" + folder)) {
        if (entry.path().filename().string().rfind("debian_", 0) != 0) continue;
        std::ifstream stream(entry.path());
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        if (read(text)) texts.push_back(text);
    }
    Expect(!texts.empty());
    return texts;
}

std::string LargeFile(const std::vector<Texts>& blocks, std::size_t size) {
    std::string text;
    for (std::size_t block = 0; block < blocks.size(); ++block) {
        const Texts& lines = blocks[block];
        const std::size_t end = size * (block + 1) / blocks.size();
        for (std::size_t index = 0; text.size() < end; ++index) text += lines[index % lines.size()] + "\n";
    }
    return text;
}
