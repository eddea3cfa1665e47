// Small words for tests of the configuration store.

#ifndef TESTS_CONTRACT_CONFIG_STORE_H_
#define TESTS_CONTRACT_CONFIG_STORE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "orbconfigstore/config_store.h"

using OrbConfigStore::ConfigStore;
using OrbConfigStore::ConfigStoreObject;
using OrbConfigStore::ConfigStoreObjectId;
using Values = OrbConfigStore::StoreObject::ValueMap;

inline ConfigStoreObjectId ContractId(const std::string& key) { return {key.c_str(), "group", "contract"}; }

inline void WriteObject(ConfigStore& store, const ConfigStoreObjectId& id, const Values& values) {
    auto object = std::make_shared<ConfigStoreObject>(id);
    for (const auto& [name, value] : values) object->SetValue(name.c_str(), value);
    std::uint32_t word = 0;
    store.SetObject(object, word);
}

inline std::optional<Values> ReadObject(ConfigStore& store, const ConfigStoreObjectId& id) {
    const auto object = store.GetObject(id);
    if (object == nullptr) return std::nullopt;
    return object->Values();
}

#endif  // TESTS_CONTRACT_CONFIG_STORE_H_
