// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <optional>
#include <vector>

namespace testagent {

/// The script's rules of one kind, and how often each was met. Any thread may ask.
template <class Rule>
class CRules {
public:
    explicit CRules(const std::vector<Rule>& rules) {
        for (const auto& rule : rules)
            m_rules.push_back({rule});
    }

    /// The first rule that is due, of those that `fits` is true for. Counts for all that fit.
    template <class F>
    std::optional<Rule> Due(F fits) {
        const std::lock_guard lock(m_mutex);
        std::optional<Rule> due;
        for (auto& [rule, seen] : m_rules) {
            if (!fits(rule)) continue;
            const unsigned long index = seen++;
            const bool isDue = index >= rule.Skip && (rule.Times == 0 || index - rule.Skip < rule.Times);
            if (isDue && !due) due = rule;
        }
        return due;
    }

private:
    struct SState {
        Rule Is;
        unsigned long Seen = 0;  ///< calls or events that it fits
    };

    std::mutex m_mutex;
    std::vector<SState> m_rules;
};

}  // namespace testagent
