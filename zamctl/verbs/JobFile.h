// SPDX-License-Identifier: Apache-2.0
/// \file
/// Job definitions as JSON: out of the agent, into it, and through an editor.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include <functional>
#include <string>
#include <vector>

#include "show/Json.h"

namespace zamctl {

/// The definition with the key "RepositoryName" added, by which it finds its repository on another host.
[[nodiscard]] Json ExportOf(zamclientlib::IZamProduct& product,
                            const zamclientlib::SBackupJobConfigurationInfo& config);

/// Puts `json` into the definition. The repository is found by "RepositoryName" where the agent has none of the id.
/// \throws CFieldError; CFailure (NotFound) for the repository
void ImportInto(zamclientlib::IZamProduct& product, Json json,
                zamclientlib::SBackupJobConfigurationInfo& config);

/// The objects in a text: one, or an array of them.
/// \throws CFieldError
[[nodiscard]] std::vector<Json> ObjectsIn(const std::string& text);

/// One difference between two definitions.
struct SDifference {
    std::string Path;
    Json Present;
    Json New;
};

[[nodiscard]] std::vector<SDifference> Differences(const Json& present, const Json& other);

/// Lets the user change the text in $VISUAL, $EDITOR or "editor", until `accept` takes it. What it throws (CFieldError, a
/// CFailure of usage or of something not found) is marked in the text, where it stands, and the text comes back; without
/// a terminal it is thrown on. The file is the user's alone, and gone afterwards.
/// \return false when nothing was changed
bool EditText(std::string text, const std::function<void(const std::string&)>& accept);

}  // namespace zamctl
