// Small files, read at once.

#ifndef NIMBREL_PLUGINKIT_WHOLE_FILE_H_
#define NIMBREL_PLUGINKIT_WHOLE_FILE_H_

#include <cstddef>
#include <optional>
#include <string>

namespace nimbrel::kit {

// The file's bytes. Unset, with the reason in `errno`, if it cannot be read: EISDIR for a folder, EFBIG for more than
// `most` bytes. The descriptor is closed in programs that are started meanwhile. Throws `std::bad_alloc`.
std::optional<std::string> ReadWholeFile(const std::string& path, std::size_t most = std::string::npos);

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_WHOLE_FILE_H_
