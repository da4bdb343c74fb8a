// SPDX-License-Identifier: Apache-2.0
// What containers are like after memory has run out in the midst of something.
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

/// How many allocations still succeed; below zero, all do.
long allocationsLeft = -1;

bool IsAllowed() {
    if (allocationsLeft < 0) return true;
    if (allocationsLeft == 0) return false;
    --allocationsLeft;
    return true;
}

}  // namespace

// NOLINTBEGIN: they replace what the language has
void* operator new(std::size_t size) {
    void* const block = IsAllowed() ? std::malloc(size) : nullptr;
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

// Arrays of nodes and texts are grown by the C library. The sanitizers bring a library of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZAM_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZAM_SANITIZED
#endif
#endif
#ifndef ZAM_SANITIZED
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* realloc(void* block, std::size_t size) {
    return IsAllowed() ? __libc_realloc(block, size) : nullptr;
}
#endif
// NOLINTEND

namespace apigen::test {
namespace {

using DataPointer = std::shared_ptr<IData>;

/// Runs `attempt` with ever more memory until it succeeds; after each failure `check` looks at what is left.
/// \return how often it failed
int FailEverywhere(const std::function<void()>& attempt, const std::function<void()>& check) {
    for (long allowed = 0; allowed < 10'000; ++allowed) {
        allocationsLeft = allowed;
        try {
            attempt();
            allocationsLeft = -1;
            return static_cast<int>(allowed);
        } catch (const std::bad_alloc&) {
            allocationsLeft = -1;
            check();
        } catch (...) {
            allocationsLeft = -1;
            throw;
        }
    }
    ADD_FAILURE() << "never enough";
    return 0;
}

/// A tree, or still a text, with keys enough for an index when there are many.
DataPointer Made(bool isTree, int keys) {
    const auto data = CXmlData::CreateNew();
    for (int i = 0; i < keys; ++i)
        data->SetString("a-key-of-some-length" + std::to_string(i),
                        "a text of some length, so that it takes memory");
    if (isTree) data->HasValue("x");
    return data;
}

constexpr int KeyCounts[] = {0, 3, 16, 31, 32, 33, 200};

TEST(Allocation, ThatFailsInReadingADocumentLeavesNothingBehind) {
    std::string text = "<r>";
    for (int i = 0; i < 100; ++i) {
        text.append("<key").append(std::to_string(i)).append(" a='&lt; longer than what strings hold' b=''>");
        text.append("a text &amp; more<in/></key").append(std::to_string(i)).append(">");
    }
    text += "</r>";
    DataPointer data;
    const int failures =
        FailEverywhere([&] { data = CXmlData::Unserialize(text); }, [&] { EXPECT_EQ(data, nullptr); });
    EXPECT_GT(failures, 3);
    EXPECT_TRUE(data->HasValue("key99"));
}

TEST(Allocation, ThatFailsInWritingADocumentLeavesItAsItWas) {
    for (const bool isTree : {false, true}) {
        const auto data = Made(isTree, 50);
        const std::string expected = CXmlData::Serialize(*data);
        std::string text;
        EXPECT_GT(FailEverywhere([&] { text = CXmlData::Serialize(*data); }, [&] { EXPECT_EQ(text, ""); }),
                  0);
        EXPECT_EQ(text, expected);
    }
}

TEST(Allocation, ThatFailsInSettingATextLeavesTheContainerAsItWas) {
    for (const bool isTree : {false, true}) {
        for (const int keys : KeyCounts) {
            for (const std::string key : {"new", "a-key-of-some-length1"}) {
                const auto data = Made(isTree, keys);
                const std::string before = CXmlData::Serialize(*data);
                const std::string value(5000, 'x');
                FailEverywhere([&] { data->SetString(key, value); },
                               [&] { ASSERT_EQ(CXmlData::Serialize(*data), before); });
                EXPECT_EQ(data->GetString(key), value);
                EXPECT_EQ(CXmlData::Serialize(*CXmlData::Unserialize(CXmlData::Serialize(*data))),
                          CXmlData::Serialize(*data));
            }
        }
    }
}

TEST(Allocation, ThatFailsInMakingAChildLeavesTheContainerAsItWas) {
    for (const bool isTree : {false, true}) {
        for (const int keys : KeyCounts) {
            const auto data = Made(isTree, keys);
            const std::string before = CXmlData::Serialize(*data);
            const std::string key(3000, 'k');
            DataPointer child;
            EXPECT_GT(FailEverywhere([&] { child = data->CreateChild(key); },
                                     [&] { ASSERT_EQ(CXmlData::Serialize(*data), before); }),
                      0);
            child->SetString("in", "x");
            EXPECT_EQ(data->GetChildren(key).size(), 1U);
            EXPECT_EQ(data->GetChild(key)->GetString("in"), "x");
        }
    }
}

TEST(Allocation, ThatFailsInTidyingLeavesTheContainerAsItWas) {
    const auto data = Made(true, 100);
    const auto node = data->CreateChild("node");
    const auto kept = node->CreateChild("kept");
    kept->SetString("in", "still there");
    data->SetString("node", "replaced");
    for (int i = 0; i < 60; ++i) {
        const std::string value(3000 + static_cast<std::size_t>(i), 'x');
        const std::string before = CXmlData::Serialize(*data);
        FailEverywhere([&] { data->SetString("large", value); },
                       [&] { ASSERT_EQ(CXmlData::Serialize(*data), before); });
        ASSERT_EQ(data->GetString("large"), value);
        ASSERT_EQ(kept->GetString("in"), "still there");
    }
}

TEST(Allocation, ThatFailsInWritingARecordsListLeavesAContainerThatWorks) {
    const std::vector<std::string> list(40, "a text of some length, so that it takes memory");
    for (const bool isTree : {false, true}) {
        const auto data = Made(isTree, 40);
        FailEverywhere([&] { SerializeVector(*data, "list", list); },
                       [&] {
                           const std::string text = CXmlData::Serialize(*data);
                           ASSERT_EQ(CXmlData::Serialize(*CXmlData::Unserialize(text)), text);
                       });
        EXPECT_GE(data->GetChildren("list").size(), list.size());
        EXPECT_EQ(data->GetString("a-key-of-some-length39").substr(0, 6), "a text");
    }
}

TEST(Allocation, ThatFailsInReadingAListLeavesWhatWasRead) {
    const auto data = CXmlData::CreateNew();
    SerializeVector(*data, "list", std::vector<std::string>(40, std::string(100, 'x')));
    std::vector<std::string> list;
    EXPECT_GT(FailEverywhere([&] { list.clear(), DeserializeVector(*data, "list", list); },
                             [&] {
                                 for (const auto& each : list)
                                     ASSERT_EQ(each.size(), 100U);
                             }),
              0);
    EXPECT_EQ(list.size(), 40U);
}

}  // namespace
}  // namespace apigen::test
