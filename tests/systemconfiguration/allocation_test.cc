// Readers when memory runs out at any allocation: the exception leaves, or shows in the stream's state; no rule that
// was read before is lost, and none is read twice by a caller who goes on.

#include <gtest/gtest.h>

#include <cstdlib>
#include <locale>
#include <new>
#include <sstream>

#include "systemconfiguration/nss_outcome.h"
#include "systemconfiguration/pam_outcome.h"

namespace {

// Allocations left before one fails; below zero none does.
long allocationsLeft = -1;
bool allocationFailed = false;

void* Allocate(std::size_t size) {
    if (allocationsLeft >= 0 && allocationsLeft-- == 0) {
        allocationFailed = true;
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

// Every rule or service has a number of its own, and words that need memory.
const std::string kPolicy =
    "auth required module_number_1_of_six first_parameter_of_it second_parameter_of_it\n"
    "# a comment that is longer than a small string\n"
    "account [success=1 default=ignore] module_number_2_of_six first_parameter_of_it\n"
    "session [success=1\n default=ignore] module_number_3_of_six first_parameter_of_it\n"
    "auth required module_number_4_of_six\n"
    "password required module_number_5_of_six a b c d first_parameter_of_it\n"
    "auth required module_number_6_of_six first_parameter_of_it";

const std::string kSwitch =
    "hosts: service_number_1_of_six [criterion_number_one=return criterion_number_two=merge]\n"
    "passwd: service_number_2_of_six service_number_3_of_six service_number_4_of_six\n"
    "# a comment that is longer than a small string\n"
    "group: service_number_5_of_six [criterion_number_one=return] lost\n"
    "rpc: service_number_6_of_six";

// Reads, with the allocation after `allocations` failing; tells whether one failed.
template <typename Reader>
bool ReadUntilMemoryRunsOut(Reader& reader, std::istream& stream, long allocations) {
    allocationFailed = false;
    allocationsLeft = allocations;
    bool thrown = false;
    try {
        reader.Read(stream);
    } catch (const std::bad_alloc&) {
        thrown = true;
    }
    allocationsLeft = -1;
    EXPECT_EQ(allocationFailed, thrown || stream.bad()) << "a failed allocation shows";
    return allocationFailed;
}

// Reads what is left, over broken lines.
template <typename Reader>
void ReadOn(Reader& reader, std::istream& stream) {
    stream.clear();
    while (!stream.fail()) {
        try {
            reader.Read(stream);
        } catch (const std::exception&) {
            // the rest of a line that was cut
        }
    }
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

template <typename Reader>
void ExpectNothingTwice(const std::string& text, const std::string& wordBeforeNumber, std::size_t mayBeLost) {
    long allocations = 0;
    for (bool failed = true; failed; ++allocations) {
        SCOPED_TRACE(allocations);
        Reader reader;
        std::istringstream stream(text);
        failed = ReadUntilMemoryRunsOut(reader, stream, allocations);
        ReadOn(reader, stream);
        std::size_t found = 0;
        for (int number = 1; number <= 6; ++number) {
            const std::size_t count = Count(reader.Model(), wordBeforeNumber + std::to_string(number) + "_of_six");
            EXPECT_LE(count, 1U) << number << " in " << reader.Model();
            found += count;
        }
        EXPECT_GE(found + (failed ? mayBeLost : 0), 6U) << reader.Model();
    }
    EXPECT_GT(allocations, 20) << "as many allocations were made to fail";
}

TEST(Allocation, NoRuleIsReadTwice) { ExpectNothingTwice<LibraryPamReader>(kPolicy, "module_number_", 1); }

// The line that is being read is gone, with all its services.
TEST(Allocation, NoServiceIsReadTwice) { ExpectNothingTwice<LibraryNssReader>(kSwitch, "service_number_", 3); }

// What a stream holds ready is read where it lies: neither its lines nor its words are copied.
TEST(Allocation, LinesThatGiveNothingNeedNoMemory) {
    std::istringstream stream(
        "# a comment that is longer than a small string\nsudoers: service_that_nobody_asked_for\n");
    LibraryNssReader reader;
    EXPECT_FALSE(ReadUntilMemoryRunsOut(reader, stream, 0));
}

TEST(Allocation, NoServiceIsReadTwiceUnderAnotherGlobalLocale) {
    const std::locale classic = std::locale::global(std::locale(std::locale::classic(), new std::ctype<char>));
    ExpectNothingTwice<LibraryNssReader>(kSwitch, "service_number_", 3);
    std::locale::global(classic);
}

}  // namespace
