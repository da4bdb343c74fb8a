// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>
#include <apigen/IData.h>

#include <cstdint>
#include <memory>

namespace apigen APIGEN_API {

/// The service's number for a live remote object; 0 means none.
struct Handle {
    std::uint64_t Value = 0;

    /// Whether it names an object.
    explicit operator bool() const noexcept { return Value != 0; }

    friend bool operator==(Handle left, Handle right) noexcept { return left.Value == right.Value; }
    friend bool operator!=(Handle left, Handle right) noexcept { return left.Value != right.Value; }
    friend bool operator<(Handle left, Handle right) noexcept { return left.Value < right.Value; }
};

/// Reads handles out of containers.
class HandleUtils {
public:
    /// The handle under the container's own `__handle`, as a response carries a returned object.
    /// \throws ApiInternalError when the container has no such text.
    static Handle FromData(const IData& data);
    /// \overload
    static Handle FromData(const std::shared_ptr<IData>& data) { return FromData(*data); }
};

}  // namespace apigen
