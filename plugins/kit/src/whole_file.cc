#include "pluginkit/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <memory>

namespace nimbrel::kit {

// Without a stream, which takes exhausted memory for the end of the file.
std::optional<std::string> ReadWholeFile(const std::string& path, std::size_t most) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (file == nullptr) return std::nullopt;
    std::string text;
    char buffer[4096];
    int error = 0;
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0 && error == 0;) {
        text.append(buffer, count);
        if (text.size() > most) error = EFBIG;
    }
    if (error == 0 && std::ferror(file.get()) != 0) error = errno;
    if (error == 0) return text;
    errno = error;
    return std::nullopt;
}

}  // namespace nimbrel::kit
