// Every input of the settings reader's fuzzing corpus reads the same to the library as to the literal reader.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "unit/configuration_outcome.h"

namespace {

std::string ReadWhole(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(ConfigurationCorpus, EveryInputReadsAsTheLiteralReaderReadsIt) {
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS)) {
        EXPECT_TRUE(LibraryOutcome(entry.path()) == LiteralOutcome(ReadWhole(entry.path()))) << entry.path();
        ++inputs;
    }
    EXPECT_GE(inputs, 17) << "the inputs written by hand are there at least";
}

}  // namespace
