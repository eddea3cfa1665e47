#include <utility>

#include "orbconfigstore/config_store.h"
#include "proxy/journal.h"

using nimbrel::authentication::test::Journal;
using OrbConfigStore::ConfigStore;
using OrbConfigStore::ConfigStoreObject;
using OrbConfigStore::ConfigStoreObjectId;

namespace {

class WatchedStore : public ConfigStore {
 public:
    explicit WatchedStore(std::shared_ptr<ConfigStore> store) : _store(std::move(store)) {}

    std::shared_ptr<ConfigStoreObject> GetObject(const ConfigStoreObjectId& id) override {
        Journal::Add("read " + id.Key());
        return _store->GetObject(id);
    }
    void SetObject(const std::shared_ptr<ConfigStoreObject>& object, std::uint32_t& word) override {
        Journal::Add("write " + object->GetId().Key());
        _store->SetObject(object, word);
    }
    void RemoveObject(const ConfigStoreObjectId& id) override {
        Journal::Add("remove " + id.Key());
        _store->RemoveObject(id);
    }

 private:
    const std::shared_ptr<ConfigStore> _store;
};

}  // namespace

// `OrbConfigStore::ConfigStore::GetStore(const std::string&)`, by the name that the linker knows it by.
#define GET_STORE "_ZN14OrbConfigStore11ConfigStore8GetStoreERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

std::shared_ptr<ConfigStore> RealGetStore(const std::string& namespaceName) __asm__("__real_" GET_STORE);
std::shared_ptr<ConfigStore> WrapGetStore(const std::string& namespaceName) __asm__("__wrap_" GET_STORE);

std::shared_ptr<ConfigStore> WrapGetStore(const std::string& namespaceName) {
    return std::make_shared<WatchedStore>(RealGetStore(namespaceName));
}
