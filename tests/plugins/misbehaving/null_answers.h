/* Reaches into the provider null_answers. */

#ifndef TESTS_PLUGINS_MISBEHAVING_NULL_ANSWERS_H_
#define TESTS_PLUGINS_MISBEHAVING_NULL_ANSWERS_H_

#include "parts.h"

struct NullAnswersControl {
    int (*releases)(void); /* how often the release function was called since the plug-in was loaded */
};

#endif /* TESTS_PLUGINS_MISBEHAVING_NULL_ANSWERS_H_ */
