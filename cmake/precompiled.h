// What most sources include, compiled once for all of them. A source still includes what it uses.

#ifndef CMAKE_PRECOMPILED_H_
#define CMAKE_PRECOMPILED_H_

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#endif  // CMAKE_PRECOMPILED_H_
