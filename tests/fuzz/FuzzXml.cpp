// SPDX-License-Identifier: Apache-2.0
// Any text: our reader agrees with the others, reads pieces as the whole, and reads back what it writes.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/apigen/XmlOracles.h"
#include "tests/fuzz/Check.h"

namespace {

/// Where to cut is taken from the text itself, so that an input says all.
std::vector<std::size_t> Cuts(std::string_view text) {
    std::size_t hash = text.size();
    for (const char c : text) {
        hash = hash * 31 + static_cast<unsigned char>(c);
    }
    std::vector<std::size_t> cuts(hash % 5);
    for (auto& cut : cuts) {
        hash = hash * 6364136223846793005U + 1442695040888963407U;
        cut = (hash >> 32) % (text.size() + 1);
    }
    std::sort(cuts.begin(), cuts.end());
    return cuts;
}

std::vector<std::size_t> EveryByte(std::size_t size) {
    std::vector<std::size_t> cuts;
    for (std::size_t i = 0; i < size; ++i) {
        cuts.push_back(i);
    }
    return cuts;
}

std::string FindLossInWriting(const std::string& text) {
    try {
        const std::string written = apigen::CXmlData::Serialize(*apigen::CXmlData::Unserialize(text));
        const std::string again = apigen::CXmlData::Serialize(*apigen::CXmlData::Unserialize(written));
        return again == written ? "" : "written: " + written + "\nread and written again: " + again;
    } catch (const apigen::BrokenMessageError&) {
        return {};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Check(apigen::test::FindDisagreement(text));
    Check(apigen::test::FindDifferenceInPieces(text, Cuts(text)));
    if (size < 2000) Check(apigen::test::FindDifferenceInPieces(text, EveryByte(size)));
    Check(FindLossInWriting(text));
    return 0;
}
