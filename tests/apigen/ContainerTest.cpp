// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/apigen/Thrown.h"

namespace apigen::test {
namespace {

using DataPointer = std::shared_ptr<IData>;

std::string TextForm(const DataPointer& data) {
    return CXmlData::Serialize(*data);
}

DataPointer Document(const std::string& text) {
    return CXmlData::Unserialize(text);
}

TEST(Container, IsEmptyWhenNew) {
    const auto data = CXmlData::CreateNew();
    EXPECT_EQ(TextForm(data), "<Data/>");
    EXPECT_FALSE(data->HasValue("a"));
    EXPECT_FALSE(data->HasString("a"));
    EXPECT_TRUE(data->GetChildren("a").empty());
}

TEST(Container, HasAValueForATextAndForANode) {
    const auto data = Document("<Data><text>x</text><node><in/></node><empty/></Data>");
    EXPECT_TRUE(data->HasValue("text"));
    EXPECT_TRUE(data->HasValue("node"));
    EXPECT_TRUE(data->HasValue("empty"));
    EXPECT_FALSE(data->HasValue("in"));
    EXPECT_FALSE(data->HasValue("Text"));
    EXPECT_FALSE(data->HasValue(""));
}

TEST(Container, HasAStringWhenTheFirstEntryIsAText) {
    const auto data =
        Document("<Data><a>x</a><b><in/></b><c>x</c><c><in/></c><d><in/></d><d>x</d><e/><f></f></Data>");
    EXPECT_TRUE(data->HasString("a"));
    EXPECT_FALSE(data->HasString("b"));
    EXPECT_TRUE(data->HasString("c"));
    EXPECT_FALSE(data->HasString("d"));
    EXPECT_TRUE(data->HasString("e"));
    EXPECT_TRUE(data->HasString("f"));
    EXPECT_FALSE(data->HasString("absent"));
}

TEST(Container, GivesTheFirstOfSeveralEntries) {
    const auto data = Document("<Data><a>1</a><b/><a>2</a><n><i>3</i></n><n><i>4</i></n></Data>");
    EXPECT_EQ(data->GetString("a"), "1");
    EXPECT_EQ(data->GetChild("n")->GetString("i"), "3");
}

TEST(Container, GivesAllEntriesOfAKeyInDocumentOrder) {
    const auto data = Document("<Data><a><i>1</i></a><b/><a><i>2</i></a><a><i>3</i></a></Data>");
    std::vector<std::string> found;
    for (const auto& child : data->GetChildren("a")) {
        found.push_back(child->GetString("i"));
    }
    EXPECT_EQ(found, (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(data->GetChildren("b").size(), 1U);
    EXPECT_TRUE(data->GetChildren("c").empty());
}

TEST(Container, ReplacesTheFirstTextOrAppendsAnEntry) {
    const auto data = Document("<Data><a>1</a><b>2</b><a>3</a></Data>");
    data->SetString("a", "new");
    data->SetString("c", "4");
    EXPECT_EQ(TextForm(data), "<Data><a>new</a><b>2</b><a>3</a><c>4</c></Data>");
}

TEST(Container, AlwaysAppendsANewChild) {
    const auto data = CXmlData::CreateNew();
    data->CreateChild("a")->SetString("x", "1");
    data->CreateChild("a");
    data->CreateChild("a")->SetString("x", "2");
    EXPECT_EQ(TextForm(data), "<Data><a><x>1</x></a><a/><a><x>2</x></a></Data>");
}

TEST(Container, TurnsAnEntryWithChildrenIntoATextWhenItsTextIsSet) {
    const auto data = Document("<Data><a><in>1</in></a><b/></Data>");
    const auto orphan = data->GetChild("a")->GetChild("in");
    data->SetString("a", "x");
    EXPECT_EQ(TextForm(data), "<Data><a>x</a><b/></Data>");
    EXPECT_FALSE(data->GetChild("a")->HasValue("in"));
    orphan->SetString("k", "out of the tree, but harmless");
    EXPECT_EQ(TextForm(data), "<Data><a>x</a><b/></Data>");
    data->GetChild("a")->SetString("again", "2");
    EXPECT_EQ(TextForm(data), "<Data><a><again>2</again></a><b/></Data>");
}

TEST(Container, DropsTheTextOfAnEntryThatGetsChildren) {
    const auto data = Document("<Data><a>x</a></Data>");
    data->GetChild("a")->CreateChild("in");
    EXPECT_EQ(TextForm(data), "<Data><a><in/></a></Data>");
    EXPECT_FALSE(data->HasString("a"));
    EXPECT_EQ(Thrown<ApiInternalError>([&] { data->GetString("a"); }),
              "a: holds child entries where a text was expected");
}

TEST(Container, WritesAnEmptyTextAndAnEmptyNodeDifferently) {
    const auto data = CXmlData::CreateNew();
    data->SetString("text", "");
    data->CreateChild("node");
    EXPECT_EQ(TextForm(data), "<Data><text></text><node/></Data>");
    EXPECT_EQ(TextForm(Document(TextForm(data))), TextForm(data));
}

TEST(Container, TakesAnElementWithoutChildrenAsATextAndAsAnEmptyNode) {
    const auto data = Document("<Data><a></a><b/><c>text</c></Data>");
    for (const char* const key : {"a", "b"}) {
        EXPECT_EQ(data->GetString(key), "") << key;
        EXPECT_FALSE(data->GetChild(key)->HasValue("x")) << key;
    }
    EXPECT_EQ(data->GetString("c"), "text");
    EXPECT_TRUE(data->GetChild("c")->GetChildren("x").empty());
}

TEST(Container, NodeKeepsItsDocumentAlive) {
    DataPointer node;
    {
        const auto data = Document("<Data><a><b><c>deep</c></b></a></Data>");
        node = data->GetChild("a")->GetChildren("b").front();
    }
    EXPECT_EQ(node->GetString("c"), "deep");
    node->CreateChild("d")->SetString("e", "grown");
    EXPECT_EQ(TextForm(node), "<Data><c>deep</c><d><e>grown</e></d></Data>");
}

TEST(Container, SaysWhereAnEntryIsMissing) {
    const auto data = Document(
        "<Data><config><Source><Objects/><Objects/><Objects><x/></Objects></Source></config><t>x</t></Data>");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { data->GetString("Name"); }), "top level: no \"Name\"");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { data->GetChild("Name"); }), "top level: no \"Name\"");
    const auto source = data->GetChild("config")->GetChild("Source");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { source->GetChild("Name"); }), "config/Source: no \"Name\"");
    const auto objects = source->GetChildren("Objects");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { objects[0]->GetString("item"); }),
              "config/Source/Objects[0]: no \"item\"");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { objects[2]->GetChild("x")->GetString("Object"); }),
              "config/Source/Objects[2]/x: no \"Object\"");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { data->GetChild("t")->GetString("a"); }), "t: no \"a\"");
}

