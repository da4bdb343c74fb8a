// SPDX-License-Identifier: Apache-2.0
// What nearly every test includes, to be compiled ahead.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <random>

#include "cmake/Precompiled.h"
