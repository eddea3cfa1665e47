// Its queries throw a C++ exception across the C table, of a class that only the plug-in has.
#include <exception>

#include "leaving.h"

namespace {

class PluginError : public std::exception {
 public:
    const char* what() const noexcept override { return "thrown by a plug-in"; }
};

}  // namespace

static void Leave() { throw PluginError(); }
