/* Reaches into the provider erratic. All functions may be called from any thread. */

#ifndef TESTS_PLUGINS_MISBEHAVING_ERRATIC_H_
#define TESTS_PLUGINS_MISBEHAVING_ERRATIC_H_

#include "parts.h"

struct ErraticControl {
    /* Lets the calls go on that hang; from now on one in `oneIn` does until the next such word; 0 for none. */
    void (*hangOneIn)(int oneIn);
    int (*calls)(void);    /* calls that have begun */
    int (*running)(void);  /* of these, not yet ended */
    int (*given)(void);    /* outputs handed to the library so far */
    int (*released)(void); /* of these, given back */
};

#endif /* TESTS_PLUGINS_MISBEHAVING_ERRATIC_H_ */
