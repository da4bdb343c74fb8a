// SPDX-License-Identifier: Apache-2.0
/// \file
/// A container of another kind than the library's own, as a program may bring one.
#pragma once

#include <apigen/ApiException.h>
#include <apigen/IData.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zamtest {

class CPlainData final : public apigen::IData {
public:
    bool HasValue(const std::string& key) const override { return Find(key) != nullptr; }

    std::shared_ptr<apigen::IData> CreateChild(const std::string& key) override {
        m_entries.emplace_back(key, std::make_shared<CPlainData>());
        m_entries.back().second->m_isText = false;
        return m_entries.back().second;
    }

    std::vector<std::shared_ptr<apigen::IData>> GetChildren(const std::string& key) const override {
        std::vector<std::shared_ptr<apigen::IData>> found;
        for (const auto& [name, node] : m_entries)
            if (name == key) found.push_back(node);
        return found;
    }

    std::shared_ptr<apigen::IData> GetChild(const std::string& key) const override { return Require(key); }

    bool HasString(const std::string& key) const override {
        const auto node = Find(key);
        return node != nullptr && node->m_isText;
    }

    void SetString(const std::string& key, const std::string& value) override {
        auto node = Find(key);
        if (node == nullptr) {
            node = std::make_shared<CPlainData>();
            m_entries.emplace_back(key, node);
        }
        node->m_text = value;
    }

    std::string GetString(const std::string& key) const override { return Require(key)->m_text; }

    /// The entries as the library's own containers write them, but for escapes.
    std::string Text() const {
        std::string text;
        for (const auto& [name, node] : m_entries) {
            const std::string inside = node->m_isText ? node->m_text : node->Text();
            const bool isEmptyNode = !node->m_isText && inside.empty();
            text += isEmptyNode ? '<' + name + "/>" : '<' + name + '>' + inside + "</" + name + '>';
        }
        return text;
    }

private:
    std::shared_ptr<CPlainData> Find(const std::string& key) const {
        for (const auto& [name, node] : m_entries)
            if (name == key) return node;
        return nullptr;
    }

    std::shared_ptr<CPlainData> Require(const std::string& key) const {
        auto node = Find(key);
        if (node == nullptr) throw apigen::ApiInternalError("nothing under " + key);
        return node;
    }

    bool m_isText = true;
    std::string m_text;
    std::vector<std::pair<std::string, std::shared_ptr<CPlainData>>> m_entries;
};

}  // namespace zamtest
