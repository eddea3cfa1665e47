// The service's log: lines of name=value on standard error, where systemd's journal takes them.
//
//     request client=192.0.2.10 method=POST path=/v1/computers account=NODE01 http=201 status=0 way=created ms=12
//
// A value that is not one plain word stands in double quotes; in it `"`, `\` and everything but printable ASCII are
// written \xNN, so that no client can forge a line. No value is ever a secret.

#ifndef NIMBREL_APXD_SERVICE_LOG_H_
#define NIMBREL_APXD_SERVICE_LOG_H_

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace nimbrel::apxd {

class LogLine {
 public:
    explicit LogLine(std::string_view event) : _text(event) {}

    // Longer values are cut at 256 bytes, with "..." behind.
    LogLine& Add(std::string_view name, std::string_view value);
    LogLine& Add(std::string_view name, std::uint64_t value) { return Add(name, std::to_string(value)); }
    // Not at all if the value is empty.
    LogLine& AddIfAny(std::string_view name, std::string_view value) {
        return value.empty() ? *this : Add(name, value);
    }

    // Without a line end.
    const std::string& Text() const { return _text; }

    // With one write, so that lines of several threads do not mix.
    void Write() const;

 private:
    std::string _text;
};

// Lines that anybody on the network can cause: twenty at once, then one each second. What is left out is counted, and the
// next line tells how many.
//
// Threads: any.
class LogBudget {
 public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr double kLinesAtOnce = 20;

    // Writes the line, with `left-out=N` where lines have been left out before it, or leaves it out.
    void Write(LogLine& line, Time now);

    // How many lines have been left out before the one that may be written now; unset if that is left out, too.
    std::optional<std::uint64_t> Take(Time now);

 private:
    std::mutex _lock;  // guards all below
    double _lines = kLinesAtOnce;
    Time _filled = {};
    std::uint64_t _leftOut = 0;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_SERVICE_LOG_H_
