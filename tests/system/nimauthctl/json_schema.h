// As much of JSON Schema as the files under docs/cli/schema use: $ref, anyOf, type, const, enum, properties, required,
// additionalProperties (false), items. A word that is not among these is an error, so that none is passed over.

#ifndef TESTS_SYSTEM_NIMAUTHCTL_JSON_SCHEMA_H_
#define TESTS_SYSTEM_NIMAUTHCTL_JSON_SCHEMA_H_

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace nimbrel::testing {

class SchemaFolder {
 public:
    explicit SchemaFolder(std::string path) : _path(std::move(path)) {}

    // What is wrong with the value, or the empty text. Throws `std::runtime_error` for a schema that cannot be used.
    std::string Check(const std::string& file, const nlohmann::json& value);

    // The same for what a command line with --json has written.
    std::string CheckOutput(const std::vector<std::string>& words, const std::string& output);

    bool Has(const std::string& file) const;

 private:
    using Json = nlohmann::json;

    std::string Against(const std::string& file, const Json& schema, const Json& value, const std::string& where);
    std::string AgainstObject(const std::string& file, const Json& schema, const Json& value, const std::string& where);
    const Json& Load(const std::string& file);

    const std::string _path;
    std::map<std::string, Json> _files;
};

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_NIMAUTHCTL_JSON_SCHEMA_H_
