// What a run of an operation, in a process of its own, tells the process that started it.

#ifndef TESTS_CRASH_REPORT_H_
#define TESTS_CRASH_REPORT_H_

#include <cstddef>
#include <optional>
#include <string>

#include "crash/files.h"
#include "crash/operation.h"

namespace nimbrel::crash {

// How a call went.
struct Attempt {
    bool succeeded = false;
    bool outOfMemory = false;
    bool documented = false;  // it threw one of the classes that the operation is documented to throw
    std::string error = {};   // the class and the text
};

// What the host looks like.
struct Observation {
    Parts parts;
    Attributes attributes;
};

struct Report {
    Attempt attempt;
    std::string leaked;  // descriptors that the attempt left open
    long allocations = 0;
    Observation between;
    Attempt next;
    Observation end;
};

// Memory that a child process shares with its parent.
class SharedReport {
 public:
    SharedReport();
    SharedReport(const SharedReport&) = delete;
    SharedReport& operator=(const SharedReport&) = delete;
    ~SharedReport();

    void Clear();
    // Throws `std::runtime_error` if the report is too large.
    void Put(const Report& report);
    // Unset if none was put since `Clear`.
    std::optional<Report> Take() const;

 private:
    char* _memory;
};

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_REPORT_H_
