// SPDX-License-Identifier: Apache-2.0
// Values, optionals, lists and records in containers: in the documents of CXmlData and in a container of
// another make, which must give the same results.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <locale>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/apigen/Encoders.h"
#include "tests/Sanitized.h"
#include "tests/apigen/Thrown.h"

namespace apigen::test {
namespace {

/// The types of this file have their encoders from the header above.
template <class T>
std::true_type HasEncoders(const T*);

using DataPointer = std::shared_ptr<IData>;

/// A container with nothing behind it but a list of entries.
class CListData : public IData {
public:
    bool HasValue(const std::string& key) const override { return Find(key) != nullptr; }

    DataPointer CreateChild(const std::string& key) override {
        m_entries.push_back({key, std::make_shared<CListData>()});
        return m_entries.back().Node;
    }

    std::vector<DataPointer> GetChildren(const std::string& key) const override {
        std::vector<DataPointer> children;
        for (const auto& entry : m_entries) {
            if (entry.Key == key) children.push_back(entry.Node);
        }
        return children;
    }

    DataPointer GetChild(const std::string& key) const override { return Require(key); }

    bool HasString(const std::string& key) const override {
        const auto node = Find(key);
        return node != nullptr && node->m_entries.empty();
    }

    void SetString(const std::string& key, const std::string& value) override {
        auto node = Find(key);
        if (node == nullptr) {
            node = std::make_shared<CListData>();
            m_entries.push_back({key, node});
        }
        node->m_entries.clear();
        node->m_text = value;
        node->m_isText = true;
    }

    std::string GetString(const std::string& key) const override {
        const auto node = Require(key);
        if (!node->m_entries.empty()) throw ApiInternalError("children under " + key);
        return node->m_text;
    }

    /// The same content in a container of the library's own make.
    void CopyTo(IData& target) const {
        for (const auto& [key, node] : m_entries) {
            const auto child = target.CreateChild(key);
            if (node->m_entries.empty() && node->m_isText) {
                // The way to a second text under one key leads through a document.
                CXmlData& xml = dynamic_cast<CXmlData&>(*child);
                xml.Document().SetText(xml.Node(), node->m_text);
            } else {
                node->CopyTo(*child);
            }
        }
    }

    /// Takes the entries in another order, repeats some and adds unknown ones.
    void Disarrange(std::mt19937_64& random) {
        if (m_entries.empty()) return;
        std::shuffle(m_entries.begin(), m_entries.end(), random);
        if (random() % 2 == 0) {
            const auto entry = m_entries[random() % m_entries.size()];
            const auto at = static_cast<std::ptrdiff_t>(random() % (m_entries.size() + 1));
            m_entries.insert(m_entries.begin() + at, {entry.Key, std::make_shared<CListData>(*entry.Node)});
        }
        if (random() % 2 == 0) {
            const auto at = static_cast<std::ptrdiff_t>(random() % (m_entries.size() + 1));
            m_entries.insert(m_entries.begin() + at, {"Unknown", std::make_shared<CListData>()});
        }
        if (random() % 8 == 0) {
            m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(random() % m_entries.size()));
        }
        for (const auto& entry : m_entries) {
            if (entry.Node->m_isText && random() % 4 == 0)
                entry.Node->m_text = std::to_string(random() % 100);
            entry.Node->Disarrange(random);
        }
    }

private:
    struct SEntry {
        std::string Key;
        std::shared_ptr<CListData> Node;
    };

    std::shared_ptr<CListData> Find(const std::string& key) const {
        const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                        [&](const SEntry& entry) { return entry.Key == key; });
        return found == m_entries.end() ? nullptr : found->Node;
    }

    std::shared_ptr<CListData> Require(const std::string& key) const {
        auto node = Find(key);
        if (node == nullptr) throw ApiInternalError("nothing under " + key);
        return node;
    }

    std::vector<SEntry> m_entries;
    std::string m_text;
    bool m_isText = false;
};

DataPointer ToXml(const CListData& data) {
    auto xml = CXmlData::CreateNew();
    data.CopyTo(*xml);
    return xml;
}

enum class EColour : int {
    None = 0,
    Red = 1
};

