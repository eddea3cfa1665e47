/*
 * Reaches into the providers whose queries never return: throws_*, exits_thread and cancels_thread; and, with release_ in
 * front, those whose release functions never return.
 */

#ifndef TESTS_PLUGINS_MISBEHAVING_LEAVING_CONTROL_H_
#define TESTS_PLUGINS_MISBEHAVING_LEAVING_CONTROL_H_

struct LeavingControl {
    void (*setHeld)(int held); /* whether queries wait before they leave */
};

#endif /* TESTS_PLUGINS_MISBEHAVING_LEAVING_CONTROL_H_ */
