// A configuration text taken apart by one of libaugeas's lenses, edited as a tree, and put together again: whatever the
// edit does not concern comes back byte for byte. Everything happens in memory.
//
//     AugeasText nsswitch("Nsswitch.lns", text);
//     nsswitch.Set("database[. = 'passwd']/service[last() + 1]", "sss");
//     const std::string edited = nsswitch.Text();
//
// Paths are relative to the text. Errors: `LoginsError`, kind Refused for a text that the lens cannot read or write.
// Threads: one object belongs to one thread.

#ifndef NIMBREL_LOGINS_AUGEAS_TEXT_H_
#define NIMBREL_LOGINS_AUGEAS_TEXT_H_

#include <memory>
#include <string>
#include <vector>

struct augeas;

namespace nimbrel::logins {

class AugeasText {
 public:
    AugeasText(const std::string& lens, const std::string& text);

    // Absolute paths, in the order of the text.
    std::vector<std::string> Match(const std::string& path) const;
    // Empty for a node without a value. Takes relative and absolute paths, like all below.
    std::string Value(const std::string& path) const;
    void Set(const std::string& path, const std::string& value);
    // A new sibling with this label in front of the node, or behind it.
    void InsertBefore(const std::string& path, const std::string& label);
    void InsertBehind(const std::string& path, const std::string& label);
    void Remove(const std::string& path);

    std::string Text();

 private:
    struct Close {
        void operator()(augeas* handle) const;
    };
    std::string Full(const std::string& path) const;
    void Check(bool good, const std::string& what) const;

    std::unique_ptr<augeas, Close> _augeas;
    std::string _lens;
    bool _endAdded = false;
};

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_AUGEAS_TEXT_H_
