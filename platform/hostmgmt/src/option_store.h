// The objects of the configuration store that hold the advanced options.

#ifndef HOSTMGMT_SRC_OPTION_STORE_H_
#define HOSTMGMT_SRC_OPTION_STORE_H_

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "orbconfigstore/config_store.h"

namespace HostMgmt::Adv {

inline constexpr char kIntegerType[] = "integer";
inline constexpr char kStringType[] = "string";

// An option as it is stored.
struct OptionRecord {
    std::string type;
    std::string value;
    std::string description;
};

// Reads and writes option records. Errors are the configuration store's, and HostMgmtException for a name that is not a
// full name.
//
// Threads: any number at once.
class OptionStore {
 public:
    OptionStore();

    // The option's record; that of the host's own option where nothing is stored; nothing when there is no such option.
    std::optional<OptionRecord> Find(const std::string& fullName) const;

    // Writes what `rewriting` makes of the option's record; what it throws changes nothing.
    using Rewriting = std::function<OptionRecord(std::optional<OptionRecord>)>;
    void Rewrite(const std::string& fullName, const Rewriting& rewriting);

    // Writes the record of an option that may be new.
    void Declare(const std::string& fullName, const OptionRecord& record);

    void Remove(const std::string& fullName);
    void Restore(const std::string& fullName);

    // The full names of all options.
    std::set<std::string> FullNames() const;

 private:
    void Write(const std::string& fullName, const OptionRecord& record);
    void Forget(const std::string& fullName);
    void SetIndexed(const std::string& fullName, bool indexed);

    const std::shared_ptr<OrbConfigStore::ConfigStore> _store;
};

}  // namespace HostMgmt::Adv

#endif  // HOSTMGMT_SRC_OPTION_STORE_H_
