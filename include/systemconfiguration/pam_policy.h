// One PAM service policy, as a model that can be read, edited and written.
//
//     1  #%PAM-1.0
//     2  # who may log in
//     3  auth     required   pam_env.so
//     4  auth     [success=1 default=ignore]  pam_unix.so nullok try_first_pass
//     5  account  include    common-account
//     6  session  optional   pam_motd.so  motd=/run/motd #again
//
// Lines 1 and 2 are comments: the first character that is not white space is '#'. Every other line is a rule: a facility
// (account, auth, password, session), a control (a word, or anything in brackets), a module and its parameters, all
// separated by white space. In line 6 "#again" is a parameter: a comment starts only where a line starts.
//
//     std::ifstream in("/etc/pam.d/sshd");
//     PAMPolicy policy("sshd");
//     in >> policy;                                     // the stream ends with eofbit and failbit; that is no error
//     PAMStack& auth = policy[PAMFacility::Auth];
//     if (auth.find("pam_sss.so") == auth.end()) {
//         auth.push_front(PAMEntry(PAMControl::Sufficient, "pam_sss.so"));
//     }
//     std::ofstream("/tmp/candidate") << policy;
//
// The model is smaller than the grammar that PAM itself reads (pam.d(5)), and loses what it does not hold:
//
//   - Comments, blank lines and the order of the facilities among each other are not kept; the written file has the
//     facilities in the order account, auth, password, session.
//   - "-session", "@include" and every other word that is not one of the four facilities throws
//     `InvalidFacilityException`. A '\' at the end of a line is a parameter like any other, and the next line is read as a
//     rule.
//   - The first three fields are words, wherever they stand: a line without a module takes the first word of the next.
//   - Runs of white space inside a bracket, line ends included, become one blank.
//
// So a program that changes a live file edits the file itself and uses this model to look.
//
// Threads: plain values without a lock.

#ifndef NIMBREL_SYSTEMCONFIGURATION_PAM_POLICY_H_
#define NIMBREL_SYSTEMCONFIGURATION_PAM_POLICY_H_

#include <cstdint>
#include <deque>
#include <exception>
#include <iosfwd>
#include <list>
#include <map>
#include <string>

#include "authentication/export.h"

namespace SystemConfiguration {

// "Invalid Facility: <name>". A value without a name gives the prefix from the value-th character on instead: value 5
// reads "id Facility: ". Clients match on these texts, so they stay.
class NIMAUTH_EXPORT InvalidFacilityException : public std::exception {
 public:
    explicit InvalidFacilityException(const std::string& message);
    ~InvalidFacilityException() override;
    const char* what() const noexcept override;

 private:
    std::string _message;
};

// "Invalid Control: <control>", with the same rule for a value without a name.
class NIMAUTH_EXPORT InvalidControlException : public std::exception {
 public:
    explicit InvalidControlException(const std::string& message);
    ~InvalidControlException() override;
    const char* what() const noexcept override;

 private:
    std::string _message;
};

// Which of the four stacks a rule belongs to.
//
// Errors: every operation that takes a name throws `InvalidFacilityException` unless it is one of the four, byte for
// byte; every conversion to a name does so for a value that has none.
class NIMAUTH_EXPORT PAMFacility {
 public:
    // The order decides the order of the written file.
    enum Facility : std::int32_t { Unset = 0, Account = 1, Auth = 2, Password = 3, Session = 4 };

    PAMFacility() = default;
    PAMFacility(Facility value) : _value(value) {}  // not checked
    PAMFacility(const std::string& name);
    PAMFacility(const PAMFacility& other) = default;
    PAMFacility& operator=(const PAMFacility& other) = default;
    PAMFacility& operator=(Facility value);
    PAMFacility& operator=(const std::string& name);

    bool operator==(const PAMFacility& other) const { return _value == other._value; }
    bool operator==(const std::string& name) const;

    operator Facility() const { return _value; }
    operator std::string() const;

 private:
    Facility _value = Unset;
};

// Writes the name; reads one word.
NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const PAMFacility& facility);
NIMAUTH_EXPORT std::istream& operator>>(std::istream& stream, PAMFacility& facility);

class PAMEntry;

// What a rule's result means for its stack: one of six words, or a bracket whose inside is not interpreted.
//
// Errors: every operation that takes a text throws `InvalidControlException` unless it is one of the six words or starts
// with '[' and ends with ']' (two characters at least); every conversion to text does so for a value that has no name.
class NIMAUTH_EXPORT PAMControl {
 public:
    enum Control : std::int32_t {
        Unset = 0,
        Required = 1,
        Requisite = 2,
        Sufficient = 3,
        Optional = 4,
        Include = 5,
        Substack = 6,
        Bracketed = 7
    };

