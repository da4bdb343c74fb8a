// SPDX-License-Identifier: Apache-2.0
/// \file
/// An interface of the tests' own, for the shapes of results that the API's may not have.
#pragma once

#include <zamclientlib/CommonRecords.h>

#include <memory>
#include <vector>

#include "src/Method.h"

namespace zamtest {

/// A tree of objects: an interface whose methods return lists of objects.
class IFolder {
public:
    virtual std::vector<std::shared_ptr<IFolder>> GetFolders() const = 0;
    virtual std::vector<zamclientlib::SVersion> GetVersions(std::vector<zamclientlib::SVersion> known) = 0;
    virtual ~IFolder() = default;
};

namespace folder {
inline constexpr auto GetFolders = zamclientlib::Describe(
    &IFolder::GetFolders, "GetFolders_1", "std::vector< std::shared_ptr< IFolder > > GetFolders() const");
inline constexpr auto GetVersions =
    zamclientlib::Describe(&IFolder::GetVersions, "GetVersions_2",
                           "std::vector< SVersion > GetVersions(std::vector< SVersion > known)", "known");
}  // namespace folder

}  // namespace zamtest

template <>
struct zamclientlib::MethodsOf<zamtest::IFolder> {
    template <class V>
    static constexpr void ForEach(V&& visit) {
        visit(zamtest::folder::GetFolders);
        visit(zamtest::folder::GetVersions);
    }
};
