// What every configuration store must do, as one suite that the real store and its in-memory twin pass and that a host's
// own library can be put through:
//
//     struct OwnStore {
//         static std::shared_ptr<OrbConfigStore::ConfigStore> Reopen(const std::string& namespaceName) { ... }
//     };
//     INSTANTIATE_TYPED_TEST_SUITE_P(Own, ConfigStoreContract, OwnStore);
//
// `Reopen` returns a handle that knows nothing of earlier ones. The suite uses the component "contract" of the global
// namespace and of the namespace "contract", and leaves nothing there.

#ifndef TESTS_CONTRACT_CONFIG_STORE_CONTRACT_H_
#define TESTS_CONTRACT_CONFIG_STORE_CONTRACT_H_

#include <map>
#include <thread>
#include <vector>

#include "config_store.h"

// Every test also proves persistence: what it wrote and removed through `Write` and `Remove` is read back through a new
// handle when it ends.
template <class Backend>
class ConfigStoreContract : public ::testing::Test {
 protected:
    void Write(const ConfigStoreObjectId& id, const Values& values) {
        WriteObject(*_store, id, values);
        _expected[id] = values;
    }
    void Remove(const ConfigStoreObjectId& id) {
        _store->RemoveObject(id);
        _expected[id].reset();
    }
    std::optional<Values> Read(const ConfigStoreObjectId& id) { return ReadObject(*_store, id); }

    void TearDown() override {
        _store.reset();
        const auto store = Backend::Reopen(OrbConfigStore::sGlobalNamespace);
        for (const auto& [id, values] : _expected) {
            EXPECT_EQ(ReadObject(*store, id), values) << id.Key();
            store->RemoveObject(id);
        }
    }

    std::shared_ptr<ConfigStore> _store = Backend::Reopen(OrbConfigStore::sGlobalNamespace);

 private:
    std::map<ConfigStoreObjectId, std::optional<Values>> _expected;
};

TYPED_TEST_SUITE_P(ConfigStoreContract);

TYPED_TEST_P(ConfigStoreContract, MissingObjectIsAnEmptyPointer) {
    EXPECT_EQ(this->_store->GetObject(ContractId("missing")), nullptr);
}

TYPED_TEST_P(ConfigStoreContract, WrittenObjectIsReadBack) {
    const auto id = ContractId("one");
    this->Write(id, {{"domain_name", "corp.test"}, {"auth_proxy_address", ""}});
    const auto object = this->_store->GetObject(id);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->GetId(), id);
    EXPECT_EQ(object->Values(), (Values{{"domain_name", "corp.test"}, {"auth_proxy_address", ""}}));
}

TYPED_TEST_P(ConfigStoreContract, WriteReplacesTheWholeObject) {
    this->Write(ContractId("one"), {{"domain_name", "old.test"}, {"organizational_unit", "OU=Hosts"}});
    this->Write(ContractId("one"), {{"domain_name", "corp.test"}});
    EXPECT_EQ(this->Read(ContractId("one")), (Values{{"domain_name", "corp.test"}}));
}

TYPED_TEST_P(ConfigStoreContract, ObjectWithoutValuesExists) {
    this->Write(ContractId("empty"), {});
    EXPECT_EQ(this->Read(ContractId("empty")), Values());
}

TYPED_TEST_P(ConfigStoreContract, ValuesKeepEveryByte) {
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte) everyByte.push_back(static_cast<char>(byte));
    const std::vector<std::string> values = {"",
                                             std::string(1, '\0'),
                                             std::string("a\0b", 3),
                                             "line\r\nline\n",
                                             "\xc3\x28 \xff\xfe",
                                             "it's \"quoted\" -- ;",
                                             everyByte,
                                             std::string(1 << 20, 'x')};
    for (const std::string& value : values) {
        this->Write(ContractId("bytes"), {{"value", value}});
        EXPECT_EQ(this->Read(ContractId("bytes")), (Values{{"value", value}})) << value.size() << " bytes";
    }
}

TYPED_TEST_P(ConfigStoreContract, NamesAndIdsAreBytes) {
    for (const std::string text : {"", " ", "it's", "Z\xc3\xbcrich", "\xff\xfe", "a/b\\c.d", "%s", "?1"}) {
        const ConfigStoreObjectId id(text.c_str(), text.c_str(), "contract");
        this->Write(id, {{text, "value"}});
        EXPECT_EQ(this->Read(id), (Values{{text, "value"}})) << text;
    }
}

TYPED_TEST_P(ConfigStoreContract, IdsDifferInEveryPart) {
    const std::vector<ConfigStoreObjectId> ids = {
        {"k", "g", "contract"}, {"K", "g", "contract"}, {"g", "k", "contract"},  {"k", "G", "contract"},
        {"k", "", "contract"},  {"", "g", "contract"},  {"k", "g", "contract2"}, {"kg", "", "contract"}};
    for (std::size_t i = 0; i < ids.size(); ++i) this->Write(ids[i], {{"number", std::to_string(i)}});
    for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(this->Read(ids[i]), (Values{{"number", std::to_string(i)}})) << i;
    }
}

