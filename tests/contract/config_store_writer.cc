// A component of the host that writes the configuration store, as a process of its own:
//
//     config_store_writer stamp NAME COUNT    writes the object "stamped" COUNT times, its values all equal NAME-<number>
//     config_store_writer own NAME COUNT      writes the COUNT objects NAME-<number>
//     config_store_writer together NAME       says "ready", waits for the end of its input, then writes the object NAME
//     config_store_writer endless             writes "stamped" until it is killed; prints each number once it is stored

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "orbconfigstore/config_store.h"

using namespace OrbConfigStore;

namespace {

void Write(const std::string& key, const std::string& stamp) {
    const auto object = std::make_shared<ConfigStoreObject>(ConfigStoreObjectId(key.c_str(), "group", "contract"));
    for (const char* name : {"a", "b", "c"}) object->SetValue(name, stamp);
    std::uint32_t word = 0;
    ConfigStore::GetStore(sGlobalNamespace)->SetObject(object, word);
}

void WaitForTheOthers() {
    std::puts("ready");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
}

void Run(const std::string& mode, const std::string& name, long count) {
    if (mode == "together") {
        WaitForTheOthers();
        Write(name, name);
    }
    for (long i = 0; mode == "endless" || i < count; ++i) {
        const std::string stamp = mode == "endless" ? std::to_string(i) : name + "-" + std::to_string(i);
        Write(mode == "own" ? stamp : "stamped", stamp);
        if (mode != "endless") continue;
        std::printf("%ld\n", i);
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    const std::string name = argc > 2 ? argv[2] : "";
    try {
        Run(mode, name, argc > 3 ? std::atol(argv[3]) : 0);
    } catch (const ConfigStoreException& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
