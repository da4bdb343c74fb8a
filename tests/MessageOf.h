// SPDX-License-Identifier: Apache-2.0
/// \file
/// What an action throws.
#pragma once

#include <apigen/ApiException.h>

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace tests {

/// The message of the E that `action` throws; a failure when it throws something else or nothing. The E must
/// be no derived class, but for the base of all transport failures.
template <class E>
std::string MessageOf(const std::function<void()>& action) {
    try {
        action();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const E& error) {
        EXPECT_TRUE((std::is_same_v<E, apigen::ApiInternalError> || typeid(error) == typeid(E)))
            << typeid(error).name() << ": " << error.what();
        return error.what();
    } catch (const std::exception& error) {
        ADD_FAILURE() << "another error was thrown: " << typeid(error).name() << ": " << error.what();
    }
    return {};
}

}  // namespace tests
