// SPDX-License-Identifier: Apache-2.0
// The examples of docs/wire.md are what the library writes, byte for byte.
#include <apigen/ApiGen.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string WireDocument() {
    std::ifstream file(WIRE_DOCUMENT);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> Matches(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at) {
        found.push_back((*at)[1]);
    }
    // An ellipsis stands for something left out.
    const auto isShortened = [](const std::string& example) {
        return example.find("\u2026") != std::string::npos || example.find("...") != std::string::npos;
    };
    found.erase(std::remove_if(found.begin(), found.end(), isShortened), found.end());
    return found;
}

std::string Rewritten(const std::string& document) {
    return apigen::CXmlData::Serialize(*apigen::CXmlData::Unserialize(document));
}

TEST(WireDocument, ShowsDocumentsAsTheLibraryWritesThem) {
    const auto examples = Matches(WireDocument(), "(<Data>[^\n`]*</Data>|<Data/>)");
    ASSERT_GT(examples.size(), 10U);
    for (const auto& example : examples) {
        EXPECT_EQ(Rewritten(example), example);
    }
}

TEST(WireDocument, ShowsEntriesAsTheLibraryWritesThem) {
    const auto examples = Matches(WireDocument(), "`(<(?:K|Name|Options)[ />][^\n`]*|<K>[^\n`]*)`");
    ASSERT_GT(examples.size(), 10U);
    for (const auto& example : examples) {
        const std::string document = "<Data>" + example + "</Data>";
        EXPECT_EQ(Rewritten(document), document);
    }
}

TEST(WireDocument, ShowsFramesWithTheirTrueLength) {
    const std::string document = WireDocument();
    const std::regex frame("\n((?:[0-9a-f]{2} ){3}[0-9a-f]{2})\n(<Data>[^\n]*)\n");
    int count = 0;
    for (std::sregex_iterator at(document.begin(), document.end(), frame), end; at != end; ++at, ++count) {
        std::istringstream bytes((*at)[1]);
        std::size_t length = 0;
        std::size_t byte = 0;
        for (unsigned shift = 0; bytes >> std::hex >> byte; shift += 8) {
            length |= byte << shift;
        }
        EXPECT_EQ(length, (*at)[2].str().size()) << (*at)[2];
    }
    EXPECT_GT(count, 0);
}

}  // namespace
