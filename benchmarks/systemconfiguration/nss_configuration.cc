// Name-service switch configurations: read, build, free.

#include "systemconfiguration/nss_configuration.h"

#include <benchmark/benchmark.h>

#include <istream>

#include "benchmarks/systemconfiguration/contenders.h"
#include "systemconfiguration/literal_nss.h"

namespace {

using SystemConfiguration::NSSConfiguration;

// The lines of an ordinary host, by database.
const std::vector<Texts> kBlocks = {{"passwd:         files systemd sss", "passwd:         files sss"},
                                    {"group:          files systemd sss"},
                                    {"shadow:         files sss"},
                                    {"# names of hosts", "hosts:          files dns"},
                                    {"networks:       files [NOTFOUND=return] dns", ""},
                                    {"protocols:      db files"},
                                    {"services:       db files sss"},
                                    {"netgroup:       nis sss"}};

void ReadOurs(const std::string& text, NSSConfiguration& configuration) {
    TextBuffer buffer(text);
    std::istream& stream = StreamOn(buffer);
    stream >> configuration;
    Expect(stream.eof());
}

void ReadLiterally(const std::string& text, literal_nss::Configuration& configuration) {
    TextBuffer buffer(text);
    std::istream& stream = StreamOn(buffer);
    literal_nss::ReadConfiguration(stream, configuration);
    Expect(stream.eof());
}

bool IsAccepted(const std::string& text) {
    try {
        literal_nss::Configuration configuration;
        ReadLiterally(text, configuration);
        return true;
    } catch (const std::out_of_range&) {
        return false;
    }
}

Texts Files(long megabytes) {
    if (megabytes == 0) return StockFiles("nss", IsAccepted);
    return {LargeFile(kBlocks, static_cast<std::size_t>(megabytes) * 1'000'000)};
}

void ReadConfigurationsOurs(benchmark::State& state) {
    const Texts files = Files(state.range(0));
    for (auto _ : state) {
        for (const std::string& file : files) {
            NSSConfiguration configuration;
            ReadOurs(file, configuration);
        }
    }
}

void ReadConfigurationsLiterally(benchmark::State& state) {
    const Texts files = Files(state.range(0));
    for (auto _ : state) {
        for (const std::string& file : files) {
            literal_nss::Configuration configuration;
            ReadLiterally(file, configuration);
        }
    }
}

void CopyConfigurations(benchmark::State& state) {
    std::vector<NSSConfiguration> models;
    for (const std::string& file : Files(state.range(0))) ReadOurs(file, models.emplace_back());
    for (auto _ : state) {
        for (const NSSConfiguration& model : models) {
            const NSSConfiguration copy = model;
            benchmark::DoNotOptimize(copy);
        }
    }
}

#ifdef HAVE_AUGEAS
void ReadWithAugeas(benchmark::State& state) {
    AugeasParser augeas("Nsswitch");
    const Texts files = Files(state.range(0));
    for (std::size_t index = 0; index < files.size(); ++index) augeas.Put(index, files[index]);
    for (auto _ : state) {
        for (std::size_t index = 0; index < files.size(); ++index) augeas.Parse(index);
    }
}
#endif

const bool kRegistered = [] {
    for (const long megabytes : {0L, 1L}) {
        const std::string work =
            std::string("name-service switch read, ") + (megabytes == 0 ? "stock files/" : "1 MB/");
        benchmark::RegisterBenchmark((work + "ours").c_str(), ReadConfigurationsOurs)->Arg(megabytes);
        benchmark::RegisterBenchmark((work + "literal").c_str(), ReadConfigurationsLiterally)->Arg(megabytes);
        benchmark::RegisterBenchmark((work + "floor").c_str(), CopyConfigurations)->Arg(megabytes);
#ifdef HAVE_AUGEAS
        benchmark::RegisterBenchmark((work + "Augeas").c_str(), ReadWithAugeas)->Arg(megabytes);
#endif
    }
    return true;
}();

}  // namespace
