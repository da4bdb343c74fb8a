// SPDX-License-Identifier: Apache-2.0
/// \file
/// Every error of the library, thrown and caught by number. Compiled into host and plugin each for itself.
#pragma once

#include <apigen/ApiException.h>
#include <zamclientlib/Exceptions.h>

#include <cstring>
#include <string>
#include <typeinfo>

namespace reliability {

inline void ThrowKind(int kind) {
    const std::string text = "thrown";
    switch (kind) {
        case 0:
            throw apigen::ApiException(text);
        case 1:
            throw apigen::ApiInternalError(text);
        case 2:
            throw apigen::ProcessLaunchError(text, 2);
        case 3:
            throw apigen::ProcessFailedError(text);
        case 4:
            throw apigen::TimeoutError(text);
        case 5:
            throw apigen::PeerGoneError(text);
        case 6:
            throw apigen::BrokenMessageError(text);
        case 7:
            throw zamclientlib::CGenericException(text);
        case 8:
            throw zamclientlib::CJobIsRunning(text);
        case 9:
            throw zamclientlib::CPackageManagerIsLocked(text);
        case 10:
            throw zamclientlib::CIndexingUnmetDependencies(text,
                                                           static_cast<zamclientlib::EIndexingDependency>(1));
        default:
            throw 0;
    }
}

template <class E>
bool Catches(void (*thrower)(int), int kind) {
    try {
        thrower(kind);
    } catch (const E& error) {
        return std::strcmp(error.what(), "thrown") == 0 && typeid(error) == typeid(E);
    } catch (...) {
    }
    return false;
}

template <class Base>
bool CatchesAs(void (*thrower)(int), int kind) {
    try {
        thrower(kind);
    } catch (const Base& error) {
        return std::strcmp(error.what(), "thrown") == 0;
    } catch (...) {
    }
    return false;
}

inline bool CatchesKind(void (*thrower)(int), int kind) {
    if (!CatchesAs<std::exception>(thrower, kind) || !CatchesAs<apigen::ApiException>(thrower, kind))
        return false;
    if (kind >= 1 && kind <= 6 && !CatchesAs<apigen::ApiInternalError>(thrower, kind)) return false;
    switch (kind) {
        case 0:
            return Catches<apigen::ApiException>(thrower, kind);
        case 1:
            return Catches<apigen::ApiInternalError>(thrower, kind);
        case 2:
            return Catches<apigen::ProcessLaunchError>(thrower, kind);
        case 3:
            return Catches<apigen::ProcessFailedError>(thrower, kind);
        case 4:
            return Catches<apigen::TimeoutError>(thrower, kind);
        case 5:
            return Catches<apigen::PeerGoneError>(thrower, kind);
        case 6:
            return Catches<apigen::BrokenMessageError>(thrower, kind);
        case 7:
            return Catches<zamclientlib::CGenericException>(thrower, kind);
        case 8:
            return Catches<zamclientlib::CJobIsRunning>(thrower, kind);
        case 9:
            return Catches<zamclientlib::CPackageManagerIsLocked>(thrower, kind);
        case 10:
            return Catches<zamclientlib::CIndexingUnmetDependencies>(thrower, kind);
        default:
            return false;
    }
}

}  // namespace reliability
