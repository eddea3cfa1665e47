// An output file stream that replaces a file in one step.
//
// It writes into a temporary file beside the target, "<target>.XXXXXX", and `Commit` renames that over the target. A
// reader of the target sees the whole old file or the whole new one, never a torn one:
//
//     AtomicFileStream stream("/etc/nimbrel/nimauth/provider.conf", std::ios_base::out);
//     stream << "provider = \"ad\"\n";
//     stream.Commit();
//
// A stream that is destroyed without `Commit` leaves the target alone and its temporary file behind, with what was
// written so far. Ownership of the file is not carried over, and nothing is synchronised to disk.
//
// Threads: one thread per stream. Several streams on one target may be open at once; the last `Commit` wins.

#ifndef NIMBREL_AUTHENTICATION_ATOMIC_FILE_STREAM_H_
#define NIMBREL_AUTHENTICATION_ATOMIC_FILE_STREAM_H_

#include <fstream>
#include <ios>
#include <string>

#include "authentication/export.h"

namespace nimbrel::authentication {

class NIMAUTH_EXPORT AtomicFileStream : public std::ofstream {
 public:
    // As `open`.
    AtomicFileStream(const char* path, std::ios_base::openmode mode);
    ~AtomicFileStream() override;

    // Makes the temporary file, mode 0600, and opens the stream on it with `mode` plus output. A `path` of more than
    // 4088 bytes leaves no room for the temporary name and is refused (unless its bytes 4090 to 4095 are "XXXXXX": then
    // the commit fails, or replaces it if it has 4095 bytes).
    //
    // Throws `IOError` if the temporary file cannot be made. If only opening the stream on it fails, the stream's
    // failbit is set instead.
    void open(const char* path, std::ios_base::openmode mode);

    // Closes the stream and moves the temporary file over the target, which keeps its permission bits; a target that
    // did not exist gets mode 0600. Call it once. It does not look at the stream's state: test the stream before, if a
    // failed write must not be put in place. A failure to close sets failbit and does not stop the replacement.
    //
    // Throws `IOError` if the rename fails (the target is unchanged, the temporary file stays), `FilePermissionError`
    // if the new contents are in place but the old permissions could not be read or set.
    void Commit();

 private:
    std::string _temporaryPath;
    std::string _targetPath;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_ATOMIC_FILE_STREAM_H_
