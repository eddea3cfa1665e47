// The name-service switch text, read and written one step after the other with iostreams.
//
// Slow and plain on purpose: it is what the library's own reader and writer are compared with, by exhaustive tests, by
// the fuzzer and by the benchmarks. It shares no code with the library, not even its exceptions or its tables.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_LITERAL_NSS_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_LITERAL_NSS_H_

#include <cstddef>
#include <deque>
#include <istream>
#include <list>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace literal_nss {

class InvalidDatabase : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

struct Service {
    std::string module;
    std::list<std::string> parameters;
};

using Configuration = std::map<int, std::deque<Service>>;  // by database

struct Name {
    int value;
    std::string name;
};

inline const Name kDatabases[] = {{1, "passwd"},     {2, "group"},      {3, "shadow"},    {4, "hosts"},
                                  {5, "netmasks"},   {6, "networks"},   {7, "protocols"}, {8, "services"},
                                  {9, "ethers"},     {10, "rpc"},       {11, "netgroup"}, {12, "bootparams"},
                                  {13, "publickey"}, {14, "automount"}, {15, "aliases"}};

inline int ParseDatabase(const std::string& name) {
    for (const Name& row : kDatabases) {
        if (row.name.size() == name.size() && row.name == name) return row.value;
    }
    throw InvalidDatabase("Invalid Database: " + name);
}

inline std::string DatabaseName(int value) {
    for (const Name& row : kDatabases) {
        if (row.value == value) return row.name;
    }
    // The text starts at the value-th character; there is nothing of it further on.
    const std::string prefix = "Invalid Database: ";
    if (value < 0 || static_cast<std::size_t>(value) > prefix.size()) throw InvalidDatabase("");
    throw InvalidDatabase(prefix.substr(static_cast<std::size_t>(value)));
}

// `line` has lost its leading blanks.
inline void ReadServices(const std::string& line, Configuration& configuration) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    if (name.empty()) return;  // vertical tabs and form feeds only: there is no last character to remove
    name.erase(name.size() - 1);
    int database = 0;
    try {
        database = ParseDatabase(name);
    } catch (const InvalidDatabase&) {
        return;
    }

    std::string word;
    while (words >> word) {
        if (word.empty()) continue;
        Service service;
        service.module = word;
        const std::streamoff end = words.tellg();
        if (end == -1 || static_cast<std::size_t>(end) >= line.size()) {
            configuration[database].push_back(service);
            continue;
        }
        const std::size_t p = static_cast<std::size_t>(end);
        const std::size_t q = p + 1;
        if (line.at(q) == '[') {
            const std::size_t e = line.find(']', q);
            const std::string criteria = e == std::string::npos ? line.substr(p + 2) : line.substr(p + 2, e - (p + 2));
            std::istringstream criteriaWords(criteria);
            std::string criterion;
            while (criteriaWords >> criterion) {
                if (!criterion.empty()) service.parameters.push_back(criterion);
            }
        }
        const std::size_t f = line.find(']', q);
        words.seekg(static_cast<std::streamoff>(q + f));  // npos makes this p; beyond the end it fails
        configuration[database].push_back(service);
    }
}

inline void ReadConfiguration(std::istream& in, Configuration& configuration) {
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        if (line[0] == '#') continue;
        std::size_t first = 0;
        while (first < line.size() &&
               (line[first] == ' ' || line[first] == '\t' || line[first] == '\r' || line[first] == '\n')) {
            ++first;
        }
        line = line.substr(first);
        if (line.empty()) continue;
        ReadServices(line, configuration);
    }
}

inline void WriteService(std::ostream& out, const Service& service) {
    out << service.module;
    if (service.parameters.empty()) return;
    out << " [";
    bool first = true;
    for (const std::string& parameter : service.parameters) {
        if (!first) out << ' ';
        first = false;
        out << parameter;
    }
    out << ']';
}

inline void WriteConfiguration(std::ostream& out, const Configuration& configuration) {
    for (const auto& [database, services] : configuration) {
        out << DatabaseName(database);
        out << ':';
        for (const Service& service : services) {
            out << ' ';
            WriteService(out, service);
        }
        out << std::endl;
    }
}

}  // namespace literal_nss

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_LITERAL_NSS_H_
