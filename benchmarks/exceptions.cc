// Failures: a mapped status, and carrying an exception to another thread.

#include "authentication/exceptions.h"

#include <benchmark/benchmark.h>

#include <exception>
#include <memory>
#include <stdexcept>

namespace {

using nimbrel::authentication::Exception;
using nimbrel::authentication::LogonFailureException;
using nimbrel::authentication::ThrowMappedException;

[[noreturn]] __attribute__((noinline)) void ThrowRuntimeError() {
    throw std::runtime_error(
        "Exception 0x0000052e: The attempted logon is invalid. This is due to either a bad user name or authentication "
        "information.");
}

void ThrowOurs(benchmark::State& state) {
    for (auto _ : state) {
        try {
            ThrowMappedException(1326);
        } catch (const LogonFailureException& error) {
            benchmark::DoNotOptimize(error.what());
        }
    }
}
BENCHMARK(ThrowOurs)->Name("mapped status thrown and caught/ours");

void ThrowStandard(benchmark::State& state) {
    for (auto _ : state) {
        try {
            ThrowRuntimeError();
        } catch (const std::runtime_error& error) {
            benchmark::DoNotOptimize(error.what());
        }
    }
}
BENCHMARK(ThrowStandard)->Name("mapped status thrown and caught/std::runtime_error");

void CarryOurs(benchmark::State& state) {
    const LogonFailureException original;
    const Exception& error = original;
    for (auto _ : state) {
        const std::unique_ptr<Exception> carried(error.Clone());
        try {
            carried->Throw();
        } catch (const LogonFailureException& caught) {
            benchmark::DoNotOptimize(caught.what());
        }
    }
}
BENCHMARK(CarryOurs)->Name("clone and throw/ours");

void CarryStandard(benchmark::State& state) {
    const LogonFailureException original;
    for (auto _ : state) {
        const std::exception_ptr carried = std::make_exception_ptr(original);
        try {
            std::rethrow_exception(carried);
        } catch (const LogonFailureException& caught) {
            benchmark::DoNotOptimize(caught.what());
        }
    }
}
BENCHMARK(CarryStandard)->Name("clone and throw/std::exception_ptr");

}  // namespace
