// SPDX-License-Identifier: Apache-2.0
/// \file
/// The message of an expected exception.
#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <typeinfo>

namespace apigen::test {

/// What `action` throws says; a failure of the test unless it throws exactly an `E`.
template <class E, class Action>
std::string Thrown(Action&& action) {
    try {
        action();
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error).name(), typeid(E).name()) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

}  // namespace apigen::test
