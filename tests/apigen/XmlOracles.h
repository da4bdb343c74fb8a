// SPDX-License-Identifier: Apache-2.0
/// \file
/// Other readers of XML as judges of ours; shared by the tests and the fuzzers.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace apigen::test {

/// What came of reading a text.
struct SOutcome {
    bool IsAccepted = false;
    std::string Tree;     ///< keys, texts and nesting, in a form of its own that leaves nothing out
    std::string Message;  ///< of the refusal
};

/// Our reader, given the whole text.
SOutcome ReadWhole(std::string_view text);

/// Our reader, given the text in pieces that end at `cuts` (ascending).
SOutcome ReadInPieces(std::string_view text, const std::vector<std::size_t>& cuts);

/// Where the reading of the whole text and that in pieces differ; empty when they don't.
std::string FindDifferenceInPieces(std::string_view text, const std::vector<std::size_t>& cuts);

/// Where our reader, expat and pugixml disagree about a text; empty when they don't. What our rules refuse
/// beyond well-formedness is judged from what expat reports.
std::string FindDisagreement(std::string_view text);

}  // namespace apigen::test
