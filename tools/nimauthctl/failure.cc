#include "tools/nimauthctl/failure.h"

#include <cxxabi.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <system_error>
#include <typeinfo>

#include "authentication/exceptions.h"
#include "embeddeddirectory/directory_error.h"
#include "hostmgmt/exceptions.h"
#include "tools/nimauthctl/catalogue.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kAsRoot[] = "run the tool as root";
// The library and the providers write to the system log under the name of the process.
constexpr char kLog[] = "journalctl -t nimauthctl, or /var/log/syslog where there is no journal";

// The class of the exception that is being handled, without its namespaces.
std::string CurrentClass() {
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (type == nullptr) return "unknown";
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type->name(), nullptr, nullptr, &status),
                                                           &std::free);
    if (name == nullptr) return type->name();
    const std::string_view whole = name.get();
    const std::size_t colon = whole.rfind(':');
    return std::string(colon == std::string_view::npos ? whole : whole.substr(colon + 1));
}

// The library and the platform end their messages with the system's text for the error, in the C locale.
bool SpeaksOfPermission(std::string_view message) {
    constexpr std::array<int, 3> kErrors = {EACCES, EPERM, EROFS};
    for (const int error : kErrors) {
        if (message.find(std::generic_category().message(error)) != std::string_view::npos) return true;
    }
    return message.find("readonly database") != std::string_view::npos;
}

template <typename Entry>
void Explain(const Entry* entry, Failure& failure) {
    if (entry == nullptr) return;
    failure.cause = entry->cause;
    failure.remedy = entry->remedy;
    failure.exitCode = entry->exitCode;
}

Failure Describe(const char* message, std::uint64_t code) {
    return {.exception = CurrentClass(), .code = code, .message = message, .log = kLog};
}

// Failures of the library and the platform without a status: looked up by class, and permission told by the text.
Failure DescribeByClass(const char* message) {
    Failure failure = Describe(message, 0);
    Explain(FindClass(failure.exception, message), failure);
    if (SpeaksOfPermission(message)) {
        failure.exitCode = ExitCode::Permission;
        failure.cause = "the file may not be used by this user";
        failure.remedy = kAsRoot;
    }
    return failure;
}

Failure DescribeLibrary(const authentication::Exception& error) {
    if (error.GetCode() == 0) return DescribeByClass(error.what());
    Failure failure = Describe(error.what(), error.GetCode());
    Explain(FindStatus(error.GetCode()), failure);
    if (failure.cause.empty()) {
        failure.cause = "the provider answered with a status that has no explanation here";
        failure.remedy = "look the number up in the provider's documentation, and see the system log";
    }
    return failure;
}

Failure DescribeDirectory(const embedded::DirectoryError& error) {
    Failure failure = Describe(error.what(), error.Status());
    failure.exception = "DirectoryError";  // scripts know it by this name
    failure.log.clear();
    Explain(FindDirectoryEdit(error.Status()), failure);
    if (failure.cause.empty()) Explain(FindStatus(error.Status()), failure);
    return failure;
}

Failure DescribeUsage(const UsageError& error) {
    Failure failure = Describe(error.what(), 0);
    failure.log.clear();
    failure.remedy = error.Remedy();
    failure.exitCode = ExitCode::Usage;
    return failure;
}

Failure DescribeTool(const ToolError& error) {
    Failure failure = Describe(error.what(), 0);
    failure.log.clear();
    failure.cause = error.Cause();
    failure.remedy = error.Remedy();
    failure.exitCode = error.Code();
    return failure;
}

}  // namespace

Failure DescribeCurrentException() {
    try {
        throw;
    } catch (const CarriedFailure& error) {
        return error.Described();
    } catch (const UsageError& error) {
        return DescribeUsage(error);
    } catch (const ToolError& error) {
        return DescribeTool(error);
    } catch (const authentication::Exception& error) {
        return DescribeLibrary(error);
    } catch (const embedded::DirectoryError& error) {
        return DescribeDirectory(error);
    } catch (const std::exception& error) {
        return DescribeByClass(error.what());
    } catch (...) {
        return DescribeByClass("a failure of unknown kind");
    }
}

Failure OfProxy(Failure failure) {
    if (failure.code != 0) Explain(FindProxyStatus(failure.code), failure);
    return failure;
}

}  // namespace nimbrel::nimauthctl
