/* Needs a variable that exists nowhere, so that the loader refuses it. */

extern int variable_that_exists_nowhere;
extern const int* address_of_it;
const int* address_of_it = &variable_that_exists_nowhere;