    PAMControl() = default;
    PAMControl(Control value) : _value(value) {}
    PAMControl(Control value, const std::string& text) : _value(value), _text(text) {}  // not checked
    PAMControl(const std::string& text);
    PAMControl(const PAMControl& other) = default;
    PAMControl& operator=(const PAMControl& other) = default;
    PAMControl& operator=(Control value);

    // Assigning a word over a bracket leaves the bracket's text in place, ignored.
    PAMControl& operator=(const std::string& text);

    // Two brackets are equal when their texts are; anything else when the values are.
    bool operator==(const PAMControl& other) const;

    // A bracket is compared with `text` byte for byte, which is not parsed then and so never throws.
    bool operator==(const std::string& text) const;

    operator Control() const { return _value; }
    operator std::string() const;

 private:
    friend class PAMEntryReader;
    friend void AppendEntry(std::string& line, const PAMEntry& entry);

    Control _value = Unset;
    std::string _text;  // the whole bracket, when `_value` is Bracketed
};

// One rule, without its facility.
class NIMAUTH_EXPORT PAMEntry {
 public:
    PAMEntry() = default;
    PAMEntry(PAMControl control, std::string module);

    // To change a rule's control, put a new entry in its place.
    const PAMControl& control() const { return _control; }
    const std::string& module() const { return _module; }

    // In file order, duplicates kept; edit it as you like.
    std::list<std::string>& parameters() { return _parameters; }

    // Compares the controls by value alone: two brackets with different texts are equal here, other than with
    // `PAMControl::operator==`. Clients rely on it to find a rule again whose bracket was edited.
    bool operator==(const PAMEntry& other) const;

 private:
    friend class PAMEntryReader;
    friend NIMAUTH_EXPORT std::istream& operator>>(std::istream& stream, PAMEntry& entry);
    friend NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const PAMEntry& entry);
    friend void AppendEntry(std::string& line, const PAMEntry& entry);

    PAMControl _control;
    std::string _module;
    std::list<std::string> _parameters;
};

// Reads control, module and the rest of the line, newline included, as parameters, which are added to those that the
// entry has. Throws `InvalidControlException`; control and module then stay as they were.
NIMAUTH_EXPORT std::istream& operator>>(std::istream& stream, PAMEntry& entry);

// Writes "required\tpam_env.so\t", then each parameter and a blank. No newline: an entry ends with a tab or a blank.
NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const PAMEntry& entry);

// The rules of one facility, in file order.
class NIMAUTH_EXPORT PAMStack : public std::deque<PAMEntry> {
 public:
    PAMStack() = default;
    PAMStack(const PAMFacility& facility);

    const PAMFacility& Facility() const { return _facility; }

    // The first rule with exactly this module, or the end.
    iterator find(const std::string& module);
    const_iterator find(const std::string& module) const;

 private:
    PAMFacility _facility;
};

// Writes one line per rule, each flushed: the facility's name, a tab and the entry. Throws `InvalidFacilityException` if
// there is a rule to write and the facility has no name.
NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const PAMStack& stack);

// One service's policy.
class NIMAUTH_EXPORT PAMPolicy {
 public:
    // `name` is the service's; it is kept and is no part of the text.
    explicit PAMPolicy(const std::string& name);
    PAMPolicy(const PAMPolicy&) = delete;
    PAMPolicy& operator=(const PAMPolicy&) = delete;
    ~PAMPolicy();

    // The stack of a facility, which exists from the first call on. An empty stack is written as one empty line.
    PAMStack& operator[](PAMFacility facility);

 private:
    friend NIMAUTH_EXPORT std::istream& operator>>(std::istream& stream, PAMPolicy& policy);
    friend NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const PAMPolicy& policy);

    [[maybe_unused]] std::string _name;
    std::map<PAMFacility, PAMStack> _stacks;
};

// Reads rules to the end of the stream and appends each to its stack; reading twice doubles them. A stream in a failed
// state is left alone. Throws `InvalidFacilityException` or `InvalidControlException` for a line that the model cannot
// hold; the rules before it stay in the policy.
NIMAUTH_EXPORT std::istream& operator>>(std::istream& stream, PAMPolicy& policy);

// Writes "#%PAM-1.0", an empty line, then each stack followed by an empty line, flushing after each line.
NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const PAMPolicy& policy);

}  // namespace SystemConfiguration

#endif  // NIMBREL_SYSTEMCONFIGURATION_PAM_POLICY_H_