struct SInner {
    std::string Name;
    int Count = 0;
    Optional<std::string> Note;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Name", &SInner::Name);
        field("Count", &SInner::Count);
        field("Note", &SInner::Note);
    }
};

bool operator==(const SInner& left, const SInner& right) {
    return left.Name == right.Name && left.Count == right.Count && left.Note == right.Note;
}

/// A field of every kind.
struct SOuter {
    bool Flag = false;
    EColour Colour{};
    long Size = 0;
    unsigned short Port = 0;
    unsigned int Mask = 0;
    unsigned long Bytes = 0;
    Guid Id;
    SInner Inner;
    std::vector<std::string> Words;
    std::vector<SInner> Parts;
    Optional<SInner> Extra;
    Optional<Guid> Owner;
    Optional<bool> Maybe;
    std::string Last;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Flag", &SOuter::Flag);
        field("Colour", &SOuter::Colour);
        field("Size", &SOuter::Size);
        field("Port", &SOuter::Port);
        field("Mask", &SOuter::Mask);
        field("Bytes", &SOuter::Bytes);
        field("Id", &SOuter::Id);
        field("Inner", &SOuter::Inner);
        field("Words", &SOuter::Words);
        field("Parts", &SOuter::Parts);
        field("Extra", &SOuter::Extra);
        field("Owner", &SOuter::Owner);
        field("Maybe", &SOuter::Maybe);
        field("Last", &SOuter::Last);
    }
};

bool operator==(const SOuter& left, const SOuter& right) {
    bool isEqual = true;
    SOuter::Fields(
        [&](const FieldInfo&, auto member) { isEqual = isEqual && left.*member == right.*member; });
    return isEqual;
}

/// The document that `write` makes, without its root; the same whatever kind of container it is given.
template <class Write>
std::string Written(Write&& write) {
    const auto xml = CXmlData::CreateNew();
    CListData list;
    write(*xml);
    write(list);
    std::string text = CXmlData::Serialize(*xml);
    EXPECT_EQ(CXmlData::Serialize(*ToXml(list)), text);
    return text == "<Data/>" ? "" : text.substr(6, text.size() - 13);
}

template <class T>
std::string WrittenValue(const T& value) {
    return Written([&](IData& data) { Serialize(data, "k", value); });
}

/// What the text under "k" reads as, into a target that holds `before`.
template <class T>
T ReadText(const std::string& text, T before) {
    T other = before;
    CListData list;
    list.SetString("k", text);
    Deserialize(list, "k", other);
    T value = before;
    Deserialize(*ToXml(list), "k", value);
    EXPECT_EQ(value, other) << text;
    return value;
}

template <class T>
void ExpectBothWays(const T& value, const std::string& content) {
    EXPECT_EQ(WrittenValue(value), content);
    T again{};
    Deserialize(*CXmlData::Unserialize("<Data>" + content + "</Data>"), "k", again);
    EXPECT_EQ(again, value);
}

TEST(Encoders, WriteEveryPrimitiveAsItsText) {
    ExpectBothWays(std::string(" a<b "), "<k> a&lt;b </k>");
    ExpectBothWays(std::string(), "<k></k>");
    ExpectBothWays(true, "<k>true</k>");
    ExpectBothWays(false, "<k>false</k>");
    ExpectBothWays(-17, "<k>-17</k>");
    ExpectBothWays(std::numeric_limits<int>::min(), "<k>-2147483648</k>");
    ExpectBothWays(std::numeric_limits<int>::max(), "<k>2147483647</k>");
    ExpectBothWays(std::numeric_limits<long>::min(), "<k>-9223372036854775808</k>");
    ExpectBothWays(std::numeric_limits<long>::max(), "<k>9223372036854775807</k>");
    ExpectBothWays(static_cast<unsigned short>(0), "<k>0</k>");
    ExpectBothWays(static_cast<unsigned short>(65535), "<k>65535</k>");
    ExpectBothWays(4294967295U, "<k>4294967295</k>");
    ExpectBothWays(18446744073709551615UL, "<k>18446744073709551615</k>");
    ExpectBothWays(EColour::Red, "<k>1</k>");
    ExpectBothWays(static_cast<EColour>(-5), "<k>-5</k>");
    ExpectBothWays(Guid{0x0123ABCD, 0x4, 0xF00D, {1, 2, 3, 4, 5, 6, 7, 8}},
                   "<k>{0123abcd-0004-f00d-0102-030405060708}</k>");
    ExpectBothWays(Handle{0}, "<k>0</k>");
    ExpectBothWays(Handle{18446744073709551615UL}, "<k>18446744073709551615</k>");
}

