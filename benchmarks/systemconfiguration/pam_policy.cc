// PAM policies: read, build, free; and written.

#include "systemconfiguration/pam_policy.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <istream>
#include <map>
#include <sstream>

#include "benchmarks/systemconfiguration/contenders.h"
#include "systemconfiguration/literal_pam.h"

namespace {

using SystemConfiguration::PAMFacility;
using SystemConfiguration::PAMPolicy;
using SystemConfiguration::PAMStack;

constexpr std::size_t kMegabyte = 1'000'000;

// The rules of an ordinary host, by facility.
const std::vector<Texts> kBlocks = {
    {"# who may log in", "auth       required     pam_env.so",
     "auth       [success=2 default=ignore]  pam_unix.so nullok try_first_pass",
     "auth       sufficient   pam_sss.so use_first_pass", "auth       requisite    pam_deny.so", ""},
    {"account    required     pam_nologin.so", "account    [default=bad success=ok user_unknown=ignore] pam_sss.so"},
    {"# what follows changes passwords", "password   sufficient   pam_unix.so yescrypt shadow nullok use_authtok",
     "password   include      common-password"},
    {"session    optional     pam_keyinit.so force revoke", "session    required     pam_limits.so", "",
     "session    optional     pam_motd.so motd=/run/motd.dynamic"}};

void ReadOurs(const std::string& text, PAMPolicy& policy) {
    TextBuffer buffer(text);
    std::istream& stream = StreamOn(buffer);
    stream >> policy;
    Expect(stream.eof());
}

void ReadLiterally(const std::string& text, literal_pam::Policy& policy) {
    TextBuffer buffer(text);
    std::istream& stream = StreamOn(buffer);
    literal_pam::ReadPolicy(stream, policy);
    Expect(stream.eof());
}

bool IsAccepted(const std::string& text) {
    try {
        literal_pam::Policy policy;
        ReadLiterally(text, policy);
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

Texts ReadFiles(long megabytes) {
    if (megabytes == 0) return StockFiles("pam", IsAccepted);
    return {LargeFile(kBlocks, static_cast<std::size_t>(megabytes) * kMegabyte)};
}

// The same containers with the same contents.
using Stacks = std::map<PAMFacility, PAMStack>;

Stacks StacksOf(const std::string& text) {
    PAMPolicy policy("sample");
    ReadOurs(text, policy);
    Stacks stacks;
    for (const auto facility : {PAMFacility::Account, PAMFacility::Auth, PAMFacility::Password, PAMFacility::Session}) {
        if (!policy[facility].empty()) stacks.emplace(facility, policy[facility]);
    }
    return stacks;
}

void ReadPoliciesOurs(benchmark::State& state) {
    const Texts files = ReadFiles(state.range(0));
    for (auto _ : state) {
        for (const std::string& file : files) {
            PAMPolicy policy("sample");
            ReadOurs(file, policy);
        }
    }
}

void ReadPoliciesLiterally(benchmark::State& state) {
    const Texts files = ReadFiles(state.range(0));
    for (auto _ : state) {
        for (const std::string& file : files) {
            literal_pam::Policy policy;
            ReadLiterally(file, policy);
        }
    }
}

void CopyStacks(benchmark::State& state) {
    std::vector<Stacks> models;
    for (const std::string& file : ReadFiles(state.range(0))) models.push_back(StacksOf(file));
    for (auto _ : state) {
        for (const Stacks& model : models) {
            const Stacks copy = model;
            benchmark::DoNotOptimize(copy);
        }
    }
}

constexpr const char* kTarget = "/dev/shm/nimauth-benchmark-policy";

template <typename Write>
void WriteToMemory(benchmark::State& state, Write write) {
    std::ostringstream stream;
    for (auto _ : state) {
        stream.seekp(0);  // over what is there: no memory is asked for from the second time on
        write(stream);
        Expect(stream.tellp() > 1000);
    }
}

template <typename Write>
void WriteToFile(benchmark::State& state, Write write) {
    for (auto _ : state) {
        std::ofstream stream(kTarget);
        write(stream);
        Expect(stream.good());
    }
    std::filesystem::remove(kTarget);
}

enum class Target { Memory, File };

template <typename Write>
void WriteTo(benchmark::State& state, Target target, Write write) {
    if (target == Target::File) {
        WriteToFile(state, write);
    } else {
        WriteToMemory(state, write);
    }
}

void WriteOurs(benchmark::State& state, Target target, std::size_t size) {
    PAMPolicy policy("sample");
    ReadOurs(LargeFile(kBlocks, size), policy);
    WriteTo(state, target, [&](std::ostream& stream) { stream << policy; });
}

void WriteLiterally(benchmark::State& state, Target target, std::size_t size) {
    literal_pam::Policy policy;
    ReadLiterally(LargeFile(kBlocks, size), policy);
    WriteTo(state, target, [&](std::ostream& stream) { literal_pam::WritePolicy(stream, policy); });
}

#ifdef HAVE_AUGEAS
void ReadWithAugeas(benchmark::State& state) {
    AugeasParser augeas("Pam");
    const Texts files = ReadFiles(state.range(0));
    for (std::size_t index = 0; index < files.size(); ++index) augeas.Put(index, files[index]);
    for (auto _ : state) {
        for (std::size_t index = 0; index < files.size(); ++index) augeas.Parse(index);
    }
}

void WriteWithAugeas(benchmark::State& state, std::size_t size) {
    AugeasParser augeas("Pam");
    augeas.Put(0, LargeFile(kBlocks, size));
    augeas.Keep(0);
    for (auto _ : state) augeas.Write(0);
}
#endif

void RegisterReads(const std::string& size, long megabytes) {
    const std::string work = "PAM policy read, " + size + "/";
    benchmark::RegisterBenchmark((work + "ours").c_str(), ReadPoliciesOurs)->Arg(megabytes);
    benchmark::RegisterBenchmark((work + "literal").c_str(), ReadPoliciesLiterally)->Arg(megabytes);
    benchmark::RegisterBenchmark((work + "floor").c_str(), CopyStacks)->Arg(megabytes);
#ifdef HAVE_AUGEAS
    benchmark::RegisterBenchmark((work + "Augeas").c_str(), ReadWithAugeas)->Arg(megabytes);
#endif
}

void RegisterWrites(const std::string& what, Target target, std::size_t size) {
    const std::string work = "PAM policy write, " + what + "/";
    benchmark::RegisterBenchmark((work + "ours").c_str(), WriteOurs, target, size);
    benchmark::RegisterBenchmark((work + "literal").c_str(), WriteLiterally, target, size);
}

const bool kRegistered = [] {
    RegisterReads("stock files", 0);
    RegisterReads("1 MB", 1);
    RegisterReads("10 MB", 10);
    RegisterWrites("1 MB to memory", Target::Memory, kMegabyte);
    RegisterWrites("1 MB to a file", Target::File, kMegabyte);
    // Augeas takes more than half a minute for 1 MB.
    RegisterWrites("10 kB to memory", Target::Memory, 10'000);
#ifdef HAVE_AUGEAS
    benchmark::RegisterBenchmark("PAM policy write, 10 kB to memory/Augeas", WriteWithAugeas, 10'000);
#endif
    return true;
}();

}  // namespace
