/* Reaches into the provider counting. */

#ifndef TESTS_PLUGINS_MISBEHAVING_COUNTING_H_
#define TESTS_PLUGINS_MISBEHAVING_COUNTING_H_

#include "parts.h"

struct CountingControl {
    /* The status of every operation from now on; outputs are filled whatever it is. */
    void (*setStatus)(uint32_t status);
    int (*given)(void);     /* outputs handed to the library so far */
    int (*released)(void);  /* of these, given back once, through the function that came with them */
    int (*wrong)(void);     /* releases of something else: twice, unknown, or through another function */
    void (*takeBack)(void); /* frees what the library kept, and counts from 0 again */
};

#endif /* TESTS_PLUGINS_MISBEHAVING_COUNTING_H_ */
