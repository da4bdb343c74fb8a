// SPDX-License-Identifier: Apache-2.0
// What nearly every source of the libraries and programs includes, to be compiled ahead.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifdef __clang__  // g++ loads all that was compiled ahead for every source, and reads this sooner where it is used
#include <nlohmann/json.hpp>
#endif
