#include "crash/report.h"

#include <sys/mman.h>

#include <cstring>
#include <stdexcept>
#include <string_view>

namespace nimbrel::crash {
namespace {

constexpr std::size_t kSize = 4 << 20;

// The same walk over a report writes it and reads it.
class Writer {
 public:
    Writer(char* begin, std::size_t size) : _at(begin), _left(size) {}

    void operator()(const std::string& text) {
        const std::size_t size = text.size();
        Bytes(&size, sizeof size);
        Bytes(text.data(), size);
    }
    void operator()(const bool& flag) { Bytes(&flag, sizeof flag); }
    void operator()(const long& number) { Bytes(&number, sizeof number); }
    void operator()(const std::map<std::string, std::string>& texts) {
        (*this)(static_cast<long>(texts.size()));
        for (const auto& [key, value] : texts) {
            (*this)(key);
            (*this)(value);
        }
    }

 private:
    void Bytes(const void* bytes, std::size_t size) {
        if (size > _left) throw std::runtime_error("the report is too large");
        std::memcpy(_at, bytes, size);
        _at += size;
        _left -= size;
    }

    char* _at;
    std::size_t _left;
};

class Reader {
 public:
    explicit Reader(const char* begin) : _at(begin) {}

    void operator()(std::string& text) {
        std::size_t size = 0;
        Bytes(&size, sizeof size);
        text.assign(_at, size);
        _at += size;
    }
    void operator()(bool& flag) { Bytes(&flag, sizeof flag); }
    void operator()(long& number) { Bytes(&number, sizeof number); }
    void operator()(std::map<std::string, std::string>& texts) {
        long count = 0;
        (*this)(count);
        for (; count > 0; --count) {
            std::string key;
            (*this)(key);
            (*this)(texts[key]);
        }
    }

 private:
    void Bytes(void* bytes, std::size_t size) {
        std::memcpy(bytes, _at, size);
        _at += size;
    }

    const char* _at;
};

template <typename Field, typename AttemptType>
void WalkAttempt(Field& field, AttemptType& attempt) {
    field(attempt.succeeded);
    field(attempt.outOfMemory);
    field(attempt.documented);
    field(attempt.error);
}

template <typename Field, typename ReportType>
void Walk(Field& field, ReportType& report) {
    WalkAttempt(field, report.attempt);
    field(report.leaked);
    field(report.allocations);
    field(report.between.parts);
    field(report.between.attributes);
    WalkAttempt(field, report.next);
    field(report.end.parts);
    field(report.end.attributes);
}

}  // namespace

SharedReport::SharedReport() {
    void* const memory = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
    _memory = static_cast<char*>(memory);
}

SharedReport::~SharedReport() { munmap(_memory, kSize); }

// The first byte tells whether a whole report follows.
void SharedReport::Clear() { *_memory = 0; }

void SharedReport::Put(const Report& report) {
    Writer writer(_memory + 1, kSize - 1);
    Walk(writer, report);
    *_memory = 1;
}

std::optional<Report> SharedReport::Take() const {
    if (*_memory == 0) return std::nullopt;
    Report report;
    Reader reader(_memory + 1);
    Walk(reader, report);
    return report;
}

}  // namespace nimbrel::crash
