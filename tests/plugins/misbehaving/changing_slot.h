/* Reaches into the provider changing_slot. */

#ifndef TESTS_PLUGINS_MISBEHAVING_CHANGING_SLOT_H_
#define TESTS_PLUGINS_MISBEHAVING_CHANGING_SLOT_H_

struct ChangingSlotControl {
    int (*firstCalls)(void);  /* calls of the operation that asks for another attempt */
    int (*secondCalls)(void); /* calls of the one that took its place */
};

#endif /* TESTS_PLUGINS_MISBEHAVING_CHANGING_SLOT_H_ */
