// SPDX-License-Identifier: Apache-2.0
// The text form of a container, by literal texts.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/apigen/Thrown.h"

namespace apigen::test {
namespace {

using namespace std::string_literals;

/// The text of the entry "k" in a document.
std::string TextOf(const std::string& document) {
    return CXmlData::Unserialize(document)->GetString("k");
}

/// The text of the entry written by `element`.
std::string Read(const std::string& element) {
    return TextOf("<Data>" + element + "</Data>");
}

/// How a text under "k" is written.
std::string Written(const std::string& text) {
    const auto data = CXmlData::CreateNew();
    data->SetString("k", text);
    const std::string document = CXmlData::Serialize(*data);
    EXPECT_EQ(document.substr(0, 6), "<Data>");
    EXPECT_EQ(document.substr(document.size() - 7), "</Data>");
    return document.substr(6, document.size() - 13);
}

/// Why a document is refused.
std::string Refusal(const std::string& document) {
    const std::string prefix = "Malformed document: ";
    const std::string message = Thrown<BrokenMessageError>([&] { CXmlData::Unserialize(document); });
    EXPECT_EQ(message.substr(0, prefix.size()), prefix) << document;
    return message.substr(std::min(prefix.size(), message.size()));
}

void ExpectBothWays(const std::string& text, const std::string& element) {
    EXPECT_EQ(Written(text), element);
    EXPECT_EQ(Read(element), text) << element;
}

TEST(TextForm, KeepsTextsByteForByte) {
    ExpectBothWays("text", "<k>text</k>");
    ExpectBothWays("", "<k></k>");
    ExpectBothWays(" ", "<k> </k>");
    ExpectBothWays(" \t\n lead and trail \n\t ", "<k> \t\n lead and trail \n\t </k>");
    ExpectBothWays("\"'", "<k>\"'</k>");
    ExpectBothWays("\x7F", "<k>\x7F</k>");
    ExpectBothWays("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "<k>\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80</k>");
    ExpectBothWays("\xC2\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD\xF4\x8F\xBF\xBF",
                   "<k>\xC2\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD\xF4\x8F\xBF\xBF</k>");
}

TEST(TextForm, WritesWhatMeansSomethingToXmlAsEntities) {
    ExpectBothWays("a&b", "<k>a&amp;b</k>");
    ExpectBothWays("<a>", "<k>&lt;a&gt;</k>");
    ExpectBothWays("]]>", "<k>]]&gt;</k>");
    ExpectBothWays("&amp;", "<k>&amp;amp;</k>");
    ExpectBothWays("a\r\nb\r", "<k>a&#13;\nb&#13;</k>");
    ExpectBothWays("\xC3\xA9<", "<k>\xC3\xA9&lt;</k>");
}

TEST(TextForm, WritesInBase64WhatXmlCannotCarry) {
    ExpectBothWays("\0\x01"s, "<k encoding=\"base64\">AAE=</k>");
    ExpectBothWays("caf\xE9", "<k encoding=\"base64\">Y2Fm6Q==</k>");
    ExpectBothWays("\0"s, "<k encoding=\"base64\">AA==</k>");
    ExpectBothWays("\xFF\xFE\xFD", "<k encoding=\"base64\">//79</k>");
    ExpectBothWays("\xFB\xEF\xBE<&>\r", "<k encoding=\"base64\">++++PCY+DQ==</k>");
    ExpectBothWays("\xEF\xBF\xBE", "<k encoding=\"base64\">77++</k>");          // U+FFFE
    ExpectBothWays("\xEF\xBF\xBF", "<k encoding=\"base64\">77+/</k>");          // U+FFFF
    ExpectBothWays("\xED\xA0\x80", "<k encoding=\"base64\">7aCA</k>");          // a surrogate
    ExpectBothWays("\xC0\x80", "<k encoding=\"base64\">wIA=</k>");              // not the shortest form
    ExpectBothWays("\xE2\x82", "<k encoding=\"base64\">4oI=</k>");              // cut short
    ExpectBothWays("\xF4\x90\x80\x80", "<k encoding=\"base64\">9JCAgA==</k>");  // beyond U+10FFFF
}

TEST(TextForm, EveryByteSurvives) {
    for (int c = 0; c < 256; ++c) {
        const std::string text(1, static_cast<char>(c));
        const std::string element = Written(text);
        EXPECT_EQ(Read(element), text) << element;
        const bool isCarried = (c >= 0x20 && c < 0x80) || c == '\t' || c == '\n' || c == '\r';
        EXPECT_EQ(element.find("base64") == std::string::npos, isCarried) << c;
    }
}

TEST(TextForm, RandomBytesSurviveAnywhereInATree) {
    std::mt19937_64 random(6);
    for (int i = 0; i < 3000; ++i) {
        std::string text(random() % 40, 'x');
        for (char& c : text) {
            if (random() % 4 == 0) c = static_cast<char>(random());
        }
        ASSERT_EQ(Read(Written(text)), text);
    }
}

TEST(TextForm, HasARootCalledDataAndNothingAroundOrBetween) {
    const auto data = CXmlData::CreateNew();
    data->SetString("Name", "eth0");
    const auto owner = data->CreateChild("owner");
    owner->SetString("Id", "7");
    owner->CreateChild("options");
    data->SetString("b", "");
    EXPECT_EQ(CXmlData::Serialize(*data),
              "<Data><Name>eth0</Name><owner><Id>7</Id><options/></owner><b></b></Data>");
}

TEST(TextForm, IsReadWithAnyRootName) {
    EXPECT_EQ(TextOf("<Response><k>1</k></Response>"), "1");
    EXPECT_EQ(TextOf("<soap:Envelope.x-1><k>1</k></soap:Envelope.x-1>"), "1");
    EXPECT_EQ(TextOf("<\xC3\xA9><k>1</k></\xC3\xA9>"), "1");
    EXPECT_EQ(TextOf("<k><k>1</k></k>"), "1");
    EXPECT_FALSE(CXmlData::Unserialize("<r/>")->HasValue("k"));
    EXPECT_FALSE(CXmlData::Unserialize("<r>ignored</r>")->HasValue("k"));
}

TEST(TextForm, IsReadWithADeclaration) {
    EXPECT_EQ(TextOf("<?xml version=\"1.0\"?><r><k>1</k></r>"), "1");
    EXPECT_EQ(TextOf("<?xml version='1.0' encoding='UTF-8'?><r><k>\xC3\xA9</k></r>"), "\xC3\xA9");
    EXPECT_EQ(TextOf("<?xml version='1.0' encoding=\"us-ascii\" standalone='yes' ?>\r\n<r><k>1</k></r>"),
              "1");
    EXPECT_EQ(TextOf("<?xml\tversion = '1.1'\nstandalone='no'?><r><k>1</k></r>"), "1");
}

TEST(TextForm, RefusesADeclarationThatIsWrong) {
    EXPECT_EQ(Refusal("<?xml version='2.0'?><r/>"), "an XML version other than 1.0 at offset 6");
    EXPECT_EQ(Refusal("<?xml version='1.'?><r/>"), "an XML version other than 1.0 at offset 6");
    EXPECT_EQ(Refusal("<?xml version='1.0' encoding='ISO-8859-1'?><r/>"),
              "a character set other than UTF-8 at offset 20");
    EXPECT_EQ(Refusal("<?xml version='1.0' encoding='UTF-16'?><r/>"),
              "a character set other than UTF-8 at offset 20");
    EXPECT_EQ(Refusal("<?xml encoding='UTF-8'?><r/>"), "an invalid XML declaration at offset 6");
    EXPECT_EQ(Refusal("<?xml version='1.0' standalone='maybe'?><r/>"),
              "an invalid XML declaration at offset 20");
    EXPECT_EQ(Refusal("<?xml version='1.0' standalone='no' encoding='utf-8'?><r/>"),
              "an invalid XML declaration at offset 36");
    EXPECT_EQ(Refusal("<?xml version='1.0' version='1.0'?><r/>"), "an invalid XML declaration at offset 20");
    EXPECT_EQ(Refusal("<?xml version='1.0'encoding='utf-8'?><r/>"), "white space was expected at offset 19");
    EXPECT_EQ(Refusal("<?xml version='&#49;.0'?><r/>"), "a reference in the XML declaration at offset 6");
    EXPECT_EQ(Refusal("<?xml version='1.0'><r/>"), "white space was expected at offset 19");
    EXPECT_EQ(Refusal("<?xml ?><r/>"), "an invalid XML declaration at offset 0");
    EXPECT_EQ(Refusal("<?xml?><r/>"), "an XML declaration that is not at the start at offset 0");
    EXPECT_EQ(Refusal(" <?xml version='1.0'?><r/>"),
              "an XML declaration that is not at the start at offset 1");
    EXPECT_EQ(Refusal("<r><?xml version='1.0'?></r>"),
              "an XML declaration that is not at the start at offset 3");
    EXPECT_EQ(Refusal("<?XML version='1.0'?><r/>"),
              "an XML declaration that is not at the start at offset 0");
}

TEST(TextForm, IsReadWithAByteOrderMark) {
    EXPECT_EQ(TextOf("\xEF\xBB\xBF<r><k>1</k></r>"), "1");
    EXPECT_EQ(TextOf("\xEF\xBB\xBF<?xml version='1.0'?><r><k>1</k></r>"), "1");
    EXPECT_EQ(TextOf("<r><k>\xEF\xBB\xBF</k></r>"), "\xEF\xBB\xBF");
    EXPECT_EQ(Refusal("\xEF\xBB\xBF\xEF\xBB\xBF<r/>"), "text outside the root element at offset 3");
    EXPECT_EQ(Refusal("<r/>\xEF\xBB\xBF"), "text outside the root element at offset 4");
    EXPECT_EQ(Refusal("\xFF\xFE<\0r\0/\0>\0"s), "text outside the root element at offset 0");
    EXPECT_EQ(Refusal("\0<\0r\0/\0>"s), "text outside the root element at offset 0");
}

TEST(TextForm, SkipsCommentsAndProcessingInstructions) {
    EXPECT_EQ(
        TextOf("<!-- a --><?p?>\n<r><!----><k>1<!-- - <k>&bogus; -->2<?p ?x? >?>3</k></r>\n<?q?><!--b-->"),
        "123");
    EXPECT_EQ(Refusal("<r><!-- a -- b --></r>"), "\"--\" in a comment at offset 10");
    EXPECT_EQ(Refusal("<r><!-- a ---></r>"), "\"--\" in a comment at offset 10");
    EXPECT_EQ(Refusal("<r><!--\x01--></r>"), "a byte that no document may hold at offset 7");
    EXPECT_EQ(Refusal("<r><?p \x01?></r>"), "a byte that no document may hold at offset 7");
    EXPECT_EQ(Refusal("<r><?\?></r>"), "a name was expected at offset 5");
    EXPECT_EQ(Refusal("<r><?p!?></r>"), "white space was expected at offset 6");
    EXPECT_EQ(Refusal("<r><!-x></r>"), "unknown markup at offset 3");
}

TEST(TextForm, ReadsCDataAsText) {
    EXPECT_EQ(Read("<k><![CDATA[<&>]]></k>"), "<&>");
    EXPECT_EQ(Read("<k>a<![CDATA[]]>b<![CDATA[&lt;]]]]><![CDATA[>]]>c</k>"), "ab&lt;]]>c");
    EXPECT_EQ(Read("<k><![CDATA[ \r\n\r ]]></k>"), " \n\n ");
    EXPECT_EQ(Refusal("<![CDATA[x]]><r/>"), "a CDATA section outside the root element at offset 0");
    EXPECT_EQ(Refusal("<r/><![CDATA[]]>"), "a CDATA section outside the root element at offset 4");
    EXPECT_EQ(Refusal("<r><![CDATA[\xC3]]></r>"), "a byte that no document may hold at offset 12");
    EXPECT_EQ(Refusal("<r><![cdata[x]]></r>"), "unknown markup at offset 3");
    EXPECT_EQ(Refusal("<r>a]]>b</r>"), "\"]]>\" in a text at offset 6");
}

TEST(TextForm, ReadsLineEndsAsXmlSays) {
    EXPECT_EQ(Read("<k>a\r\nb\rc\n\r\n\rd</k>"), "a\nb\nc\n\n\nd");
    EXPECT_EQ(Read("<k>\r</k>"), "\n");
    EXPECT_EQ(Read("<k>\r<!---->\n</k>"), "\n\n");
    EXPECT_EQ(Read("<k>&#13;&#10;\r&#10;</k>"), "\r\n\n\n");
}

TEST(TextForm, IgnoresAttributesOtherThanEncoding) {
    EXPECT_EQ(TextOf("<r xmlns='u' xmlns:x=\"v\"><k a='1' x:b = \"&lt;>'\" Encoding='base64'>AAE=</k></r>"),
              "AAE=");
    EXPECT_EQ(Read("<k\n\ta='1'\r\n>x</k\n>"), "x");
}

TEST(TextForm, RefusesAttributesThatAreWrong) {
    EXPECT_EQ(Refusal("<r a='1' a='2'/>"), "an attribute given twice at offset 9");
    EXPECT_EQ(Refusal("<r b='' a='1' c='' a=''/>"), "an attribute given twice at offset 19");
    EXPECT_EQ(Refusal("<r a/>"), "an attribute without a value at offset 4");
    EXPECT_EQ(Refusal("<r a=1/>"), "an attribute value without quotes at offset 5");
    EXPECT_EQ(Refusal("<r a='<'/>"), "a \"<\" in an attribute value at offset 6");
    EXPECT_EQ(Refusal("<r a='&'/>"), "an \"&\" that begins no reference at offset 6");
    EXPECT_EQ(Refusal("<r a='&nbsp;'/>"), "an unknown entity at offset 6");
    EXPECT_EQ(Refusal("<r a='\x02'/>"), "a byte that no document may hold at offset 6");
    EXPECT_EQ(Refusal("<r a=''b=''/>"), "white space was expected at offset 7");
    EXPECT_EQ(Refusal("<r 1=''/>"), "a name was expected at offset 3");
    EXPECT_EQ(Refusal("<r / >"), "\">\" was expected at offset 4");
    EXPECT_EQ(Refusal("<r a='1"), "unexpected end of the text at offset 7");
}

TEST(TextForm, ReadsBase64) {
    EXPECT_EQ(Read("<k encoding='base64'>AAE=</k>"), "\0\x01"s);
    EXPECT_EQ(Read("<k encoding='base64'></k>"), "");
    EXPECT_EQ(Read("<k encoding='base64'/>"), "");
    EXPECT_EQ(Read("<k encoding='base64'>Y<!-- -->W<![CDATA[Jj]]></k>"), "abc");
    EXPECT_EQ(Read("<k encoding='base64'>&#89;WJj</k>"), "abc");
}

TEST(TextForm, RefusesBase64ThatIsNotValid) {
    for (const std::string text :
         {"A", "AA", "AAE", "AAE==", "=", "====", "A===", "AA=A", "AAE=AAE=", "AAE=\n",
          " AAE=", "AA E=", "AA-_", "AB==", "AAF=", "AAE", "\xC3\xA9\xC3\xA9", "AAE=="}) {
        EXPECT_EQ(Refusal("<r><k encoding='base64'>" + text + "</k></r>"),
                  "an invalid base64 text at offset 24")
            << text;
    }
}

TEST(TextForm, RefusesAnyOtherEncoding) {
    EXPECT_EQ(Refusal("<r><k encoding='hex'>00</k></r>"), "an encoding other than base64 at offset 6");
    EXPECT_EQ(Refusal("<r><k encoding=''>00</k></r>"), "an encoding other than base64 at offset 6");
    EXPECT_EQ(Refusal("<r><k encoding='BASE64'>AAE=</k></r>"), "an encoding other than base64 at offset 6");
    EXPECT_EQ(Refusal("<r encoding='UTF-8'/>"), "an encoding other than base64 at offset 3");
}

TEST(TextForm, IgnoresTextBetweenChildElements) {
    const auto data = CXmlData::Unserialize("<r> a <k>1</k> b &amp; <![CDATA[c]]>\r\n<n>x<m/>y</n></r>");
    EXPECT_EQ(CXmlData::Serialize(*data), "<Data><k>1</k><n><m/></n></Data>");
    EXPECT_EQ(Refusal("<r><k/>&bogus;</r>"), "an unknown entity at offset 7");
}

TEST(TextForm, ReadsTheKnownEntitiesAndCharacterReferences) {
    EXPECT_EQ(Read("<k>&lt;&gt;&amp;&quot;&apos;</k>"), "<>&\"'");
    EXPECT_EQ(Read("<k>&#65;&#x41;&#x0041;&#00065;&#9;&#xA;</k>"), "AAAA\t\n");
    EXPECT_EQ(Read("<k>&#233;&#x20AC;&#x20ac;&#x1F600;&#x10FFFF;</k>"),
              "\xC3\xA9\xE2\x82\xAC\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(Read("<k>&#38;lt;</k>"), "&lt;");
}

TEST(TextForm, RefusesUnknownEntitiesAndReferencesToNoCharacter) {
    for (const std::string entity : {"nbsp", "LT", "lt ", "", "a b", "#"}) {
        EXPECT_EQ(Refusal("<r>&" + entity + ";</r>"), "an unknown entity at offset 3") << entity;
    }
    for (const std::string entity :
         {"#0", "#8", "#x1F", "#xD800", "#xDFFF", "#xFFFE", "#xFFFF", "#x110000", "#99999999999999999999",
          "#x", "#X41", "#-1", "#1 ", "#xG", "#A", "#4294967361"}) {
        EXPECT_EQ(Refusal("<r>&" + entity + ";</r>"), "a reference to no character at offset 3") << entity;
    }
    EXPECT_EQ(Refusal("<r>a & b</r>"), "an \"&\" that begins no reference at offset 5");
    EXPECT_EQ(Refusal("<r>&lt</r>"), "an \"&\" that begins no reference at offset 3");
}

TEST(TextForm, RefusesADocumentType) {
    EXPECT_EQ(Refusal("<!DOCTYPE r><r/>"), "a document type declaration is not accepted at offset 0");
    EXPECT_EQ(Refusal("<?xml version='1.0'?>\n<!DOCTYPE r [<!ENTITY a 'b'>]><r>&a;</r>"),
              "a document type declaration is not accepted at offset 22");
}

TEST(TextForm, RefusesBytesThatAreNoUtf8AndCharactersThatXmlForbids) {
    for (const std::string& bytes : {"\x80"s,
                                     "\xC3"s,
                                     "\xC3("s,
                                     "\xC0\xAF"s,
                                     "\xC1\xBF"s,
                                     "\xE0\x80\x80"s,
                                     "\xE2\x82"s,
                                     "\xED\xA0\x80"s,
                                     "\xEF\xBF\xBE"s,
                                     "\xEF\xBF\xBF"s,
                                     "\xF0\x80\x80\x80"s,
                                     "\xF4\x90\x80\x80"s,
                                     "\xF5\x80\x80\x80"s,
                                     "\xFE"s,
                                     "\xFF"s,
                                     "\0"s,
                                     "\x01"s,
                                     "\x08"s,
                                     "\x0B"s,
                                     "\x0C"s,
                                     "\x0E"s,
                                     "\x1F"s}) {
        EXPECT_EQ(Refusal("<r><k>" + bytes + "</k></r>"), "a byte that no document may hold at offset 6");
        EXPECT_EQ(Refusal("<r><k a='" + bytes + "'/></r>"), "a byte that no document may hold at offset 9");
    }
}

TEST(TextForm, RefusesTagsThatDoNotMatch) {
    EXPECT_EQ(Refusal("<r><k></r></k>"), "an end tag that does not match <k> at offset 6");
    EXPECT_EQ(Refusal("<r><k></K></r>"), "an end tag that does not match <k> at offset 6");
    EXPECT_EQ(Refusal("<r></rr>"), "an end tag that does not match <r> at offset 3");
    EXPECT_EQ(Refusal("<root></r>"), "an end tag that does not match <root> at offset 6");
    EXPECT_EQ(Refusal("<r></ r>"), "an end tag that does not match <r> at offset 3");
    EXPECT_EQ(Refusal("<r></r a=''>"), "\">\" was expected at offset 7");
    EXPECT_EQ(Refusal("</r>"), "an end tag without its start tag at offset 0");
    EXPECT_EQ(Refusal("<r/></r>"), "an end tag without its start tag at offset 4");
    EXPECT_EQ(Refusal("< r/>"), "a name was expected at offset 1");
    EXPECT_EQ(Refusal("<>"), "a name was expected at offset 1");
}

TEST(TextForm, RefusesNotExactlyOneRoot) {
    EXPECT_EQ(Refusal("<r/><r/>"), "a second root element at offset 4");
    EXPECT_EQ(Refusal("<r></r>\n<s>"), "a second root element at offset 8");
    EXPECT_EQ(Refusal(""), "no root element at offset 0");
    EXPECT_EQ(Refusal(" \n"), "no root element at offset 2");
    EXPECT_EQ(Refusal("\xEF\xBB\xBF"), "no root element at offset 3");
    EXPECT_EQ(Refusal("<!-- only -->"), "no root element at offset 13");
    EXPECT_EQ(Refusal("text"), "text outside the root element at offset 0");
    EXPECT_EQ(Refusal(" x<r/>"), "text outside the root element at offset 1");
    EXPECT_EQ(Refusal("<r/> x"), "text outside the root element at offset 5");
    EXPECT_EQ(Refusal("&amp;<r/>"), "text outside the root element at offset 0");
    EXPECT_EQ(Refusal("<r>"), "unexpected end of the text at offset 3");
    EXPECT_EQ(Refusal("<r><k>1</k>"), "unexpected end of the text at offset 11");
}

TEST(TextForm, RefusesElementsWhoseNameIsNoKey) {
    EXPECT_EQ(Refusal("<r><a:b/></r>"), "an element whose name can't be a key at offset 3");
    EXPECT_EQ(Refusal("<r><\xC3\xA9/></r>"), "an element whose name can't be a key at offset 3");
    EXPECT_EQ(Refusal("<r><:/></r>"), "an element whose name can't be a key at offset 3");
}

TEST(TextForm, LeavesTheTextThatItReadsAlone) {
    const std::string text = "<r><k>&lt;\r\n</k></r>";
    const std::string copy = text;
    EXPECT_EQ(TextOf(text), "<\n");
    EXPECT_EQ(text, copy);
}

}  // namespace
}  // namespace apigen::test