TEST(Encoders, ReplaceThePrimitiveThatStandsThere) {
    EXPECT_EQ(Written([](IData& data) {
                  Serialize(data, "k", 1);
                  Serialize(data, "x", std::string("y"));
                  Serialize(data, "k", 2);
              }),
              "<k>2</k><x>y</x>");
}

TEST(Encoders, ReadExactlyThreeTextsAsTrue) {
    for (const std::string text : {"true", "True", "1"}) {
        EXPECT_TRUE(ReadText(text, false)) << text;
    }
    for (const std::string text : {"", "TRUE", "yes", "0", " true", "true ", "false", "False", "tru", "truee",
                                   "1 ", "01", "11", "2", "on"}) {
        EXPECT_FALSE(ReadText(text, true)) << text;
    }
    EXPECT_FALSE(ReadText(std::string("true\0", 5), true));
}

TEST(Encoders, ReadATextWithoutANumberAsZeroWhateverTheTargetHeld) {
    for (const std::string text : {"", " ", "xyz", "-", "+", "--1", ".5", "\xFF"}) {
        EXPECT_EQ(ReadText(text, 7), 0) << text;
        EXPECT_EQ(ReadText(text, 7L), 0L) << text;
        EXPECT_EQ(ReadText(text, static_cast<unsigned short>(7)), 0) << text;
        EXPECT_EQ(ReadText(text, 7U), 0U) << text;
        EXPECT_EQ(ReadText(text, 7UL), 0UL) << text;
        EXPECT_EQ(ReadText(text, EColour::Red), EColour::None) << text;
        EXPECT_EQ(ReadText(text, Handle{7}), Handle{}) << text;
        EXPECT_EQ(ReadText(text, Guid{1, 2, 3, {}}), Guid{}) << text;
    }
}

TEST(Encoders, ReadTheBeginningOfAnOddNumberText) {
    EXPECT_EQ(ReadText("12abc", 0), 12);
    EXPECT_EQ(ReadText("42 ", 0), 42);
    EXPECT_EQ(ReadText(" \t\n7", 0), 7);
    EXPECT_EQ(ReadText("99999999999", 0), 2147483647);
    EXPECT_EQ(ReadText("-99999999999", 0L), -99999999999L);
    EXPECT_EQ(ReadText("65536", static_cast<unsigned short>(0)), 65535);
    EXPECT_EQ(ReadText("3abc", EColour::None), static_cast<EColour>(3));
    EXPECT_EQ(ReadText(" 18446744073709551615x", Handle{}), Handle{18446744073709551615UL});
}

TEST(Encoders, TakeTheWholeTextOfAnElementApartFromItsMarkup) {
    int value = 0;
    Deserialize(*CXmlData::Unserialize("<Data><k>1<!-- -->2<![CDATA[3]]>&#52;</k></Data>"), "k", value);
    EXPECT_EQ(value, 1234);
}

TEST(Encoders, WriteNothingForAnEmptyOptional) {
    EXPECT_EQ(WrittenValue(Optional<std::string>()), "");
    EXPECT_EQ(WrittenValue(Optional<int>()), "");
    EXPECT_EQ(WrittenValue(Optional<SInner>()), "");
}

TEST(Encoders, WriteAPresentOptionalUnderOpt) {
    EXPECT_EQ(WrittenValue(Optional<std::string>("abc")), "<k><opt>abc</opt></k>");
    EXPECT_EQ(WrittenValue(Optional<std::string>("")), "<k><opt></opt></k>");
    EXPECT_EQ(WrittenValue(Optional<bool>(false)), "<k><opt>false</opt></k>");
    EXPECT_EQ(WrittenValue(Optional<Guid>(Guid{})),
              "<k><opt>{00000000-0000-0000-0000-000000000000}</opt></k>");
    EXPECT_EQ(WrittenValue(Optional<SInner>(SInner{"n", 2, {}})),
              "<k><opt><Name>n</Name><Count>2</Count></opt></k>");
}

