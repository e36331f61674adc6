// Headers nearly every test program includes, parsed once per build tree
// and shared by all of them (a precompiled header): GoogleTest, the JSON
// parser and the standard library's heavier parts.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
