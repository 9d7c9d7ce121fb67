// The headers nearly every test program includes, precompiled once for all
// of them (tests/CMakeLists.txt). A test file still includes what it uses
// itself; this list only makes the build quicker and changes no meaning.
#ifndef LASERCALI_TESTS_SUPPORT_UNIT_TEST_HEADERS_H_
#define LASERCALI_TESTS_SUPPORT_UNIT_TEST_HEADERS_H_

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#endif  // LASERCALI_TESTS_SUPPORT_UNIT_TEST_HEADERS_H_
