// Settings files: open, read, build and free; and the replacement of one.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>

#include "authentication/configuration.h"
#include "benchmarks/settings_file.h"
#include "unit/literal_configuration.h"

#ifdef HAVE_GLIB
#include <glib.h>
#endif
#ifdef HAVE_INIH
#include <ini.h>
#endif

namespace {

using nimbrel::authentication::Configuration;

void Expect(bool condition) {
    if (!condition) throw std::logic_error("a contender did not do its work");
}

std::size_t ReadOurs(const SettingsFile& file) { return Configuration(file.Plain()).size(); }

std::size_t ReadLiterally(const SettingsFile& file) {
    std::ifstream stream(file.Plain());
    return literal::Read(stream).size();
}

#ifdef HAVE_GLIB
std::size_t ReadWithKeyFile(const SettingsFile& file) {
    GKeyFile* const keys = g_key_file_new();
    Expect(g_key_file_load_from_file(keys, file.Sectioned().c_str(), G_KEY_FILE_NONE, nullptr) != 0);
    gsize count = 0;
    if (g_key_file_has_key(keys, "settings", "setting-0000000", nullptr) != 0) count = 1;
    g_key_file_free(keys);
    return count;
}
#endif

#ifdef HAVE_INIH
std::size_t ReadWithInih(const SettingsFile& file) {
    std::map<std::string, std::string> settings;
    const auto add = [](void* map, const char*, const char* name, const char* value) {
        return static_cast<std::map<std::string, std::string>*>(map)->emplace(name, value).second ? 1 : 0;
    };
    Expect(ini_parse(file.Plain().c_str(), add, &settings) == 0);
    return settings.size();
}
#endif

void Read(benchmark::State& state, std::size_t (*read)(const SettingsFile&)) {
    const SettingsFile file(state.range(0));
    for (auto _ : state) Expect(read(file) > 0);
}

constexpr const char* kTarget = "/dev/shm/nimauth-benchmark-target";

void ReplaceOurs(benchmark::State& state) {
    std::ofstream(kTarget) << "provider = \"embedded\"\n";
    const Configuration configuration(kTarget);
    for (auto _ : state) configuration.Write();
    unlink(kTarget);
}

// The same system calls without a stream around them.
void ReplaceDirectly(benchmark::State& state) {
    static constexpr std::string_view kText = "provider = \"embedded\"\n";
    std::ofstream(kTarget) << kText;
    for (auto _ : state) {
        std::string name = std::string(kTarget) + ".XXXXXX";
        close(mkstemp(name.data()));
        const int descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        Expect(write(descriptor, kText.data(), kText.size()) == static_cast<ssize_t>(kText.size()));
        close(descriptor);
        struct stat status = {};
        Expect(stat(kTarget, &status) == 0 && rename(name.c_str(), kTarget) == 0);
        Expect(chmod(kTarget, status.st_mode) == 0);
    }
    unlink(kTarget);
}

#ifdef HAVE_GLIB
void ReplaceWithGlib(benchmark::State& state) {
    std::ofstream(kTarget) << "provider = \"embedded\"\n";
    for (auto _ : state) Expect(g_file_set_contents(kTarget, "provider = \"embedded\"\n", -1, nullptr) != 0);
    unlink(kTarget);
}
#endif

void RegisterReads(long lines) {
    const std::string work = "read " + std::to_string(lines) + " lines/";
    const auto add = [&](const char* contender, std::size_t (*read)(const SettingsFile&)) {
        benchmark::RegisterBenchmark((work + contender).c_str(), Read, read)->Arg(lines);
    };
    add("ours", ReadOurs);
    add("literal", ReadLiterally);
#ifdef HAVE_GLIB
    add("GKeyFile", ReadWithKeyFile);
#endif
#ifdef HAVE_INIH
    add("inih + map", ReadWithInih);
#endif
}

const bool kRegistered = [] {
    for (const long lines : {10L, 1000L, 1000000L}) RegisterReads(lines);
    benchmark::RegisterBenchmark("replace a file of 1 key/ours", ReplaceOurs);
    benchmark::RegisterBenchmark("replace a file of 1 key/direct calls", ReplaceDirectly);
#ifdef HAVE_GLIB
    benchmark::RegisterBenchmark("replace a file of 1 key/g_file_set_contents", ReplaceWithGlib);
#endif
    return true;
}();

}  // namespace
