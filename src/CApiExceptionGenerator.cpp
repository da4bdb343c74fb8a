// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/CApiExceptionGenerator.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "src/ExceptionTypes.h"
#include "support/apigen/Encoders.h"
#include "support/common/Quietly.h"
#include "support/common/Text.h"

namespace apigen {

template <>
struct Codec<ApiException> {
    static constexpr std::string_view MessageKey = "exc_msg";

    template <class Writer>
    static void Write(Writer& writer, const ApiException& value) {
        writer.Text(MessageKey, value.what());
    }
    template <class Reader>
    static void Read(Reader& reader, ApiException& value) {
        value = ApiException(std::string(reader.Text(MessageKey)));
    }
};

/// The exceptions of the API: the base's part, then what is theirs.
template <class T>
requires std::is_base_of_v<ApiException, T>
struct Codec<T> {
    static constexpr std::string_view BaseKey = "ApiException";
    static constexpr std::string_view MissedPackageKey = "MissedPackage";

    template <class Writer>
    static void Write(Writer& writer, const T& value) {
        detail::Write(writer, BaseKey, static_cast<const ApiException&>(value));
        if constexpr (std::is_same_v<T, zamclientlib::CIndexingUnmetDependencies>) {
            detail::Write(writer, MissedPackageKey, value.MissedPackage);
        }
    }
    template <class Reader>
    static void Read(Reader& reader, T& value) {
        detail::Read(reader, BaseKey, static_cast<ApiException&>(value));
        if constexpr (std::is_same_v<T, zamclientlib::CIndexingUnmetDependencies>) {
            detail::Read(reader, MissedPackageKey, value.MissedPackage);
        }
    }
};

}  // namespace apigen

APIGEN_INSTANTIATE_ENCODER(apigen::ApiException);

namespace zamclientlib {

CApiExceptionGenerator::CApiExceptionGenerator(std::shared_ptr<apigen::ILogger> logger)
    : m_logger(logger != nullptr ? std::move(logger) : std::make_shared<apigen::CApiEmptyLogger>()) {}

void CApiExceptionGenerator::Generate(std::shared_ptr<apigen::IData> exceptionData) {
    const std::string type = exceptionData->HasString(exceptions::TypeKey)
                                 ? exceptionData->GetString(exceptions::TypeKey)
                                 : std::string();
    // What the logger throws must not take the place of the exception.
    apigen::common::Quietly(
        [&] { m_logger->Info("Exception of " + apigen::common::Escaped(type) + " type was received."); });
    exceptions::ForEachType([&]<class E>(std::string_view name) {
        if (type == name) throw Deserialize<E>(*exceptionData);
    });
    throw apigen::ApiException("Cannot deserialize exception: Unknown exception type.");
}

template <class T>
T CApiExceptionGenerator::Deserialize(apigen::IData& exceptionData) {
    T exception;
    apigen::Deserialize(exceptionData, exceptions::ContentKey, exception);
    apigen::common::Quietly([&] {
        // In the log, a service's words must not pass for lines of their own.
        T shown = exception;
        static_cast<apigen::ApiException&>(shown) =
            apigen::ApiException(apigen::common::Escaped(exception.what()));
        m_logger->Error("Generating exception.", shown);
    });
    return exception;
}

}  // namespace zamclientlib

#define ZAM_INSTANTIATE(type)                       \
    APIGEN_INSTANTIATE_ENCODER(zamclientlib::type); \
    template APIGEN_API zamclientlib::type          \
    zamclientlib::CApiExceptionGenerator::Deserialize<zamclientlib::type>(apigen::IData&)

ZAM_INSTANTIATE(CGenericException);
ZAM_INSTANTIATE(CJobIsRunning);
ZAM_INSTANTIATE(CPackageManagerIsLocked);
ZAM_INSTANTIATE(CIndexingUnmetDependencies);
