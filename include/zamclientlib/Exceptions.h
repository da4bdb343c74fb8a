// SPDX-License-Identifier: Apache-2.0
/// \file
/// The failures that a service reports by type.
#pragma once

#include <apigen/ApiException.h>
#include <apigen/Export.h>
#include <zamclientlib/Enums.h>

#include <string>

namespace zamclientlib APIGEN_API {

/// Any failure of the service without a class of its own.
class CGenericException : public apigen::ApiException {
public:
    using apigen::ApiException::ApiException;
    ~CGenericException() override = default;
};

/// The operation is refused because a job is running.
class CJobIsRunning : public apigen::ApiException {
public:
    using apigen::ApiException::ApiException;
    ~CJobIsRunning() override = default;
};

/// Another program holds the package system; try again later.
class CPackageManagerIsLocked : public apigen::ApiException {
public:
    using apigen::ApiException::ApiException;
    ~CPackageManagerIsLocked() override = default;
};

/// File indexing needs something that the host lacks.
class CIndexingUnmetDependencies : public apigen::ApiException {
public:
    using apigen::ApiException::ApiException;
    /// \param missedPackage what is missing
    CIndexingUnmetDependencies(const std::string& message, EIndexingDependency missedPackage)
        : ApiException(message), MissedPackage(missedPackage) {}
    ~CIndexingUnmetDependencies() override = default;

    EIndexingDependency MissedPackage{};  ///< what is missing
};

}  // namespace zamclientlib
