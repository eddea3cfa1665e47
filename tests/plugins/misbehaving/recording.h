/* Reaches into the provider recording. */

#ifndef TESTS_PLUGINS_MISBEHAVING_RECORDING_H_
#define TESTS_PLUGINS_MISBEHAVING_RECORDING_H_

#include "parts.h"

struct RecordingControl {
    /* The last call: the operation's name and its arguments as the provider saw them, for example
     * "joinDomain(corp.test, null, {user, secret})". Valid until the next call. */
    const char* (*lastCall)(void);

    /* The address of the last record or array that a call was given; null before the first and for a null one. */
    const void* (*lastAddress)(void);
};

#endif /* TESTS_PLUGINS_MISBEHAVING_RECORDING_H_ */
