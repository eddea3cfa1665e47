// Allocations that fail on demand, for the whole program: its own, and those of the libraries that it uses.
//
//     FailAllocation(3);                    // the third from now on
//     Work();
//     const long count = StopAllocations(); // how many there were
//
// Under a sanitizer, which has a `malloc` of its own, only `operator new` of this program counts and fails.
//
// Threads: one.

#ifndef TESTS_CRASH_ALLOCATIONS_H_
#define TESTS_CRASH_ALLOCATIONS_H_

namespace nimbrel::crash {

// Begins to count. The allocation with this number fails, with `onwards` all later ones too; none at 0.
void FailAllocation(long number, bool onwards = false);

// Ends it, and returns the count. Safe where memory has run out.
long StopAllocations();

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_ALLOCATIONS_H_
