// SPDX-License-Identifier: Apache-2.0
// Our reader against expat and pugixml.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "tests/Sanitized.h"
#include "tests/apigen/XmlOracles.h"

namespace apigen::test {
namespace {

using Random = std::mt19937_64;

std::size_t Below(Random& random, std::size_t bound) {
    return random() % bound;
}

template <class List>
std::string Pick(Random& random, const List& list) {
    return std::string(list[Below(random, std::size(list))]);
}

/// Together, one of everything that a document may hold.
const std::string_view Samples[] = {
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding='UTF-8' standalone=\"yes\" ?>\r\n"
    "<!-- first - a comment -->\n<?tool some ? > data?><Any:root xmlns:a = 'u\"&lt;' b=\"\">"
    "<Name>a&amp;b&lt;&#x41;&#66;\r\n\r</Name><e/><e></e><e  x='1'\n/><Bin encoding=\"base64\">AAE=</Bin>"
    "<Mix>text<In><![CDATA[<&]]]]><![CDATA[>\r\n]]>tail</In>more &gt; text<!-- c --><?p?></Mix >"
    "<Text>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80<!--x-->\xED\x9F\xBF</Text>"
    "</Any:root\t> <!--end--><?last?>\n",
    "<?xml version='1.0'?><a b='&#98;&amp;' c=\"'\"><d>]] ]&gt;&#10;&#x10FFFF;</d><d> </d></a>",
    "<Data><k encoding='&#98;ase64'>YQ<!--x-->==</k><k encoding=\"base64\"/><k>\t\n</k></Data>",
};

const std::string_view Fragments[] = {
    "<",
    ">",
    "&",
    "</",
    "/>",
    "<!--",
    "-->",
    "--",
    "<![CDATA[",
    "]]>",
    "]]",
    "<?",
    "?>",
    "<?xml ",
    "<?xml",
    "&lt;",
    "&#0;",
    "&#xD;",
    "&#xD800;",
    "&bogus;",
    "&#65;",
    "&#X41;",
    "&#;",
    "&#x;",
    "&;",
    "=",
    "\"",
    "'",
    " ",
    "\r\n",
    "\r",
    "\n",
    "\t",
    ":",
    "<a>",
    "</a>",
    "<a/>",
    "<1>",
    "<\xC3\xA9>",
    "x='1'",
    " x='1'",
    " encoding=\"base64\"",
    "\xEF\xBB\xBF",
    "\xEF\xBF\xBE",
    "\xED\xA0\x80",
    "\xC0\x80",
    "\xF4\x90\x80\x80",
    "\xC3",
    "\x80",
    "<!DOCTYPE a>",
    "<!",
    "AAE=",
    "version='1.0'",
    "standalone='no'",
    "encoding='latin1'",
    "&#x10FFFF;",
    "&#x110000;",
    "&#xFFFE;",
    "\x7F",
    "\x01",
    "<a b='1' b='2'/>",
};

std::string Mutated(Random& random, std::string text) {
    for (std::size_t changes = 1 + Below(random, 2); changes != 0; --changes) {
        const std::size_t at = Below(random, text.size() + 1);
        const std::size_t length = std::min(text.size() - at, Below(random, 8));
        switch (Below(random, 5)) {
            case 0:
                text.erase(at, length);
                break;
            case 1:
                text.insert(at, Pick(random, Fragments));
                break;
            case 2:
                text.replace(at, length, Pick(random, Fragments));
                break;
            case 3:
                text.insert(at, text.substr(Below(random, text.size() + 1), Below(random, 20)));
                break;
            default:
                if (at != text.size()) text[at] = static_cast<char>(random());
        }
    }
    return text;
}

/// Well-formed documents, of every feature.
class CDocumentMaker {
public:
    explicit CDocumentMaker(Random& random) : m_random(random) {}

    std::string Make() {
        m_text.clear();
        if (Below(m_random, 4) == 0) m_text += "\xEF\xBB\xBF";
        if (Below(m_random, 3) == 0) m_text += Pick(m_random, Declarations);
        Misc();
        Element(Pick(m_random, RootNames), 0);
        Misc();
        return m_text;
    }

private:
    static constexpr std::string_view Declarations[] = {
        "<?xml version='1.0'?>", "<?xml version=\"1.0\" encoding=\"utf-8\"?>",
        "<?xml\tversion = '1.0'\nencoding='Utf-8' standalone='no' ?>"};
    static constexpr std::string_view RootNames[] = {"Data", "a:b", "x", ":"};
    static constexpr std::string_view Keys[] = {"a", "_", "Name", "k-1.x", "a"};
    static constexpr std::string_view Attributes[] = {" x='1'", " x=\"\"", "\ny = '&#10;>\"'",
                                                      " a:b='\xC3\xA9'"};
    static constexpr std::string_view Texts[] = {"text",
                                                 " ",
                                                 "\r\n",
                                                 "\r",
                                                 "&amp;",
                                                 "&quot;",
                                                 "&apos;",
                                                 "&#13;",
                                                 "&#x20AC;",
                                                 "]]",
                                                 "]",
                                                 ">",
                                                 "\xE2\x82\xAC",
                                                 "\xF0\x9F\x98\x80",
                                                 "<![CDATA[]]>",
                                                 "<![CDATA[&lt;<>\r\n\r]]>",
                                                 "\"",
                                                 "'",
                                                 "\x7F"};
    static constexpr std::string_view Miscellany[] = {"<!---->", "<!-- - < & -->", "<?p?>",
                                                      "<?p q ? >\xC3\xA9?>"};