TEST(Container, AcceptsEveryAsciiName) {
    for (const std::string& key :
         {std::string("a"), std::string("Z"), std::string("_"), std::string("__handle"),
          std::string("a-b.c_9"), "x" + std::string(1000, '-')}) {
        const auto data = CXmlData::CreateNew();
        data->SetString(key, "1");
        data->CreateChild(key)->SetString(key, "2");
        const auto again = Document(TextForm(data));
        EXPECT_EQ(again->GetString(key), "1") << key;
        EXPECT_EQ(again->GetChildren(key).at(1)->GetString(key), "2") << key;
    }
}

TEST(Container, RefusesEveryOtherKey) {
    using namespace std::string_literals;
    const auto data = CXmlData::CreateNew();
    for (const std::string& key :
         {""s, "1"s, "-a"s, ".a"s, "a b"s, " a"s, "a "s, "a:b"s, "\xC3\xA9"s, "a\xC3\xA9"s, "a\0"s, "\0"s,
          "a<"s, "a/"s, "a>"s, "a&"s, "\x80"s, "a\n"s}) {
        EXPECT_THAT(Thrown<ApiInternalError>([&] { data->SetString(key, "x"); }),
                    testing::HasSubstr("can't be a key"));
        EXPECT_THAT(Thrown<ApiInternalError>([&] { data->CreateChild(key); }),
                    testing::HasSubstr("can't be a key"));
        EXPECT_FALSE(data->HasValue(key));
    }
    EXPECT_EQ(TextForm(data), "<Data/>");
}

TEST(Container, NamesTheKeyThatIsRefusedOrMissing) {
    EXPECT_THAT(Thrown<ApiInternalError>([] { CXmlData::CreateNew()->CreateChild(std::string("a\0\n", 3)); }),
                testing::StartsWith("\"a\\x00\\n\" can't be a key"));
    EXPECT_EQ(Thrown<ApiInternalError>([] { CXmlData::CreateNew()->GetChild("\x1B[2J"); }),
              "top level: no \"\\x1b[2J\"");
    EXPECT_EQ(
        Thrown<ApiInternalError>([] { CXmlData::CreateNew()->SetString("a b", "x"); }),
        "\"a b\" can't be a key: a letter or \"_\" comes first, then letters, digits, \"_\", \"-\" or \".\"");
}

/// A chain of `depth` elements, the root among them.
std::string Nested(int depth) {
    std::string text = "<Data>";
    for (int i = 2; i < depth; ++i) {
        text += "<a>";
    }
    text += "<a/>";
    for (int i = 2; i < depth; ++i) {
        text += "</a>";
    }
    return text + "</Data>";
}

