// SPDX-License-Identifier: Apache-2.0
/// \file
/// Other readers of XML as judges of ours; shared by the tests and the fuzzers.
#pragma once

#include <string>
#include <string_view>

namespace apigen::test {

/// What came of reading a text.
struct SOutcome {
    bool IsAccepted = false;
    std::string Tree;     ///< keys, texts and nesting, in a form of its own that leaves nothing out
    std::string Message;  ///< of the refusal
};

/// Our reader, given the whole text.
SOutcome ReadWhole(std::string_view text);

/// Where our reader, expat and pugixml disagree about a text; empty when they don't. What our rules refuse
/// beyond well-formedness is judged from what expat reports.
std::string FindDisagreement(std::string_view text);

}  // namespace apigen::test