TEST(Encoders, ReadAnOptional) {
    Optional<std::string> value;
    Deserialize(*CXmlData::Unserialize("<Data><k><opt>abc</opt></k></Data>"), "k", value);
    EXPECT_EQ(value.Value(), "abc");
    Deserialize(*CXmlData::Unserialize("<Data><other/></Data>"), "k", value);
    EXPECT_EQ(value.Value(), "abc") << "an absent key leaves the value";
    Deserialize(*CXmlData::Unserialize("<Data><k><opt/></k></Data>"), "k", value);
    EXPECT_EQ(value.Value(), "");

    CListData list;
    value = std::string("old");
    Deserialize(list, "k", value);
    EXPECT_EQ(value.Value(), "old");
    list.CreateChild("k")->SetString("opt", "new");
    Deserialize(list, "k", value);
    EXPECT_EQ(value.Value(), "new");
}

TEST(Encoders, ReadAnOptionalNumberFreshAndNotOnTopOfTheOldOne) {
    Optional<SInner> value(SInner{"old", 5, std::string("note")});
    Deserialize(*CXmlData::Unserialize("<Data><k><opt><Name>new</Name><Count>x</Count></opt></k></Data>"),
                "k", value);
    EXPECT_EQ(value.Value(), (SInner{"new", 0, {}}));
}

TEST(Encoders, RefuseAnOptionalWithoutItsPayloadAndLeaveTheValue) {
    Optional<std::string> value(std::string("old"));
    const auto data = CXmlData::Unserialize("<Data><k><other/></k></Data>");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { Deserialize(*data, "k", value); }), "k: no \"opt\"");
    EXPECT_EQ(value.Value(), "old");
}

TEST(Encoders, WriteOneNodeForEachElementOfAList) {
    const std::vector<std::string> words{"a", "", "c"};
    EXPECT_EQ(Written([&](IData& data) { SerializeVector(data, "IncludeDirs", words); }),
              "<IncludeDirs><item>a</item></IncludeDirs><IncludeDirs><item></item></IncludeDirs>"
              "<IncludeDirs><item>c</item></IncludeDirs>");
    EXPECT_EQ(Written([&](IData& data) { SerializeVector(data, "k", std::vector<std::string>()); }), "");
    EXPECT_EQ(Written([&](IData& data) {
                  SerializeVector(data, "k", std::vector<SInner>{{"n", 1, {}}});
              }),
              "<k><item><Name>n</Name><Count>1</Count></item></k>");
    EXPECT_EQ(Written([&](IData& data) {
                  SerializeVector(data, "k", std::vector<int>{-1, 2});
              }),
              "<k><item>-1</item></k><k><item>2</item></k>");
}

TEST(Encoders, AppendTheElementsOfAList) {
    const auto data = CXmlData::Unserialize("<Data><k><item>b</item></k><x/><k><item>c</item></k></Data>");
    std::vector<std::string> words{"a"};
    DeserializeVector(*data, "k", words);
    EXPECT_EQ(words, (std::vector<std::string>{"a", "b", "c"}));
    DeserializeVector(*data, "absent", words);
    EXPECT_EQ(words.size(), 3U);
}

TEST(Encoders, AppendTheHandlesOfAList) {
    const auto data = CXmlData::Unserialize(
        "<Data><__handle><item>18446744073709551615</item></__handle><__handle><item>0</item></__handle>"
        "<__handle><item> 12x</item></__handle><__handle><item>junk</item></__handle></Data>");
    std::vector<Handle> handles{Handle{1}};
    DeserializeVector(*data, "__handle", handles);
    EXPECT_EQ(handles, (std::vector<Handle>{Handle{1}, Handle{18446744073709551615UL}, Handle{0}, Handle{12},
                                            Handle{0}}));
}

TEST(Encoders, SayWhichElementOfAListIsBroken) {
    const auto data = CXmlData::Unserialize("<Data><k><item/></k><k><item/></k><k><other/></k></Data>");
    std::vector<std::string> words;
    EXPECT_EQ(Thrown<ApiInternalError>([&] { DeserializeVector(*data, "k", words); }), "k[2]: no \"item\"");
    std::vector<SInner> parts;
    EXPECT_EQ(Thrown<ApiInternalError>([&] { DeserializeVector(*data, "k", parts); }),
              "k[0]/item: no \"Name\"");
}

