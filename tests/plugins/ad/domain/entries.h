// The objects of a small domain, with as much of a directory's rules as the provider meets: scopes, filters, default
// attributes, secrets with their key versions.
//
// Threads: any calls at once.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_ENTRIES_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_ENTRIES_H_

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::ad::test {

using Values = std::vector<std::string>;

struct Entry {
    std::string name;                          // as it was given
    std::map<std::string, Values> attributes;  // by name in lower case

    std::string Text(const std::string& attribute) const;
};

// What a controller answers: an LDAP result code and its own text.
struct Result {
    int code = 0;
    std::string diagnostic = {};
};

class Entries {
 public:
    struct Change {
        int kind;  // 0 add, 1 delete, 2 replace
        std::string attribute;
        Values values;
    };

    void Put(const std::string& name, const std::map<std::string, Values>& attributes);
    // As an administrator does: the secret stays.
    void Move(const std::string& name, const std::string& to);
    std::optional<Entry> Find(const std::string& name);
    // The names of all entries, sorted.
    std::vector<std::string> Names();
    // The one whose account name it is.
    std::optional<Entry> Account(const std::string& samAccountName);

    Result Add(const std::string& name, const std::map<std::string, Values>& attributes);
    Result Modify(const std::string& name, const std::vector<Change>& changes);
    Result Delete(const std::string& name, bool withChildren);
    // `scope`: 0 base, 1 one level, 2 subtree. `filter` is encoded.
    Result Search(const std::string& base, int scope, std::string_view filter, std::vector<Entry>& found);

    // Told about each new secret of an account, and of an account that is gone (no password). Not called at once.
    std::function<void(const Entry& account, const std::optional<std::string>& password)> onSecret;

 private:
    std::mutex _lock;                       // guards what follows
    std::map<std::string, Entry> _entries;  // by name in lower case
    std::map<std::string, std::string> _secrets;
    unsigned char _added = 0;
};

std::string LowerText(std::string text);

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_ENTRIES_H_
