// SPDX-License-Identifier: Apache-2.0
// Commands that only look.
#include <zamclientlib/Enums.h>

#include <array>
#include <string>

#include "agent/commands/Actions.h"
#include "agent/commands/Lookup.h"
#include "agent/commands/Table.h"
#include "agent/core/Retention.h"
#include "support/common/Text.h"

namespace tarvo::commands {
namespace {

using apigen::common::Escaped;

const char* StateText(EChainState state) {
    switch (state) {
        case EChainState::Preparing:
            return "preparing";
        case EChainState::Open:
            return "open";
        case EChainState::Closed:
            return "closed";
        case EChainState::Damaged:
            return "damaged";
        case EChainState::Lost:
            return "lost";
    }
    return "unknown";
}

/// Programs get all of it, people as much as a line has room for.
SCell Damage(const std::string& damage) {
    constexpr std::size_t Longest = 100;
    if (damage.empty()) return {"damage", "-", {}};
    SCell cell = Text("damage", Escaped(damage));
    if (cell.Shown.size() <= Longest) return cell;
    std::size_t end = Longest;
    while ((static_cast<unsigned char>(cell.Shown[end]) & 0xc0U) == 0x80)
        --end;
    cell.Shown = cell.Shown.substr(0, end) + "...";
    return cell;
}

SCell Orphan(bool isOrphan) {
    return {"orphan", isOrphan ? "yes" : "-", isOrphan};
}

Row PointRow(const CLookup& lookup, const SPoint& point) {
    const auto chain = lookup.State()->FindChain(point.Job, point.Chain);
    return {Text("point", PlainText(point.Id)),
            Text("job", lookup.JobName(point.Job)),
            Orphan(lookup.IsOrphan(point.Job)),
            Time("created", point.Created),
            Text("type", std::string(zamclientlib::NameOf(point.Type))),
            Bytes("size", point.SourceBytes),
            Bytes("stored", point.StoredBytes),
            Number("chain", static_cast<std::uint64_t>(point.Chain)),
            Text("state", chain ? StateText(chain->State) : "unknown")};
}

void Preview(const CLookup& lookup, const SJob& job, CTable& table) {
    auto points = lookup.State()->PointsOf(job.Id);
    const auto choices = ChooseKept(job.Config.RetentionInfo, std::move(points),
                                    lookup.State()->ChainsOf(job.Id), CSystemClock().Now());
    for (const auto& choice : choices) {
        table.Add({Text("point", PlainText(choice.Point.Id)), Text("job", lookup.JobName(job.Id)),
                   Time("created", choice.Point.Created), Bytes("size", choice.Point.SourceBytes),
                   Number("chain", static_cast<std::uint64_t>(choice.Point.Chain)),
                   Text("fate", choice.IsKept ? "keep" : "remove"), Text("reason", Escaped(choice.Reason))});
    }
}

const char* TypeText(EEntryType type) {
    switch (type) {
        case EEntryType::File:
            return "file";
        case EEntryType::Folder:
            return "folder";
        case EEntryType::Link:
            return "link";
        case EEntryType::Other:
            break;
    }
    return "other";
}

std::string ModeText(std::uint32_t mode) {
    std::string text = "0000";
    for (std::size_t i = 4; i-- > 0; mode >>= 3U)
        text[i] = static_cast<char>('0' + (mode & 7U));
    return text;
}

}  // namespace

int ShowPoints(const SPlace& place, const SOptions& options) {
    const CLookup lookup(place.Folders, true);
    CTable table(place.Out, options.IsJson);
    if (options.IsPreview) {
        for (const auto& job : lookup.Jobs(options.Job))
            if (!job.IsDeleted) Preview(lookup, job, table);
        return Done;
    }
    const auto points = lookup.Points(options.Job);
    if (points.empty() && !options.IsJson)
        place.Errors << "There are no points yet" << lookup.WhyNothing() << '\n';
    for (const auto& point : points)
        table.Add(PointRow(lookup, point));
    return Done;
}

int ShowChains(const SPlace& place, const SOptions& options) {
    const CLookup lookup(place.Folders, true);
    CTable table(place.Out, options.IsJson);
    const auto chains = lookup.Chains(options.Job);
    if (chains.empty() && !options.IsJson)
        place.Errors << "There are no chains yet" << lookup.WhyNothing() << '\n';
    for (const auto& chain : chains) {
        std::uint64_t points = 0;
        for (const auto& point : lookup.State()->PointsOf(chain.Job))
            points += point.Chain == chain.Number ? 1 : 0;
        const auto& verified = chain.Verified;
        std::string how = "-";
        if (verified.Last) {
            how = TimeText(*verified.Last);
            if (verified.Parts > 1)
                how += " (" + std::to_string(verified.Part) + "/" + std::to_string(verified.Parts) + ")";
        }
        Row row{Number("chain", static_cast<std::uint64_t>(chain.Number)),
                Text("job", lookup.JobName(chain.Job)),
                Orphan(lookup.IsOrphan(chain.Job)),
                Text("state", StateText(chain.State)),
                {"password", chain.HasPassword ? "yes" : "-", chain.HasPassword},
                Number("points", points),
                Time("created", chain.Created),
                Text("verified", how),
                Text("folder", Escaped(StoreFolder(chain.Location, PlainText(chain.Job),
                                                   static_cast<std::uint64_t>(chain.Number)))),
                Damage(chain.Damage)};
        if (!verified.Last) row[7].Value = {};
        table.Add(std::move(row));
    }
    return Done;
}

int ShowFiles(const SPlace& place, const SOptions& options) {
    const CLookup lookup(place.Folders, true);
    const auto point = lookup.Point(options.Point, options.Job);
    const auto store = lookup.StoreOf(lookup.ChainOf(point), options.PasswordFile);
    CPathFilter filter(options.Paths);
    // As they come: there may be millions, which no table would hold.
    place.MakeEngine()->List(
        {store, point.EngineId, "/", PointName(point)},
        [&](const SEntry& entry) {
            if (!filter.Takes(entry.Path)) return;
            const auto changed = std::chrono::floor<std::chrono::milliseconds>(entry.Changed);
            if (options.IsJson) {
                SCell shown{"path", "", entry.Path};
                place.Out << JsonLine({shown, Text("escaped", Escaped(entry.Path)),
                                       Text("type", TypeText(entry.Type)), Number("size", entry.Size),
                                       Text("mode", ModeText(entry.Mode)), Number("user", entry.User),
                                       Number("group", entry.Group), Time("changed", changed)})
                          << '\n';
                return;
            }
            std::array<char, 96> facts{};
            std::snprintf(facts.data(), facts.size(), "%-6s  %s  %6u  %6u  %10s  %s  ", TypeText(entry.Type),
                          ModeText(entry.Mode).c_str(), entry.User, entry.Group, SizeText(entry.Size).c_str(),
                          TimeText(changed).c_str());
            place.Out << facts.data() << Escaped(entry.Path) << '\n';
        },
        place.Stop);
    filter.RequireAll(point);
    return Done;
}

}  // namespace tarvo::commands