TEST(Encoders, ReadTheHandleOfAResponse) {
    const auto handle = [](const std::string& content) {
        return HandleUtils::FromData(CXmlData::Unserialize("<Data>" + content + "</Data>")).Value;
    };
    EXPECT_EQ(handle("<__handle>18446744073709551615</__handle>"), 18446744073709551615UL);
    EXPECT_EQ(handle("<__handle> 12x</__handle>"), 12U);
    EXPECT_EQ(handle("<__handle>junk</__handle>"), 0U);
    EXPECT_EQ(handle("<__handle/>"), 0U);
    EXPECT_EQ(handle("<__handle>1</__handle><__handle>2</__handle>"), 1U);
    EXPECT_EQ(Thrown<ApiInternalError>([&] { handle(""); }), "top level: no \"__handle\"");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { handle("<__handle><item>1</item></__handle>"); }),
              "__handle: holds child entries where a text was expected");
}

const std::string OuterText =
    "<k><Flag>true</Flag><Colour>1</Colour><Size>-2</Size><Port>3</Port><Mask>4</Mask><Bytes>5</Bytes>"
    "<Id>{00000006-0000-0000-0000-000000000000}</Id><Inner><Name>in</Name><Count>7</Count>"
    "<Note><opt>n</opt></Note></Inner><Words><item>w</item></Words><Words><item>x</item></Words>"
    "<Parts><item><Name>p</Name><Count>8</Count></item></Parts>"
    "<Extra><opt><Name>e</Name><Count>9</Count></opt></Extra>"
    "<Owner><opt>{0000000a-0000-0000-0000-000000000000}</opt></Owner><Maybe><opt>false</opt></Maybe>"
    "<Last>z</Last></k>";

SOuter OuterValue() {
    SOuter value;
    value.Flag = true;
    value.Colour = EColour::Red;
    value.Size = -2;
    value.Port = 3;
    value.Mask = 4;
    value.Bytes = 5;
    value.Id.Data1 = 6;
    value.Inner = {"in", 7, std::string("n")};
    value.Words = {"w", "x"};
    value.Parts = {{"p", 8, {}}};
    value.Extra = SInner{"e", 9, {}};
    value.Owner = Guid{10, 0, 0, {}};
    value.Maybe = false;
    value.Last = "z";
    return value;
}

TEST(Records, AreWrittenInTheOrderOfTheirFieldsAndReadBack) {
    ExpectBothWays(OuterValue(), OuterText);
    ExpectBothWays(SInner{}, "<k><Name></Name><Count>0</Count></k>");
}

TEST(Records, AreAlwaysAppended) {
    EXPECT_EQ(Written([](IData& data) {
                  Serialize(data, "k", SInner{"a", 1, {}});
                  Serialize(data, "k", SInner{"b", 2, {}});
              }),
              "<k><Name>a</Name><Count>1</Count></k><k><Name>b</Name><Count>2</Count></k>");
}

TEST(Records, AreReadFromEntriesInAnyOrderAmongOthers) {
    const auto data = CXmlData::Unserialize(
        "<Data><k><Unknown><Name>no</Name></Unknown><Note><opt>n</opt></Note>between<Count>7</Count><x/>"
        "<Name>in</Name></k></Data>");
    SInner value;
    Deserialize(*data, "k", value);
    EXPECT_EQ(value, (SInner{"in", 7, std::string("n")}));
}

TEST(Records, AreReadFromTheFirstEntryUnderEachKey) {
    for (const std::string content : {"<Name>1</Name><Count>1</Count><Name>2</Name><Count>2</Count>",
                                      "<Name>1</Name><Name>2</Name><Count>1</Count><Count>2</Count>",
                                      "<Count>1</Count><Count>2</Count><Name>1</Name><Name>2</Name>",
                                      "<Count>1</Count><Name>1</Name><Count>2</Count><Name>2</Name>",
                                      "<x/><Name>1</Name><Count>1</Count><Count>2</Count><Name>2</Name>"}) {
        SInner value;
        Deserialize(*CXmlData::Unserialize("<Data><k>" + content + "</k><k/></Data>"), "k", value);
        EXPECT_EQ(value, (SInner{"1", 1, {}})) << content;
    }
}