    void Misc() {
        while (Below(m_random, 3) == 0) {
            m_text += Below(m_random, 2) == 0 ? "\n " : Pick(m_random, Miscellany);
        }
    }

    void Text() {
        for (std::size_t count = Below(m_random, 4); count != 0; --count) {
            std::string part = Pick(m_random, Texts);
            // Two of them must not make "]]>".
            if (part == ">" && !m_text.empty() && m_text.back() == ']') part = " ";
            m_text += part;
            if (Below(m_random, 6) == 0) m_text += Pick(m_random, Miscellany);
        }
    }

    void Element(const std::string& name, int depth) {
        m_text += "<" + name;
        if (Below(m_random, 3) == 0) m_text += Pick(m_random, Attributes);
        const std::size_t kind = Below(m_random, 6);
        if (kind == 0) {
            m_text += Below(m_random, 2) == 0 ? "/>" : " />";
            return;
        }
        if (kind == 1) {
            m_text += " encoding='base64'>" + Pick(m_random, Base64Texts);
        } else {
            m_text += ">";
            Text();
            for (std::size_t count = depth < 5 && kind > 2 ? Below(m_random, 5) : 0; count != 0; --count) {
                Element(Pick(m_random, Keys), depth + 1);
                if (Below(m_random, 4) == 0) Text();
            }
        }
        m_text += "</" + name + (Below(m_random, 5) == 0 ? " >" : ">");
    }

    static constexpr std::string_view Base64Texts[] = {
        "", "AAE=", "AA==", "YWJj", "/+8<!-- -->=", "&#65;A=="};

    Random& m_random;
    std::string m_text;
};

TEST(XmlReader, AgreesWithTheOraclesOnTheSamples) {
    for (const auto sample : Samples) {
        EXPECT_TRUE(ReadWhole(sample).IsAccepted) << ReadWhole(sample).Message;
        EXPECT_EQ(FindDisagreement(sample), "") << sample;
    }
}

TEST(XmlReader, AcceptsOrRefusesTheCorpusAsItsNamesSay) {
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(XML_CORPUS)) {
        std::ifstream stream(file.path(), std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        const std::string name = file.path().filename();
        EXPECT_EQ(ReadWhole(text).IsAccepted, name.substr(0, 2) == "y_") << name << ReadWhole(text).Message;
        EXPECT_EQ(FindDisagreement(text), "") << name;
        ++count;
    }
    EXPECT_GT(count, 10);
}

TEST(XmlReader, AgreesWithTheOraclesOnGeneratedDocuments) {
    Random random(1);
    for (int i = 0; i < tests::Tries(5000); ++i) {
        const std::string text = CDocumentMaker(random).Make();
        ASSERT_TRUE(ReadWhole(text).IsAccepted) << text << '\n' << ReadWhole(text).Message;
        ASSERT_EQ(FindDisagreement(text), "") << text;
    }
}

TEST(XmlReader, AgreesWithTheOraclesOnMutatedDocuments) {
    Random random(2);
    int accepted = 0;
    constexpr int Count = tests::Tries(30000);
    for (int i = 0; i < Count; ++i) {
        const std::string from = i % 2 == 0 ? Pick(random, Samples) : CDocumentMaker(random).Make();
        const std::string text = Mutated(random, from);
        ASSERT_EQ(FindDisagreement(text), "") << text;
        accepted += ReadWhole(text).IsAccepted ? 1 : 0;
    }
    // Mutations that always break the document, or never, would show little.
    EXPECT_GT(accepted, Count / 15);
    EXPECT_LT(accepted, Count / 15 * 14);
}

TEST(XmlReader, RefusesEveryBeginningOfADocument) {
    for (const auto sample : Samples) {
        const std::size_t end = sample.rfind("</");
        for (std::size_t length = 0; length <= end; ++length) {
            const SOutcome outcome = ReadWhole(sample.substr(0, length));
            ASSERT_FALSE(outcome.IsAccepted) << sample.substr(0, length);
            ASSERT_NE(outcome.Message.find(" at offset "), std::string::npos) << outcome.Message;
        }
    }
}

}  // namespace
}  // namespace apigen::test
