#include "authentication/atomic_file_stream.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "authentication/exceptions.h"

namespace nimbrel::authentication {
namespace {

constexpr std::size_t kTemplateSize = 4096;  // terminator included

// Makes an empty temporary file beside `path` and returns its name. A template that was cut does not end in the
// letters that mkstemp replaces, unless the path has them just there, so mkstemp itself refuses an over-long path.
std::string MakeTemporaryFile(const char* path) {
    char name[kTemplateSize];
    const int length = std::snprintf(name, sizeof name, "%s.XXXXXX", path);
    static_cast<void>(length);
    const int descriptor = mkstemp(name);
    const int error = errno;
    if (descriptor < 0) {
        throw IOError("Unable to create temporary file to write '" + std::string(path) + "': " + std::strerror(error));
    }
    close(descriptor);
    return name;
}

void Rename(const std::string& temporaryPath, const std::string& targetPath) {
    if (rename(temporaryPath.c_str(), targetPath.c_str()) == 0) return;
    const int error = errno;
    throw IOError("Unable to rename '" + temporaryPath + "' to '" + targetPath + "': " + std::strerror(error));
}

}  // namespace

AtomicFileStream::AtomicFileStream(const char* path, std::ios_base::openmode mode) { open(path, mode); }
AtomicFileStream::~AtomicFileStream() = default;

void AtomicFileStream::open(const char* path, std::ios_base::openmode mode) {
    _temporaryPath = MakeTemporaryFile(path);
    _targetPath = path;
    if (rdbuf()->open(_temporaryPath, mode | std::ios_base::out) == nullptr) {
        setstate(std::ios_base::failbit);
    } else {
        clear();
    }
}

void AtomicFileStream::Commit() {
    flush();
    if (rdbuf()->close() == nullptr) setstate(std::ios_base::failbit);

    struct stat target = {};
    errno = 0;
    const bool known = stat(_targetPath.c_str(), &target) == 0;
    int permissionError = known ? 0 : errno;

    Rename(_temporaryPath, _targetPath);
    if (permissionError == ENOENT) return;  // a new file keeps the mode of the temporary one, 0600

    if (known && chmod(_targetPath.c_str(), target.st_mode) != 0) permissionError = errno;
    if (permissionError != 0) {
        throw FilePermissionError("Failed to save file permissions, file permissions may be incorrect: " +
                                  std::string(std::strerror(permissionError)));
    }
}

}  // namespace nimbrel::authentication