TEST(Container, NestsAsDeeplyAs256LevelsInBothDirections) {
    const std::string text = Nested(256);
    EXPECT_EQ(TextForm(Document(text)), text);
}

TEST(Container, RefusesALevelMoreInReading) {
    EXPECT_EQ(Thrown<BrokenMessageError>([] { Document(Nested(257)); }),
              "Malformed document: elements nested deeper than 256 levels at offset 771");
}

TEST(Container, RefusesALevelMoreInWriting) {
    const auto data = CXmlData::CreateNew();
    auto node = data;
    for (int depth = 2; depth <= 256; ++depth) {
        node = node->CreateChild("a");
    }
    EXPECT_EQ(TextForm(data), Nested(256));
    node->SetString("text", "");
    EXPECT_EQ(Thrown<ApiInternalError>([&] { TextForm(data); }),
              "The document is nested deeper than 256 levels");
    // The same entries written from further down have levels to spare.
    EXPECT_EQ(TextForm(node), "<Data><text></text></Data>");
}

TEST(Container, ErrorsAboutATreeOfAnyDepthStillNameThePath) {
    const auto data = CXmlData::CreateNew();
    auto node = data;
    std::string path;
    for (int depth = 0; depth < 5000; ++depth) {
        node = node->CreateChild("a");
        path += depth == 0 ? "a" : "/a";
    }
    EXPECT_EQ(Thrown<ApiInternalError>([&] { node->GetString("b"); }), path + ": no \"b\"");
}

TEST(Container, RefusesToWriteAForeignOne) {
    class CForeign : public IData {
        bool HasValue(const std::string&) const override { return false; }
        DataPointer CreateChild(const std::string&) override { return nullptr; }
        std::vector<DataPointer> GetChildren(const std::string&) const override { return {}; }
        DataPointer GetChild(const std::string&) const override { return nullptr; }
        bool HasString(const std::string&) const override { return false; }
        void SetString(const std::string&, const std::string&) override {}
        std::string GetString(const std::string&) const override { return {}; }
    };
    EXPECT_EQ(Thrown<ApiInternalError>([] { CXmlData::Serialize(CForeign()); }),
              "Only a container that CXmlData made has a text form");
}

// Trees built by random operations, and what they answer.

constexpr const char* Keys[] = {"a", "b", "c", "Name"};

std::string Attempt(const std::function<std::string()>& action) {
    try {
        return "value " + action();
    } catch (const ApiInternalError& error) {
        return std::string("error ") + error.what();
    }
}

/// Every answer that a tree can give, as one text.
void Ask(const IData& node, std::string& answers) {
    for (const std::string key : Keys) {
        answers +=
            key + (node.HasValue(key) ? " present" : " absent") + (node.HasString(key) ? " text " : " node ");
        answers += Attempt([&] { return node.GetString(key); });
        answers += Attempt([&] {
            const auto first = node.GetChild(key);
            return std::string(first->HasValue("a") ? "with a" : "without a");
        });
        answers += " " + std::to_string(node.GetChildren(key).size()) + "(";
        for (const auto& child : node.GetChildren(key)) {
            Ask(*child, answers);
        }
        answers += ")";
    }
}

std::string Answers(const IData& node) {
    std::string answers;
    Ask(node, answers);
    return answers;
}

DataPointer RandomTree(std::mt19937_64& random) {
    const auto below = [&](std::size_t bound) { return random() % bound; };
    const auto tree = CXmlData::CreateNew();
    std::vector<DataPointer> nodes{tree};
    for (std::size_t steps = below(40); steps != 0; --steps) {
        const DataPointer node = nodes[below(nodes.size())];
        const std::string key = Keys[below(std::size(Keys))];
        if (below(2) == 0) {
            nodes.push_back(node->CreateChild(key));
        } else {
            std::string text(below(4), ' ');
            for (char& c : text) {
                c = below(2) == 0 ? "<&>\r\n\"' ]"[below(9)] : static_cast<char>(random());
            }
            node->SetString(key, text);
            // What stood below may be gone from the tree, though its nodes still work.
            if (below(2) == 0) nodes.push_back(node->GetChild(key));
        }
    }
    return tree;
}

TEST(Container, AnswersAsItsReReadTextFormDoes) {
    std::mt19937_64 random(5);
    for (int i = 0; i < 300; ++i) {
        const auto tree = RandomTree(random);
        const std::string text = TextForm(tree);
        const auto again = Document(text);
        ASSERT_EQ(TextForm(again), text);
        ASSERT_EQ(Answers(*again), Answers(*tree)) << text;
    }
}

}  // namespace
}  // namespace apigen::test
