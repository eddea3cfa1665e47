// One join, leave or change of the preferred controllers at a time.

#ifndef NIMBREL_AD_MEMBERSHIP_LOCK_H_
#define NIMBREL_AD_MEMBERSHIP_LOCK_H_

#include "addirectory/settings.h"
#include "files.h"

namespace nimbrel::ad {

class MembershipLock {
 public:
    MembershipLock(const Settings& settings, const Deadline& deadline)
        : _lock(settings.membership + ".lock", deadline) {}

 private:
    FileLock _lock;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_MEMBERSHIP_LOCK_H_
