// SPDX-License-Identifier: Apache-2.0
// That containers neither take longer nor hold more than what is in them asks for.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/apigen/Document.h"

namespace apigen::test {
namespace {

using DataPointer = std::shared_ptr<IData>;

constexpr std::size_t MiB = 1U << 20;

std::size_t HeldBytes(const DataPointer& data) {
    return CXmlData::From(*data)->Document().HeldBytes();
}

double CpuSeconds(const std::function<void()>& run) {
    const auto now = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    const double start = now();
    run();
    return now() - start;
}

/// How many times as long sixteen times as much takes: 16 when all is well, 256 when each piece waits for all
/// others.
double Growth(const std::function<void(std::size_t)>& run) {
    constexpr std::size_t Few = 2000;
    double few = CpuSeconds([&] { run(Few); });
    for (int i = 0; i < 4; ++i) {
        few = std::min(few, CpuSeconds([&] { run(Few); }));
    }
    return CpuSeconds([&] { run(16 * Few); }) / few;
}

constexpr double Bound = 80;

std::string KeyOf(std::size_t number) {
    return "key" + std::to_string(number);
}

DataPointer Filled(std::size_t count) {
    const auto data = CXmlData::CreateNew();
    for (std::size_t i = 0; i < count; ++i)
        data->SetString(KeyOf(i), "x");
    return data;
}

TEST(ContainerGrowth, SettingManyNewKeysDoesNotSearchAllOthersForEach) {
    EXPECT_LT(Growth([](std::size_t count) { Filled(count); }), Bound);
    EXPECT_LT(Growth([](std::size_t count) {
                  const auto below = CXmlData::CreateNew()->CreateChild("below");
                  for (std::size_t i = 0; i < count; ++i)
                      below->SetString(KeyOf(i), "x");
              }),
              Bound);
}

TEST(ContainerGrowth, ReadingManyKeysDoesNotSearchAllOthersForEach) {
    EXPECT_LT(Growth([](std::size_t count) {
                  const auto data = CXmlData::Unserialize(CXmlData::Serialize(*Filled(count)));
                  for (std::size_t i = count; i-- != 0;) {
                      ASSERT_TRUE(data->HasValue(KeyOf(i)));
                      ASSERT_EQ(data->GetString(KeyOf(i)), "x");
                      ASSERT_FALSE(data->HasString(KeyOf(i) + "-"));
                  }
              }),
              Bound);
}

TEST(ContainerGrowth, FindingManyChildrenDoesNotSearchAllOthersForEach) {
    EXPECT_LT(Growth([](std::size_t count) {
                  const auto data = CXmlData::CreateNew();
                  for (std::size_t i = 0; i < count; ++i)
                      data->CreateChild(KeyOf(i))->SetString("number", std::to_string(i));
                  for (std::size_t i = count; i-- != 0;)
                      ASSERT_EQ(data->GetChild(KeyOf(i))->GetString("number"), std::to_string(i));
              }),
              Bound);
}

TEST(ContainerGrowth, TheFirstOfManyEntriesUnderAKeyIsFoundAmongManyKeys) {
    const auto data = CXmlData::CreateNew();
    for (std::size_t i = 0; i < 500; ++i) {
        data->CreateChild(KeyOf(i % 100))->SetString("number", std::to_string(i));
    }
    for (const auto& each : {data, CXmlData::Unserialize(CXmlData::Serialize(*data))}) {
        for (std::size_t i = 0; i < 100; ++i) {
            EXPECT_EQ(each->GetChild(KeyOf(i))->GetString("number"), std::to_string(i));
            EXPECT_EQ(each->GetChildren(KeyOf(i)).size(), 5U);
        }
        EXPECT_FALSE(each->HasValue(KeyOf(100)));
    }
}

TEST(ContainerGrowth, ManyChildrenThatWereReplacedAreNotFoundAmongManyNewOnes) {
    const auto data = CXmlData::CreateNew();
    const auto fill = [&](std::size_t from) {
        const auto child = data->GetChild("child");
        for (std::size_t i = from; i < from + 100; ++i)
            child->SetString(KeyOf(i), std::to_string(from));
    };
    data->CreateChild("child");
    fill(0);
    data->SetString("child", "a text");
    fill(50);
    const auto child = data->GetChild("child");
    EXPECT_FALSE(child->HasValue(KeyOf(49)));
    EXPECT_EQ(child->GetString(KeyOf(99)), "50");
    child->SetString(KeyOf(99), "new");
    EXPECT_EQ(child->GetString(KeyOf(99)), "new");
    EXPECT_EQ(child->GetChildren(KeyOf(99)).size(), 1U);
}

TEST(ContainerGrowth, ATextThatIsSetAgainAndAgainIsHeldOnce) {
    for (const bool isRoot : {true, false}) {
        const auto data = CXmlData::CreateNew();
        const auto node = isRoot ? data : data->CreateChild("below");
        for (std::size_t i = 0; i < 300; ++i) {
            node->SetString("text", std::string(MiB + 1000 * i, 'x'));
            ASSERT_LE(HeldBytes(data), 8 * MiB) << i;
        }
        EXPECT_EQ(node->GetString("text").size(), MiB + 1000 * 299);
    }
}

TEST(ContainerGrowth, TextsOfAlternatingSizesAreHeldOnce) {
    const auto data = CXmlData::CreateNew();
    for (std::size_t i = 0; i < 300; ++i) {
        data->SetString("first", std::string(i % 2 == 0 ? MiB : 1, 'a'));
        data->SetString("second", std::string(i % 2 == 0 ? 1 : MiB, 'b'));
        ASSERT_LE(HeldBytes(data), 8 * MiB) << i;
    }
    EXPECT_EQ(data->GetString("first"), "a");
    EXPECT_EQ(data->GetString("second"), std::string(MiB, 'b'));
}

TEST(ContainerGrowth, TextsThatShrinkOneAfterTheOtherLeaveNothingBehind) {
    const auto data = CXmlData::CreateNew();
    for (std::size_t i = 0; i < 100; ++i) {
        data->SetString(KeyOf(i), std::string(MiB, 'x'));
        data->SetString(KeyOf(i), "y");
        ASSERT_LE(HeldBytes(data), 8 * MiB) << i;
    }
    EXPECT_EQ(CXmlData::Serialize(*data).size(), std::string("<Data></Data>").size() + 10 * 14 + 90 * 16);
}

TEST(ContainerGrowth, ChildrenThatATextReplacesAreNotHeld) {
    const auto data = CXmlData::CreateNew();
    const auto kept = data->CreateChild("kept");
    for (std::size_t i = 0; i < 2000; ++i) {
        const auto node = data->CreateChild("node");
        data->GetChild("node")->CreateChild("in")->SetString("text", std::string(10'000, 'x'));
        data->SetString("node", "short");
        data->GetChild("node")->CreateChild("again");
        data->SetString("node", "short");
        ASSERT_LE(HeldBytes(data), MiB) << i;
    }
    kept->SetString("text", "still there");
    EXPECT_EQ(data->GetChild("kept")->GetString("text"), "still there");
}

TEST(ContainerGrowth, NodesOutsideTheTreeLiveAsLongAsSomebodyHasThem) {
    const auto data = CXmlData::CreateNew();
    data->SetString("before", "b");
    const auto node = data->CreateChild("node");
    const auto in = node->CreateChild("in");
    in->SetString("text", "kept");
    in->CreateChild("deep")->SetString("text", "deep");
    node->CreateChild("beside")->SetString("text", "beside");
    const auto deep = in->GetChild("deep");
    data->SetString("node", "replaced");
    for (std::size_t i = 0; i < 100; ++i) {
        data->SetString("large", std::string(100'000 + i, 'x'));
    }
    ASSERT_LE(HeldBytes(data), MiB);
    EXPECT_EQ(in->GetString("text"), "kept");
    EXPECT_EQ(in->GetChild("deep")->GetString("text"), "deep");
    deep->SetString("more", "more");
    EXPECT_EQ(CXmlData::Serialize(*in),
              "<Data><text>kept</text><deep><text>deep</text><more>more</more></deep></Data>");
    EXPECT_EQ(data->GetString("node"), "replaced");
    EXPECT_EQ(data->GetString("before"), "b");
    node->SetString("own", "1");
    EXPECT_EQ(data->GetChild("node")->GetString("own"), "1");
}

TEST(ContainerGrowth, WhatIsLeftAfterTidyingIsFoundByItsKey) {
    const auto data = Filled(1000);
    for (std::size_t i = 0; i < 200; ++i)
        data->SetString(KeyOf(i), std::string(10'000, 'x'));
    for (std::size_t i = 0; i < 200; ++i)
        data->SetString(KeyOf(i), "y" + std::to_string(i));
    data->SetString(KeyOf(0), std::string(100'000, 'z'));
    data->SetString(KeyOf(0), "y0");
    data->SetString("more", "z");
    EXPECT_LE(HeldBytes(data), 5 * MiB);
    for (std::size_t i = 0; i < 1000; ++i)
        ASSERT_EQ(data->GetString(KeyOf(i)), i < 200 ? "y" + std::to_string(i) : "x");
    EXPECT_FALSE(data->HasValue(KeyOf(1000)));
    EXPECT_EQ(data->GetString("more"), "z");
}

// Hostile documents.

std::string Repeated(std::size_t count, const std::string& piece) {
    std::string text;
    text.reserve(count * piece.size());
    for (std::size_t i = 0; i < count; ++i)
        text += piece;
    return text;
}

void ReadOrRefuse(const std::string& text) {
    try {
        CXmlData::Unserialize(text);
    } catch (const BrokenMessageError&) {
        // Either is fine here, as long as it does not take long.
    }
}

TEST(ContainerGrowth, NoDocumentTakesLongerThanItsLengthAsksFor) {
    const std::vector<std::pair<const char*, std::function<std::string(std::size_t)>>> documents = {
        {"entities", [](std::size_t n) { return "<r><k>" + Repeated(n, "&amp;") + "</k></r>"; }},
        {"ampersands", [](std::size_t n) { return "<r><k>" + Repeated(n, "&") + "</k></r>"; }},
        {"far semicolon", [](std::size_t n) { return "<r><k>&" + Repeated(n, "a") + ";</k></r>"; }},
        {"references to no character", [](std::size_t n) { return "<r>" + Repeated(n, "&#x0") + "</r>"; }},
        {"runs of CDATA and text",
         [](std::size_t n) { return "<r><k>" + Repeated(n, "a<![CDATA[b]]>\r") + "</k></r>"; }},
        {"comments in a text",
         [](std::size_t n) { return "<r><k>" + Repeated(n, "a<!--b-->") + "</k></r>"; }},
        {"comments without an end", [](std::size_t n) { return "<r>" + Repeated(n, "<!-- "); }},
        {"CDATA without an end", [](std::size_t n) { return "<r>" + Repeated(n, "<![CDATA[ ]] "); }},
        {"instructions", [](std::size_t n) { return "<r>" + Repeated(n, "<?p ?>") + "</r>"; }},
        {"attributes",
         [](std::size_t n) {
             std::string text = "<r";
             for (std::size_t i = 0; i < n; ++i)
                 text += " " + KeyOf(i) + "='&lt;'";
             return text + "/>";
         }},
        {"references in one attribute",
         [](std::size_t n) { return "<r a='" + Repeated(n, "&#65;") + "'/>"; }},
        {"ampersands in one attribute", [](std::size_t n) { return "<r a='" + Repeated(n, "&a") + "'/>"; }},
        {"keys",
         [](std::size_t n) {
             std::string text = "<r>";
             for (std::size_t i = 0; i < n; ++i)
                 text += "<" + KeyOf(i) + "/>";
             return text + "</r>";
         }},
        {"empty elements", [](std::size_t n) { return "<r>" + Repeated(n, "<a/><b/>") + "</r>"; }},
        {"texts between elements", [](std::size_t n) { return "<r>" + Repeated(n, "x<a/>&lt;") + "</r>"; }},
        {"levels", [](std::size_t n) { return Repeated(n, "<a>"); }},
        {"ends of another name",
         [](std::size_t n) { return "<r><" + Repeated(n, "a") + "></" + Repeated(n, "a") + "b></r>"; }},
    };
    for (const auto& [name, make] : documents) {
        const std::string few = make(4000);
        const std::string many = make(16 * 4000);
        double shortest = 1;
        for (int i = 0; i < 5; ++i)
            shortest = std::min(shortest, CpuSeconds([&] { ReadOrRefuse(few); }));
        EXPECT_LT(CpuSeconds([&] { ReadOrRefuse(many); }), Bound * shortest + 0.01) << name;
    }
}

TEST(ContainerGrowth, AListThatPretendsToBeLongIsGivenNoMoreRoomThanItsTextTakes) {
    // Each entry takes a few bytes here and hundreds in a record: room for all would be gigabytes.
    std::vector<std::string> list;
    const auto data = CXmlData::Unserialize("<r>" + Repeated(1'000'000, "<k/>") + "</r>");
    EXPECT_THROW(DeserializeVector(*data, "k", list), ApiInternalError);
    EXPECT_LE(list.capacity() * sizeof list[0], 160 * MiB);
}

}  // namespace
}  // namespace apigen::test
