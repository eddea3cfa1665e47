// Writes the documents that are installed beside the tool into the folder named on the command line.

#include "tools/nimauthctl/documents.h"

#include <fstream>
#include <iostream>
#include <string>

namespace {

bool Write(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::trunc | std::ios::binary);
    stream << text << std::flush;
    if (!stream.good()) std::cerr << "unable to write '" << path << "'\n";
    return stream.good();
}

}  // namespace

int main(int argc, char** argv) {
    using namespace nimbrel::nimauthctl;
    if (argc != 2) return 2;
    const std::string folder = std::string(argv[1]) + '/';
    const bool written =
        Write(folder + "nimauthctl.8", ManPage()) && Write(folder + "nimauthctl.bash", BashCompletion()) &&
        Write(folder + "_nimauthctl", ZshCompletion()) && Write(folder + "nimauthctl.fish", FishCompletion());
    return written ? 0 : 1;
}
