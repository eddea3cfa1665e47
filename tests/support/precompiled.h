// What nearly every test includes, compiled once for all of them. A test still includes what it uses.

#ifndef TESTS_SUPPORT_PRECOMPILED_H_
#define TESTS_SUPPORT_PRECOMPILED_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#endif  // TESTS_SUPPORT_PRECOMPILED_H_
