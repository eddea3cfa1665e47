// Where a virtual operation lies in its class's table.
//
// Compiled clients call by position, so the positions are part of the interface:
//
//     EXPECT_EQ(SlotOf(&Exception::Clone), 3U);   // after the two entries of the destructor and `what`

#ifndef NIMAUTH_TESTS_UNIT_VIRTUAL_SLOTS_H_
#define NIMAUTH_TESTS_UNIT_VIRTUAL_SLOTS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr std::size_t kNoSlot = SIZE_MAX;

// The position, counted from 0, or `kNoSlot` for an operation that is not virtual. A pointer to a virtual member holds
// the offset into the table; where the mark "is virtual" sits depends on the machine.
template <typename MemberFunction>
std::size_t SlotOf(MemberFunction function) {
    std::uintptr_t words[2];
    static_assert(sizeof function == sizeof words);
    std::memcpy(words, &function, sizeof words);
#if defined(__aarch64__)
    const bool isVirtual = (words[1] & 1U) != 0;
    const std::uintptr_t offset = words[0];
#else
    const bool isVirtual = (words[0] & 1U) != 0;
    const std::uintptr_t offset = words[0] - 1;
#endif
    return isVirtual ? offset / sizeof(void*) : kNoSlot;
}

#endif  // NIMAUTH_TESTS_UNIT_VIRTUAL_SLOTS_H_
