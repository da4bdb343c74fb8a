// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apigen/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace apigen APIGEN_API {

/// A node of a keyed tree: named texts and named child nodes. Keys may repeat; insertion order is kept.
///
/// A node keeps its whole tree alive. One thread at a time may use a tree, for reading and for letting go of
/// nodes too.
class IData {
public:
    /// True when an entry, a text or a child node, stands under `key`.
    virtual bool HasValue(const std::string& key) const = 0;

    /// Appends an empty child node; a second call with the same key makes a second child.
    /// \throws ApiInternalError when `key` is no valid key (a letter or `_`, then letters, digits, `_-.`).
    virtual std::shared_ptr<IData> CreateChild(const std::string& key) = 0;

    /// Every entry under `key`, in insertion order; empty when there is none.
    virtual std::vector<std::shared_ptr<IData>> GetChildren(const std::string& key) const = 0;

    /// The first entry under `key`.
    /// \throws ApiInternalError naming the key and where it was looked for, when there is none.
    virtual std::shared_ptr<IData> GetChild(const std::string& key) const = 0;

    /// True when the first entry under `key` is a text.
    virtual bool HasString(const std::string& key) const = 0;

    /// Replaces the text of the first entry under `key`, or appends a new entry.
    /// \throws ApiInternalError when `key` is no valid key.
    virtual void SetString(const std::string& key, const std::string& value) = 0;

    /// The text of the first entry under `key`.
    /// \throws ApiInternalError when there is no such entry, or when it holds child entries.
    virtual std::string GetString(const std::string& key) const = 0;

    virtual ~IData() = default;
};

}  // namespace apigen
