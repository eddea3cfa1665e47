#include <cstring>
#include <tuple>

#include "orbconfigstore/config_store.h"

namespace OrbConfigStore {
namespace {

const char* RequireText(const char* text, const char* message) {
    if (text == nullptr) throw ConfigStoreException(message);
    return text;
}

}  // namespace

ConfigStoreException::ConfigStoreException(const char* message) : HostMgmtException(message) {}
ConfigStoreException::~ConfigStoreException() = default;

ConfigStoreObjectId::ConfigStoreObjectId(const char* key, const char* group, const char* component)
    : _key(RequireText(key, "The key of an object id must not be null")),
      _group(RequireText(group, "The group of an object id must not be null")),
      _component(RequireText(component, "The component of an object id must not be null")) {}

bool operator<(const ConfigStoreObjectId& a, const ConfigStoreObjectId& b) {
    return std::tie(a._component, a._group, a._key) < std::tie(b._component, b._group, b._key);
}

StoreObject::StoreObject() = default;
StoreObject::StoreObject(const StoreObject&) = default;
StoreObject& StoreObject::operator=(const StoreObject&) = default;
StoreObject::~StoreObject() = default;

void StoreObject::SetValue(const char* name, std::string_view value) {
    _values.insert_or_assign(RequireText(name, "The name of a value must not be null"), std::string(value));
}

bool StoreObject::GetValue(const char* name, std::string* value) const {
    const auto found = _values.find(RequireText(name, "The name of a value must not be null"));
    if (found == _values.end()) return false;
    if (value != nullptr) *value = found->second;
    return true;
}

ConfigStoreObject::ConfigStoreObject(const ConfigStoreObjectId& id) : _id(id) {}
ConfigStoreObject::~ConfigStoreObject() = default;

ConfigStore::ConfigStore() = default;
ConfigStore::~ConfigStore() = default;

}  // namespace OrbConfigStore
