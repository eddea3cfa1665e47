// One operation that changes the host's state, and what may be seen of it when it is cut short.

#ifndef TESTS_CRASH_OPERATION_H_
#define TESTS_CRASH_OPERATION_H_

#include <cstddef>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace nimbrel::crash {

// The state that the operation changes, in words: the name of a part -> what is in it.
using Parts = std::map<std::string, std::string>;

struct Operation {
    std::string name;
    std::vector<std::string> folders;  // below them lies every file that it may touch
    std::function<void()> prepare;     // makes the old state, in folders that are empty
    std::function<void()> run;
    std::function<Parts()> read;  // the state as the product itself reads it; never throws for a whole state
    std::function<bool(const std::exception&)>
        isDocumented;  // whether it may fail with this; exhausted memory always may

    // What comes next on the same host; empty for `run` once more. It leads to the new state from the old one, the new
    // one and, where there are such, those in between.
    std::function<void()> next = {};
    // A killed process may leave some parts new and others old.
    bool killedPartByPart = false;
    // So may a call that throws.
    bool throwsPartByPart = false;
    // So may one that runs out of memory for good: what it has done cannot be taken back then.
    bool exhaustedPartByPart = false;
    // A call that throws has changed nothing. Else it may have changed everything.
    bool throwsUnchanged = true;
    // When what it has written reaches the disk is left to the kernel: a power cut may leave anything.
    bool isLeftToTheKernel = false;
    // Only every so manieth point is tried, where all would take too long. Odd numbers that three does not divide go
    // through the errors of a call in turn.
    std::size_t killStride = 1;
    std::size_t powerStride = 1;
    std::size_t failureStride = 1;
    std::size_t allocationStride = 1;
    // Files that nothing ever deletes: path -> true.
    std::function<bool(const std::string& path)> mayStay = {};
    // Types, modes and owners beside the old and the new one: path -> "100600 0:0".
    std::map<std::string, std::string> furtherAttributes = {};
};

// Whether the exception is of one of the classes.
template <typename... Classes>
bool IsOneOf(const std::exception& error) {
    return (... || (dynamic_cast<const Classes*>(&error) != nullptr));
}

// The operations of a test program, in the order in which they are tested.
std::vector<Operation> Operations();

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_OPERATION_H_
