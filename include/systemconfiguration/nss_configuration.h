// The name-service switch configuration, as a model that can be read, edited and written.
//
//     1  # who answers what
//     2  passwd:   files sss
//     3  group: files [NOTFOUND=return] sss
//     4  hosts: files mdns [NOTFOUND=return] dns
//     5  sudoers: files sss
//     6  shadow : files
//
// A line names a database, directly followed by a colon, and the services to ask, in order. Line 2 gives passwd the
// services "files" and "sss". In line 3 "files" has the criteria "NOTFOUND=return", and "sss" is lost; line 4 gives
// hosts the service "files" alone: with a ']' further on, the rest of the line is lost. Lines 5 and 6 are skipped: a
// database that the model does not know, and a colon that does not follow the name directly.
//
//     std::ifstream in("/etc/nsswitch.conf");
//     NSSConfiguration configuration;
//     in >> configuration;
//     configuration[NSSDatabase::Passwd].push_back(NSSService("sss"));
//     std::ofstream("/tmp/candidate") << configuration;
//
// The model is smaller than the grammar that the C library reads (nsswitch.conf(5)), and loses what it does not hold:
//
//   - Comments, blank lines, unknown databases (sudoers, gshadow, initgroups, subid, ...) and the order of the lines are
//     not kept; the written file has the databases in the order of their values.
//   - Criteria are seen only when exactly one white-space character separates them from their service; otherwise they
//     are services.
//   - After a service that has a ']' anywhere behind it, the reader goes on at an offset that on ordinary lines lies
//     behind the line's end. On a long line it lies inside, possibly within a word: "group: files [SUCCESS=merge] sss
//     [SUCCESS=merge] systemd" gives group the services "files", "S=merge]" and "systemd".
//     docs/formats/nss-configuration.md has the rule, and what becomes of the files of real systems.
//   - A line that ends in exactly one white-space character after a service throws `std::out_of_range`; so does a
//     carriage return there. Two or more do not.
//   - '#' after the first word is a service like any other.
//
// So a program that changes a live file edits the file itself and uses this model to look.
//
// Threads: plain values without a lock.

#ifndef NIMBREL_SYSTEMCONFIGURATION_NSS_CONFIGURATION_H_
#define NIMBREL_SYSTEMCONFIGURATION_NSS_CONFIGURATION_H_

#include <cstdint>
#include <deque>
#include <exception>
#include <iosfwd>
#include <list>
#include <map>
#include <string>

#include "authentication/export.h"

namespace SystemConfiguration {

// "Invalid Database: <name>". A value without a name gives the prefix from the value-th character on instead: value 0
// reads "Invalid Database: ". Clients match on these texts, so they stay.
class NIMAUTH_EXPORT InvalidDatabaseException : public std::exception {
 public:
    explicit InvalidDatabaseException(const std::string& message);
    ~InvalidDatabaseException() override;
    const char* what() const noexcept override;

 private:
    std::string _message;
};

// Errors: every operation that takes a name throws `InvalidDatabaseException` unless it is one of the fifteen, byte for
// byte; every conversion to a name does so for a value that has none.
class NIMAUTH_EXPORT NSSDatabase {
 public:
    // The order decides the order of the written file.
    enum Database : std::int32_t {
        Passwd = 1,
        Group = 2,
        Shadow = 3,
        Hosts = 4,
        Netmasks = 5,
        Networks = 6,
        Protocols = 7,
        Services = 8,
        Ethers = 9,
        Rpc = 10,
        Netgroup = 11,
        Bootparams = 12,
        Publickey = 13,
        Automount = 14,
        Aliases = 15
    };

    // A value that has no name; assign one before use.
    NSSDatabase() = default;
    NSSDatabase(Database value) : _value(value) {}  // not checked
    NSSDatabase(const std::string& name);
    NSSDatabase(const NSSDatabase& other) = default;
    NSSDatabase& operator=(const NSSDatabase& other) = default;
    NSSDatabase& operator=(Database value);
    NSSDatabase& operator=(const std::string& name);

    bool operator==(const NSSDatabase& other) const { return _value == other._value; }
    bool operator==(const std::string& name) const;

    operator Database() const { return _value; }
    operator std::string() const;

 private:
    Database _value = static_cast<Database>(0);
};

// One service in a database's list, with the words of the criteria behind it.
class NIMAUTH_EXPORT NSSService {
 public:
    NSSService(const std::string& module);

    const std::string& module() const { return _module; }

    // Without the brackets, in order; edit it as you like.
    std::list<std::string>& parameters() { return _parameters; }

    bool operator==(const NSSService& other) const;

 private:
    friend NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const NSSService& service);

    std::string _module;
    std::list<std::string> _parameters;
};

// Writes "files", or "files [NOTFOUND=return]".
NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const NSSService& service);

class NIMAUTH_EXPORT NSSConfiguration {
 public:
    NSSConfiguration() = default;

    // The services of a database, which exists from the first call on. A database without services is written as its
    // name and colon.
    std::deque<NSSService>& operator[](NSSDatabase database);

 private:
    friend NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const NSSConfiguration& configuration);

    std::map<NSSDatabase, std::deque<NSSService>> _databases;
};

// Reads lines to the end of the stream and appends each service to its database; reading twice doubles them. Throws
// `std::out_of_range` for a line that ends in one white-space character after a service; what was read before stays.
NIMAUTH_EXPORT std::istream& operator>>(std::istream& stream, NSSConfiguration& configuration);

// Writes one line per database, each flushed.
NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const NSSConfiguration& configuration);

}  // namespace SystemConfiguration

#endif  // NIMBREL_SYSTEMCONFIGURATION_NSS_CONFIGURATION_H_