TEST(Records, WithAMissingFieldSayWhereItIsMissing) {
    const auto message = [](const std::string& content) {
        const auto data = CXmlData::Unserialize("<Data>" + content + "</Data>");
        SOuter value;
        return Thrown<ApiInternalError>([&] { Deserialize(*data, "k", value); });
    };
    const auto without = [](std::string text, const std::string& part) {
        const auto at = text.find(part);
        EXPECT_NE(at, std::string::npos) << part;
        return text.erase(at, part.size());
    };
    EXPECT_EQ(message(""), "top level: no \"k\"");
    EXPECT_EQ(message("<k/>"), "k: no \"Flag\"");
    EXPECT_EQ(message(without(OuterText, "<Last>z</Last>")), "k: no \"Last\"");
    EXPECT_EQ(message(without(OuterText, "<Count>7</Count>")), "k/Inner: no \"Count\"");
    EXPECT_EQ(message(without(OuterText, "<Count>8</Count>")), "k/Parts/item: no \"Count\"");
    EXPECT_EQ(message(without(OuterText, "<Name>e</Name>")), "k/Extra/opt: no \"Name\"");
    EXPECT_EQ(message(without(OuterText, "<item>x</item>")), "k/Words[1]: no \"item\"");
}

TEST(Records, WithANodeInPlaceOfATextAreRefused) {
    const auto data = CXmlData::Unserialize("<Data><k><Name><opt>x</opt></Name><Count>1</Count></k></Data>");
    SInner value;
    EXPECT_EQ(Thrown<ApiInternalError>([&] { Deserialize(*data, "k", value); }),
              "k/Name: holds child entries where a text was expected");
}

/// The record that is read, or that it can't be.
std::pair<bool, SOuter> TryRead(const IData& data) {
    SOuter value;
    try {
        Deserialize(data, "k", value);
    } catch (const ApiInternalError&) {
        return {false, {}};
    }
    return {true, value};
}

TEST(Records, AreReadAlikeFromEveryKindOfContainer) {
    std::mt19937_64 random(12);
    int readable = 0;
    constexpr int Count = tests::Tries(5000);
    for (int i = 0; i < Count; ++i) {
        CListData list;
        Serialize(list, "k", OuterValue());
        list.Disarrange(random);
        const auto xml = ToXml(list);
        const auto again = CXmlData::Unserialize(CXmlData::Serialize(*xml));
        const auto expected = TryRead(list);
        ASSERT_EQ(TryRead(*xml), expected) << CXmlData::Serialize(*xml);
        ASSERT_EQ(TryRead(*again), expected) << CXmlData::Serialize(*xml);
        readable += expected.first ? 1 : 0;
    }
    EXPECT_GT(readable, Count / 10);
    EXPECT_LT(readable, Count / 10 * 9);
}

/// Nothing in it needs an entity.
SOuter PlainOuterValue() {
    SOuter value = OuterValue();
    value.Inner.Name =
        "K\xC3\xB6ln \xE2\x82\xAC \xF0\x9F\x98\x80\ta line\nanother, longer than a vector of bytes";
    value.Words = {"x", "", "y z"};
    value.Last = "'z'\"\x7F";
    return value;
}

template <class T>
std::string DocumentOf(const T& value) {
    const auto data = CXmlData::CreateNew();
    Serialize(*data, "k", value);
    return CXmlData::Serialize(*data);
}

template <class T>
bool IsReadAsWritten(const std::string& text) {
    T value{};
    return DeserializeText(text, "k", value);
}

TEST(RecordTexts, ThatAWriterMadeNeedNoDocument) {
    for (const SOuter& value : {SOuter{}, PlainOuterValue()}) {
        SOuter again;
        EXPECT_TRUE(DeserializeText(DocumentOf(value), "k", again));
        EXPECT_EQ(again, value);
    }
}