TYPED_TEST_P(ConfigStoreContract, NamespacesDoNotSeeEachOther) {
    const auto other = TypeParam::Reopen("contract");
    this->Write(ContractId("shared"), {{"in", "global"}});
    EXPECT_EQ(ReadObject(*other, ContractId("shared")), std::nullopt);
    WriteObject(*other, ContractId("shared"), {{"in", "contract"}});
    EXPECT_EQ(this->Read(ContractId("shared")), (Values{{"in", "global"}}));
    other->RemoveObject(ContractId("shared"));
    EXPECT_EQ(this->Read(ContractId("shared")), (Values{{"in", "global"}}));
}

TYPED_TEST_P(ConfigStoreContract, EveryHandleSeesTheLastWrite) {
    const auto other = TypeParam::Reopen(OrbConfigStore::sGlobalNamespace);
    this->Write(ContractId("one"), {{"n", "1"}});
    EXPECT_EQ(ReadObject(*other, ContractId("one")), (Values{{"n", "1"}}));
    this->Write(ContractId("one"), {{"n", "2"}});
    EXPECT_EQ(ReadObject(*other, ContractId("one")), (Values{{"n", "2"}}));
}

TYPED_TEST_P(ConfigStoreContract, RemovedObjectIsGoneAndTheOthersStay) {
    this->Write(ContractId("active_directory"), {{"domain_name", "corp.test"}});
    this->Write(ContractId("auth_proxy_certificate"), {{"thumbprint", "0A:1B"}});
    this->Remove(ContractId("active_directory"));
    EXPECT_EQ(this->Read(ContractId("active_directory")), std::nullopt);
    EXPECT_EQ(this->Read(ContractId("auth_proxy_certificate")), (Values{{"thumbprint", "0A:1B"}}));
}

TYPED_TEST_P(ConfigStoreContract, RemovingAMissingObjectDoesNothing) {
    this->Remove(ContractId("missing"));
    this->Write(ContractId("one"), {});
    this->Remove(ContractId("one"));
    this->Remove(ContractId("one"));
}

TYPED_TEST_P(ConfigStoreContract, MissingValueLeavesTheStringAlone) {
    this->Write(ContractId("one"), {{"present", "yes"}});
    std::string text = "before";
    EXPECT_FALSE(this->_store->GetObject(ContractId("one"))->GetValue("absent", &text));
    EXPECT_EQ(text, "before");
    EXPECT_TRUE(this->_store->GetObject(ContractId("one"))->GetValue("present", &text));
    EXPECT_EQ(text, "yes");
}

TYPED_TEST_P(ConfigStoreContract, ReadObjectIsACopy) {
    this->Write(ContractId("one"), {{"name", "stored"}});
    this->_store->GetObject(ContractId("one"))->SetValue("name", "changed");
    EXPECT_EQ(this->Read(ContractId("one")), (Values{{"name", "stored"}}));
}

TYPED_TEST_P(ConfigStoreContract, ChangingAWrittenObjectChangesNothingStored) {
    const auto object = std::make_shared<ConfigStoreObject>(ContractId("one"));
    std::uint32_t word = 0;
    this->_store->SetObject(object, word);
    object->SetValue("name", "later");
    EXPECT_EQ(this->Read(ContractId("one")), Values());
    this->Remove(ContractId("one"));
}

TYPED_TEST_P(ConfigStoreContract, NoObjectIsRefused) {
    std::uint32_t word = 0;
    EXPECT_THROW(this->_store->SetObject(nullptr, word), OrbConfigStore::ConfigStoreException);
}

TYPED_TEST_P(ConfigStoreContract, ThreadsSeeOnlyWholeObjects) {
    constexpr int kWriters = 3;
    constexpr int kWrites = 50;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([this, writer] {
            for (int i = 0; i < kWrites; ++i) {
                const std::string stamp = std::to_string(writer) + "-" + std::to_string(i);
                WriteObject(*this->_store, ContractId("stamped"), {{"a", stamp}, {"b", stamp}, {"c", stamp}});
                WriteObject(*this->_store, ContractId("own" + std::to_string(writer)), {{"n", std::to_string(i)}});
            }
        });
    }
    for (int i = 0; i < kWrites; ++i) {
        const auto values = this->Read(ContractId("stamped"));
        if (!values) continue;
        EXPECT_EQ(values->at("a"), values->at("b"));
        EXPECT_EQ(values->at("a"), values->at("c"));
    }
    for (std::thread& writer : writers) writer.join();
    for (int writer = 0; writer < kWriters; ++writer) {
        const auto id = ContractId("own" + std::to_string(writer));
        EXPECT_EQ(this->Read(id), (Values{{"n", std::to_string(kWrites - 1)}}));
        this->Remove(id);
    }
    this->Remove(ContractId("stamped"));
}

REGISTER_TYPED_TEST_SUITE_P(ConfigStoreContract, MissingObjectIsAnEmptyPointer, WrittenObjectIsReadBack,
                            WriteReplacesTheWholeObject, ObjectWithoutValuesExists, ValuesKeepEveryByte,
                            NamesAndIdsAreBytes, IdsDifferInEveryPart, NamespacesDoNotSeeEachOther,
                            EveryHandleSeesTheLastWrite, RemovedObjectIsGoneAndTheOthersStay,
                            RemovingAMissingObjectDoesNothing, MissingValueLeavesTheStringAlone, ReadObjectIsACopy,
                            ChangingAWrittenObjectChangesNothingStored, NoObjectIsRefused, ThreadsSeeOnlyWholeObjects);

#endif  // TESTS_CONTRACT_CONFIG_STORE_CONTRACT_H_
