// Symbol visibility. Everything in this project is compiled with hidden symbols; what another shared object may use
// carries NIMAUTH_EXPORT. Usable from C and C++.

#ifndef NIMBREL_AUTHENTICATION_EXPORT_H_
#define NIMBREL_AUTHENTICATION_EXPORT_H_

#define NIMAUTH_EXPORT __attribute__((visibility("default")))

#endif  // NIMBREL_AUTHENTICATION_EXPORT_H_