TEST(RecordTexts, OfAnotherMakeAreReadFromADocument) {
    const std::string inside = "<Name>a</Name><Count>1</Count><Note><opt>n</opt></Note>";
    ASSERT_TRUE(IsReadAsWritten<SInner>("<Data><k>" + inside + "</k></Data>"));
    const SInner expected{"a", 1, std::string("n")};
    for (const std::string& text : std::vector<std::string>{
             "<?xml version='1.0'?><Data><k>" + inside + "</k></Data>", "<D><k>" + inside + "</k></D>",
             "\xEF\xBB\xBF<Data><k>" + inside + "</k></Data>", "<Data><k>" + inside + "</k></Data>\n",
             "<Data x=''><k>" + inside + "</k></Data>", "<Data><k >" + inside + "</k></Data>",
             "<Data><k>" + inside + "</k ></Data>", "<Data> <k>" + inside + "</k></Data>",
             "<Data><k>" + inside + " </k></Data>", "<Data><k>" + inside + "<x/></k></Data>",
             "<Data><k>" + inside + "</k><x/></Data>", "<Data><x/><k>" + inside + "</k></Data>",
             "<Data><k>" + inside + "<Name>b</Name></k></Data>",
             "<Data><k>" + inside + "</k><k>" + inside + "</k></Data>",
             std::string("<Data><k><Count>1</Count><Name>a</Name><Note><opt>n</opt></Note></k></Data>"),
             std::string("<Data><k><Name>&#97;</Name><Count>1</Count><Note><opt>n</opt></Note></k></Data>"),
             std::string(
                 "<Data><k><Name><![CDATA[a]]></Name><Count>1</Count><Note><opt>n</opt></Note></k></Data>"),
             std::string(
                 "<Data><k><Name encoding='base64'>YQ==</Name><Count>1</Count><Note><opt>n</opt></Note>"
                 "</k></Data>")}) {
        EXPECT_FALSE(IsReadAsWritten<SInner>(text)) << text;
        EXPECT_EQ(DeserializeDocument<SInner>(text, "k"), expected) << text;
    }
}

struct SSparse {
    Optional<std::string> Note;
    std::vector<std::string> Words;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Note", &SSparse::Note);
        field("Words", &SSparse::Words);
    }
};

TEST(RecordTexts, OfNothingNeedNoDocument) {
    const std::string text = DocumentOf(SSparse{});
    ASSERT_EQ(text, "<Data><k/></Data>");
    EXPECT_TRUE(IsReadAsWritten<SSparse>(text));
    EXPECT_TRUE(IsReadAsWritten<SSparse>("<Data><k></k></Data>"));
    EXPECT_TRUE(IsReadAsWritten<Optional<SSparse>>("<Data><k><opt/></k></Data>"));
    for (const std::string odd :
         {"<Data><k/", "<Data><k/></k></Data>", "<Data><k/><Note><opt>a</opt></Note></Data>"}) {
        EXPECT_FALSE(IsReadAsWritten<SSparse>(odd)) << odd;
    }
    EXPECT_FALSE(IsReadAsWritten<SInner>(text));
    EXPECT_THROW(DeserializeDocument<SInner>(text, "k"), ApiInternalError);
}

TEST(RecordTexts, WithEscapesNeedNoDocumentEither) {
    const SInner value{"<a> & \"b\"\r\n\xC3\xB6 ]]>&amp;", 1, std::string("&&")};
    SInner again;
    EXPECT_TRUE(DeserializeText(DocumentOf(value), "k", again));
    EXPECT_EQ(again, value);
}

TEST(RecordTexts, WithEscapesOfAnotherMakeAreLeftToADocument) {
    const auto text = [](const std::string& name) {
        return "<Data><k><Name>" + name + "</Name><Count>1</Count></k></Data>";
    };
    ASSERT_TRUE(IsReadAsWritten<SInner>(text("a&amp;b")));
    for (const std::string name : {"a&#38;b", "a&#x26;b", "a<![CDATA[&]]>b", "a&amp;<!---->b"}) {
        EXPECT_FALSE(IsReadAsWritten<SInner>(text(name))) << name;
        EXPECT_EQ(DeserializeDocument<SInner>(text(name), "k"), (SInner{"a&b", 1, {}})) << name;
    }
    for (const std::string name :
         {"a&b", "a&amp", "a&ampb;", "&", "&;", "&amp;&", "&amp;\x01", "&amp;\xFF", "&amp;<"}) {
        EXPECT_FALSE(IsReadAsWritten<SInner>(text(name))) << name;
        EXPECT_THROW(DeserializeDocument<SInner>(text(name), "k"), ApiInternalError) << name;
    }
}

