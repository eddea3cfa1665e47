// What is being done to which file, so that every message of the store names both.

#ifndef ORBCONFIGSTORE_SRC_ACTIVITY_H_
#define ORBCONFIGSTORE_SRC_ACTIVITY_H_

#include <string>
#include <system_error>

#include "orbconfigstore/config_store.h"

namespace OrbConfigStore {

struct Activity {
    std::string path;
    std::string doing;  // for example "write the object orb/identity/active_directory"

    [[noreturn]] void Fail(const std::string& reason) const {
        throw ConfigStoreException(("Cannot " + doing + " in " + path + ": " + reason).c_str());
    }
    [[noreturn]] void FailWithSystemError(int error) const { Fail(std::generic_category().message(error)); }
};

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_ACTIVITY_H_
