// Runs a fuzz target over the inputs that are kept for it: all files of the folders named on the command line. A folder
// that is missing or holds nothing is a failure, as the test would say nothing then.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Inputs(const fs::path& folder) {
    std::vector<fs::path> inputs;
    std::error_code error;
    for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error)) {
        if (item->is_regular_file()) inputs.push_back(item->path());
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

bool Replay(const fs::path& input) {
    std::ifstream stream(input, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) {
        std::cerr << "cannot read " << input << '\n';
        return false;
    }
    std::cerr << input.filename().string() << '\n';  // the last one is the culprit where the target ends the process
    // Of exactly this size, so that AddressSanitizer sees a read behind the end.
    const auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    LLVMFuzzerTestOneInput(copy.get(), bytes.size());
    return true;
}

bool ReplayFolder(const fs::path& folder) {
    const std::vector<fs::path> inputs = Inputs(folder);
    if (inputs.empty()) std::cerr << "no inputs in " << folder << '\n';
    return !inputs.empty() && std::all_of(inputs.begin(), inputs.end(), Replay);
}

}  // namespace

int main(int count, char** arguments) {
    const std::vector<fs::path> folders(arguments + 1, arguments + count);
    if (folders.empty()) std::cerr << "no folders\n";
    return !folders.empty() && std::all_of(folders.begin(), folders.end(), ReplayFolder) ? 0 : 1;
}
