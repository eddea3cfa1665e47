#include "support/system_log.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <system_error>
#include <utility>

namespace nimbrel::authentication::test {
namespace {

constexpr sockaddr_un kAddress{AF_UNIX, "/dev/log"};
constexpr std::string_view kMark = "mark";
constexpr std::string_view kEnd = "end";

[[noreturn]] void Fail(int error, const char* what) { throw std::system_error(error, std::generic_category(), what); }

const sockaddr* Address() { return reinterpret_cast<const sockaddr*>(&kAddress); }

int OpenSocket() {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) Fail(errno, "socket");
    return fd;
}

int BindLog() {
    int fd = OpenSocket();
    unlink(kAddress.sun_path);
    if (bind(fd, Address(), sizeof kAddress) != 0) {
        int error = errno;
        close(fd);
        Fail(error, kAddress.sun_path);
    }
    return fd;
}

// "<14>Jan  1 12:00:00 program[7]: text" has priority 6 (14 without its facility) and the text "text".
LogRecord Parse(std::string_view datagram) {
    int priority = -1;
    std::from_chars(datagram.data() + 1, datagram.data() + datagram.size(), priority);
    std::size_t colon = datagram.find(": ", datagram.find('>') + sizeof "Jan  1 12:00:00");
    return {LOG_PRI(priority), std::string(datagram.substr(colon + 2))};
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const LogRecord& record) {
    return stream << '<' << record.priority << "> \"" << record.text << '"';
}

SystemLog::SystemLog() : _socket(BindLog()), _reader([this] { Read(); }) {}

SystemLog::~SystemLog() {
    SendMark(kEnd);
    _reader.join();
    close(_socket);
    closelog();
}

std::vector<LogRecord> SystemLog::Take() {
    SendMark(kMark);
    std::unique_lock lock(_mutex);
    int mark = ++_marksSent;
    _grown.wait(lock, [&] { return _marksSeen >= mark; });
    return std::exchange(_records, {});
}

bool SystemLog::Await(const std::string& start) {
    std::unique_lock lock(_mutex);
    return _grown.wait_for(lock, std::chrono::seconds(30), [&] {
        return std::any_of(_records.begin(), _records.end(),
                           [&](const LogRecord& record) { return record.text.rfind(start, 0) == 0; });
    });
}

void SystemLog::Read() {
    std::array<char, 16384> buffer;
    for (;;) {
        ssize_t length = recv(_socket, buffer.data(), buffer.size(), 0);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) Fail(errno, "recv");
        std::string_view datagram(buffer.data(), static_cast<std::size_t>(length));
        if (datagram == kEnd) return;
        Keep(datagram);
    }
}

void SystemLog::Keep(std::string_view datagram) {
    std::lock_guard lock(_mutex);
    if (datagram == kMark) {
        ++_marksSeen;
    } else {
        _records.push_back(Parse(datagram));
    }
    _grown.notify_all();
}

void SystemLog::SendMark(std::string_view mark) {
    int fd = OpenSocket();
    ssize_t sent = sendto(fd, mark.data(), mark.size(), 0, Address(), sizeof kAddress);
    int error = errno;
    close(fd);
    if (sent < 0) Fail(error, "sendto");
}

}  // namespace nimbrel::authentication::test
