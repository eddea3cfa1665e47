// A join under way, as it stands on the disk from its first change in the domain on: a keytab of the machine account
// beside the membership (/var/lib/nimbrel/ad/membership.joining, mode 0600), with the keys that the domain may hold by
// then. It goes when the join has ended; one that is found by another call is of a join that was cut short.
//
//     if (const auto left = UnfinishedJoin(settings).Find()) ...    // left->account: "NODE01" of "corp.test"
//
// The next join takes away what that one has left on the host. One with the same machine account goes on with the keys if
// the one-time secret is used up; the account would be lost otherwise. For the same reason the file outlives any other
// join that fails before it has given the account a secret of its own, or has keys of its own to leave there: the domain
// holds those then. A leave takes everything away.
//
// Threads: any; changes are made under the membership's lock. Errors: `DamagedRecordError`, and `AdError` with 5 for a
// file that may not be used.

#ifndef NIMBREL_AD_UNFINISHED_JOIN_H_
#define NIMBREL_AD_UNFINISHED_JOIN_H_

#include <optional>
#include <string>

#include "addirectory/ad_error.h"
#include "addirectory/settings.h"
#include "keytab.h"

namespace nimbrel::ad {

// 1359. A leave without credentials removes it.
class DamagedRecordError : public AdError {
 public:
    using AdError::AdError;
};

class UnfinishedJoin {
 public:
    explicit UnfinishedJoin(const Settings& settings) : _path(settings.membership + ".joining") {}

    struct Left {
        KeytabAccount account;
        kit::Secret keytab;  // the file's bytes
    };
    bool IsThere() const;
    // Unset if there is none.
    std::optional<Left> Find() const;
    // Replaces what is there. Durable when it returns.
    void Record(const KeytabAccount& account, const MachineKeys& keys) const;
    void Forget() const;
    // Puts back what `Record` has replaced.
    void Restore(const Left& left) const;
    const std::string& Path() const { return _path; }
    // As libkrb5 names it.
    std::string Keytab() const { return "FILE:" + _path; }

 private:
    std::string _path;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_UNFINISHED_JOIN_H_
