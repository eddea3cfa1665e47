#include "tools/nimauthctl/password.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <system_error>

#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"
#include "tools/nimauthctl/prompt.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr std::size_t kBytes = Password::kMaximum + 4;  // a line end of two bytes, the NUL, and the byte being read
constexpr char kWithoutTerminal[] = "use --password-stdin or --password-fd N";

char* SecretPages() {
    void* const pages = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    // Both are a second line of defence: the limit on locked memory may be 0, and old kernels lack the advice.
    static_cast<void>(mlock(pages, kBytes));
    static_cast<void>(madvise(pages, kBytes, MADV_DONTDUMP));
    return static_cast<char*>(pages);
}

// The passwords that there are, and whether the process could be dumped before the first of them.
struct DumpBan {
    std::mutex lock;  // guards what follows, and the process's flag
    int passwords = 0;
    int dumpableBefore = 0;
};

DumpBan& Dumps() {
    static auto& ban = *new DumpBan;  // never destroyed: work may hold a password until the process is gone
    return ban;
}

void ForbidDumps() {
    const std::lock_guard guard(Dumps().lock);
    if (Dumps().passwords++ > 0) return;
    Dumps().dumpableBefore = prctl(PR_GET_DUMPABLE);
    prctl(PR_SET_DUMPABLE, 0);
}

void AllowDumps() {
    const std::lock_guard guard(Dumps().lock);
    if (--Dumps().passwords == 0 && Dumps().dumpableBefore == 1) prctl(PR_SET_DUMPABLE, 1);
}

// One byte at a time, so that no other buffer gets to see the password.
bool ReadByte(int descriptor, char* byte, const std::string& source) {
    for (;;) {
        const ssize_t count = read(descriptor, byte, 1);
        const int error = errno;
        if (count >= 0) return count == 1;
        if (error != EINTR) {
            throw UsageError("unable to read the password from " + source + ": " +
                             std::generic_category().message(error));
        }
    }
}

std::string DescriptorName(int descriptor) {
    return descriptor == STDIN_FILENO ? "standard input" : "descriptor " + std::to_string(descriptor);
}

void RefuseTerminal(int descriptor) {
    if (isatty(descriptor) == 1) {
        throw UsageError(DescriptorName(descriptor) + " is a terminal, which would show the password",
                         "leave the option out to be asked for the password without echo");
    }
}

}  // namespace

Password::Password() : _bytes(SecretPages()) { ForbidDumps(); }

Password::~Password() {
    explicit_bzero(_bytes, kBytes);
    munmap(_bytes, kBytes);
    AllowDumps();
}

void Password::Append(char byte, const std::string& source) {
    if (_size == kMaximum + 2) {
        throw UsageError("the password from " + source + " is longer than " + std::to_string(kMaximum) + " bytes");
    }
    _bytes[_size++] = byte;
    _bytes[_size] = '\0';
}

void Password::DropLineEnd() {
    if (View().ends_with("\r\n")) {
        _size -= 2;
    } else if (View().ends_with('\n')) {
        --_size;
    }
    _bytes[_size] = '\0';
}

void Password::CheckContents(const std::string& source) const {
    if (_size > kMaximum) {
        throw UsageError("the password from " + source + " is longer than " + std::to_string(kMaximum) + " bytes");
    }
    if (View().find('\0') != std::string_view::npos) {
        throw UsageError("the password from " + source + " holds a NUL byte");
    }
    if (View().find('\n') != std::string_view::npos) {
        throw UsageError("there is more than one line in the password from " + source,
                         "give the password alone, with at most one line end behind it");
    }
}

void Password::ReadAll(int descriptor, const std::string& source) {
    char* const byte = _bytes + kBytes - 1;  // inside the wiped pages; never part of the text
    while (ReadByte(descriptor, byte, source)) Append(*byte, source);
    DropLineEnd();
    CheckContents(source);
}

void Password::Ask(const std::string& prompt) {
    SilentTerminal terminal;
    if (!terminal.IsOpen()) throw UsageError("there is no terminal to ask for the password on", kWithoutTerminal);
    terminal.Show(prompt);
    char* const byte = _bytes + kBytes - 1;
    while (terminal.ReadByte(byte)) {
        Append(*byte, "the terminal");
        if (*byte == '\n') break;
    }
    const bool answered = _size > 0;
    DropLineEnd();
    if (!answered) throw UsageError("the terminal ended before a password was typed", kWithoutTerminal);
    CheckContents("the terminal");
}

void ReadPassword(Password& password, const std::string& user, bool fromStdin, const std::string& descriptor,
                  bool confirm) {
    if (fromStdin && !descriptor.empty()) throw UsageError("--password-stdin and --password-fd exclude each other");
    if (fromStdin || !descriptor.empty()) {
        const int number =
            fromStdin ? STDIN_FILENO : static_cast<int>(ParseInteger("--password-fd", descriptor, 0, 1 << 20));
        RefuseTerminal(number);
        password.ReadAll(number, DescriptorName(number));
        return;
    }
    password.Ask("Password for " + user + ": ");
    if (!confirm) return;
    Password again;
    again.Ask("The same again: ");
    if (again.View() != password.View()) throw UsageError("the two passwords differ", "type the same password twice");
}

}  // namespace nimbrel::nimauthctl
