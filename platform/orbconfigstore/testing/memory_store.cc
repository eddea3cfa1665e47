#include <array>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "checks.h"
#include "orbconfigstore/memory.h"

namespace OrbConfigStore {
namespace {

using Memory::Operation;

struct Behaviour {
    std::deque<std::string> nextFailures;
    std::optional<std::string> everyFailure;
    int calls = 0;
};

// The one table of the process. `mutex` guards everything in it and is never held while a test's code runs.
struct Table {
    std::mutex mutex;
    std::map<std::string, std::map<ConfigStoreObjectId, StoreObject::ValueMap>> namespaces;
    std::array<Behaviour, 4> behaviours;

    Behaviour& Of(Operation operation) { return behaviours[static_cast<std::size_t>(operation)]; }

    void CountAndMaybeFail(Operation operation) {
        Behaviour& behaviour = Of(operation);
        ++behaviour.calls;
        if (!behaviour.nextFailures.empty()) {
            const std::string message = std::move(behaviour.nextFailures.front());
            behaviour.nextFailures.pop_front();
            throw ConfigStoreException(message.c_str());
        }
        if (behaviour.everyFailure) throw ConfigStoreException(behaviour.everyFailure->c_str());
    }
};

Table& TheTable() {
    static Table table;
    return table;
}

class MemoryStore : public ConfigStore {
 public:
    explicit MemoryStore(std::string namespaceName) : _namespace(std::move(namespaceName)) {}

    std::shared_ptr<ConfigStoreObject> GetObject(const ConfigStoreObjectId& id) override {
        const std::lock_guard<std::mutex> hold(_table.mutex);
        _table.CountAndMaybeFail(Operation::kGetObject);
        const auto& objects = _table.namespaces[_namespace];
        const auto found = objects.find(id);
        if (found == objects.end()) return nullptr;
        auto object = std::make_shared<ConfigStoreObject>(id);
        for (const auto& [name, value] : found->second) object->SetValue(name.c_str(), value);
        return object;
    }

    void SetObject(const std::shared_ptr<ConfigStoreObject>& object, std::uint32_t& word) override {
        CheckWrite(object, word);
        const std::lock_guard<std::mutex> hold(_table.mutex);
        _table.CountAndMaybeFail(Operation::kSetObject);
        _table.namespaces[_namespace].insert_or_assign(object->GetId(), object->Values());
    }

    void RemoveObject(const ConfigStoreObjectId& id) override {
        const std::lock_guard<std::mutex> hold(_table.mutex);
        _table.CountAndMaybeFail(Operation::kRemoveObject);
        _table.namespaces[_namespace].erase(id);
    }

 private:
    Table& _table = TheTable();
    const std::string _namespace;
};

}  // namespace

std::shared_ptr<ConfigStore> ConfigStore::GetStore(const std::string& namespaceName) {
    CheckNamespace(namespaceName);
    Table& table = TheTable();
    const std::lock_guard<std::mutex> hold(table.mutex);
    table.CountAndMaybeFail(Operation::kGetStore);
    return std::make_shared<MemoryStore>(namespaceName);
}

namespace Memory {

void Reset() {
    Table& table = TheTable();
    const std::lock_guard<std::mutex> hold(table.mutex);
    table.namespaces.clear();
    table.behaviours = {};
}

void FailNext(Operation operation, const std::string& message) {
    Table& table = TheTable();
    const std::lock_guard<std::mutex> hold(table.mutex);
    table.Of(operation).nextFailures.push_back(message);
}

void FailAlways(Operation operation, const std::string& message) {
    Table& table = TheTable();
    const std::lock_guard<std::mutex> hold(table.mutex);
    table.Of(operation).everyFailure = message;
}

int CallCount(Operation operation) {
    Table& table = TheTable();
    const std::lock_guard<std::mutex> hold(table.mutex);
    return table.Of(operation).calls;
}

std::map<ConfigStoreObjectId, StoreObject::ValueMap> Snapshot(const std::string& namespaceName) {
    Table& table = TheTable();
    const std::lock_guard<std::mutex> hold(table.mutex);
    return table.namespaces[namespaceName];
}

}  // namespace Memory
}  // namespace OrbConfigStore
