// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Retention.h"

#include <algorithm>
#include <chrono>

namespace tarvo {

namespace {

bool IsSound(const SPoint& point, const std::vector<SChain>& chains) {
    const auto chain = std::find_if(chains.begin(), chains.end(), [&](const SChain& each) {
        return each.Job == point.Job && each.Number == point.Chain;
    });
    return chain == chains.end() ||
           (chain->State != EChainState::Damaged && chain->State != EChainState::Lost);
}

std::string Days(unsigned long days) {
    return Counted(days, "day", "days");
}

/// Those that are kept by their number.
std::string Newest(std::size_t wanted) {
    return wanted == 1 ? "the newest" : "one of the newest " + std::to_string(wanted);
}

}  // namespace

std::vector<SRetentionChoice> ChooseKept(const zamclientlib::SBackupJobRetentionInfo& retention,
                                         std::vector<SPoint> points, const std::vector<SChain>& chains,
                                         Moment now) {
    constexpr unsigned long MostDays = 365UL * 1000;
    // Their order is that of their making: by their times, a clock that was set back would make the newest an old one.
    std::reverse(points.begin(), points.end());
    const auto wanted =
        static_cast<std::size_t>(retention.RestorePointsCount > 0 ? retention.RestorePointsCount : 0);
    const unsigned long days = retention.RetainDays ? std::min(*retention.RetainDays, MostDays) : 0;
    const Moment limit = now - std::chrono::days(days);

    std::vector<SRetentionChoice> choices;
    std::size_t sound = 0;
    for (auto& point : points) {
        const bool isSound = IsSound(point, chains);
        const std::size_t newer = sound;
        if (isSound) ++sound;
        SRetentionChoice choice{std::move(point), true, {}};
        if (wanted == 0 && days == 0) {
            choice.Reason = "every point is kept";
        } else if (wanted != 0 && newer < wanted) {
            choice.Reason =
                isSound ? Newest(wanted) : "in a damaged chain, and too few sound points are newer";
        } else if (days != 0 && choice.Point.Created > limit) {
            choice.Reason = "younger than " + Days(days);
        } else if (newer == 0) {
            choice.Reason = isSound ? "the newest" : "in a damaged chain, and no sound point is newer";
        } else {
            choice.IsKept = false;
            if (wanted != 0) choice.Reason = "not " + Newest(wanted);
            if (days != 0) {
                choice.Reason +=
                    (choice.Reason.empty() ? "" : ", and ") + std::string("older than ") + Days(days);
            }
        }
        choices.push_back(std::move(choice));
    }
    return choices;
}

}  // namespace tarvo