TEST(RecordTexts, OddNumbersMeanWhatTheyMeanInADocument) {
    const std::string text = "<Data><k><Name></Name><Count> 12abc</Count></k></Data>";
    EXPECT_TRUE(IsReadAsWritten<SInner>(text));
    EXPECT_EQ(DeserializeDocument<SInner>(text, "k"), (SInner{"", 12, {}}));
}

/// The record that `read` gives, or why it gives none.
template <class Read>
std::pair<SOuter, std::string> Outcome(Read&& read) {
    try {
        return {read(), ""};
    } catch (const BrokenMessageError& error) {
        return {{}, std::string("broken: ") + error.what()};
    } catch (const ApiInternalError& error) {
        return {{}, error.what()};
    }
}

void ExpectSameAsADocument(const std::string& text) {
    const auto expected = Outcome([&] {
        SOuter value;
        Deserialize(*CXmlData::Unserialize(text), "k", value);
        return value;
    });
    ASSERT_EQ(Outcome([&] { return DeserializeDocument<SOuter>(text, "k"); }), expected) << text;
}

TEST(RecordTexts, CutAnywhereAreRefusedAsDocumentsAre) {
    const std::string text = DocumentOf(PlainOuterValue());
    for (std::size_t size = 0; size < text.size(); ++size) {
        EXPECT_FALSE(IsReadAsWritten<SOuter>(text.substr(0, size)));
        ExpectSameAsADocument(text.substr(0, size));
    }
}

TEST(RecordTexts, MeanWhatTheirDocumentsMeanHoweverTheyAreMaimed) {
    const std::string_view oddities[] = {"<x/>",
                                         "<x>",
                                         "</k>",
                                         " ",
                                         "&lt;",
                                         "&",
                                         "<",
                                         ">",
                                         "]]>",
                                         "\r",
                                         "\xFF",
                                         "\xC3\xA9",
                                         "\xC3",
                                         std::string_view("\0", 1),
                                         "\x1F",
                                         "<!-- -->",
                                         "<![CDATA[a]]>",
                                         "<?p?>",
                                         "<!DOCTYPE x>",
                                         "<Note><opt>n</opt></Note>",
                                         "<Name>b</Name>",
                                         "<Words><item>w</item></Words>",
                                         "/",
                                         "7"};
    std::mt19937_64 random(13);
    const std::string whole = DocumentOf(PlainOuterValue());
    int known = 0;
    int readable = 0;
    constexpr int Count = tests::Tries(20000);
    for (int i = 0; i < Count; ++i) {
        std::string text = whole;
        const std::size_t at = random() % text.size();
        switch (random() % 4) {
            case 0:
                text.erase(at, 1 + random() % 20);
                break;
            case 1:
                text.insert(at, text.substr(random() % text.size(), random() % 40));
                break;
            case 2:
                text[at] = static_cast<char>(random());
                break;
            default:
                text.insert(at, oddities[random() % std::size(oddities)]);
        }
        ExpectSameAsADocument(text);
        known += IsReadAsWritten<SOuter>(text) ? 1 : 0;
        readable += Outcome([&] { return DeserializeDocument<SOuter>(text, "k"); }).second.empty() ? 1 : 0;
    }
    EXPECT_GT(known, Count / 20);
    EXPECT_GT(readable, known + Count / 100);
    EXPECT_LT(readable, Count / 4 * 3);
}

TEST(Encoders, IgnoreTheGlobalLocale) {
    class CPunct : public std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
        std::string do_truename() const override { return "wahr"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CPunct));
    const std::string text = WrittenValue(1234567);
    const std::string flag = WrittenValue(true);
    const int odd = ReadText("1.234", 0);
    const int plain = ReadText("+1234567", 0);
    const Guid guid = Guid::Deserialize("1.234-1-1-0102-030405060708");
    std::locale::global(before);
    EXPECT_EQ(text, "<k>1234567</k>");
    EXPECT_EQ(flag, "<k>true</k>");
    EXPECT_EQ(odd, 1);
    EXPECT_EQ(plain, 1234567);
    EXPECT_EQ(guid.Data1, 1U);
}

}  // namespace
}  // namespace apigen::test
