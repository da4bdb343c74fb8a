// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IInvoker.h>
#include <apigen/ILogger.h>
#include <zamclientlib/Exceptions.h>

#include <memory>

namespace zamclientlib APIGEN_API {

/// Throws the exception of this API that a response describes, and logs that it did.
class CApiExceptionGenerator final : public apigen::IApiExceptionGenerator {
public:
    /// \param logger may be empty: then nothing is logged
    explicit CApiExceptionGenerator(std::shared_ptr<apigen::ILogger> logger);

    /// Never returns. An unknown type is thrown as `apigen::ApiException`.
    void Generate(std::shared_ptr<apigen::IData> exceptionData) override;

    /// Reads an exception of class `T`, one of Exceptions.h, from a description.
    template <class T>
    T Deserialize(apigen::IData& exceptionData);

private:
    std::shared_ptr<apigen::ILogger> m_logger;
};

}  // namespace zamclientlib
