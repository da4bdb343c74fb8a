// SPDX-License-Identifier: Apache-2.0
// The optional as its users know it from the standard's, and where it differs.
#include <apigen/Optional.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/apigen/Thrown.h"

namespace apigen::test {
namespace {

using Text = Optional<std::string>;

struct SPlain {
    int Number = 0;
    std::string Name;
};

TEST(OptionalValue, ThrowsWhenThereIsNone) {
    Optional<int> value;
    EXPECT_EQ(Thrown<std::runtime_error>([&] { value.Value(); }), "Optional has no value");
    EXPECT_EQ(Thrown<std::runtime_error>([&] { value.value(); }), "Optional has no value");
    EXPECT_EQ(Thrown<std::runtime_error>([&] { *value; }), "Optional has no value");
    value = 5;
    EXPECT_EQ(*value, 5);
    value.Reset();
    EXPECT_FALSE(value.HasValue());
    EXPECT_EQ(value, Optional<int>());
    EXPECT_NE(value, Optional<int>(0));
}

TEST(OptionalValue, IsMadeOfWhatItsValueIsMadeOf) {
    const Text literal = "abc";
    EXPECT_EQ(literal.Value(), "abc");
    const Optional<long> number = 5;
    EXPECT_EQ(number.Value(), 5);
    const Text counted(std::string_view("abc"));
    EXPECT_EQ(counted.Value(), "abc");
    static_assert(!std::is_convertible_v<std::string_view, Text> &&
                  std::is_constructible_v<Text, std::string_view>);
    static_assert(!std::is_constructible_v<Text, int> && !std::is_assignable_v<Text&, int>);
    static_assert(!std::is_constructible_v<Optional<bool>, Optional<std::string>>);
}

TEST(OptionalValue, IsAssignedWhatItsValueIsAssigned) {
    Text text;
    text = "abc";
    EXPECT_EQ(text.Value(), "abc");
    text = std::string_view("abcd");
    EXPECT_EQ(text.Value(), "abcd");
    Optional<unsigned short> number;
    number = 7;
    EXPECT_EQ(number.Value(), 7);
    Optional<bool> flag;
    flag = false;
    EXPECT_TRUE(flag.HasValue());
    Optional<std::shared_ptr<const int>> pointer;
    pointer = std::make_shared<int>(3);
    EXPECT_EQ(**pointer, 3);
    Optional<SPlain> plain;
    plain = SPlain{1, "a"};
    EXPECT_EQ(plain->Name, "a");
}

TEST(OptionalValue, IsEmptiedByBracesNulloptAndReset) {
    Text text("a");
    text = {};
    EXPECT_FALSE(text);
    Optional<int> number(5);
    number = {};
    EXPECT_FALSE(number);
    Optional<SPlain> plain(SPlain{});
    plain = {};
    EXPECT_FALSE(plain);
    for (const bool mine : {true, false}) {
        text = "b";
        mine ? text = nullopt : text = std::nullopt;
        EXPECT_FALSE(text);
    }
    text = "c";
    text.reset();
    EXPECT_FALSE(text.has_value());
    const Text empty = nullopt;
    EXPECT_EQ(empty, nullopt);
    EXPECT_FALSE(empty == "");
}

TEST(OptionalValue, GoesIntoAStandardOneAndBack) {
    const Text text = "abc";
    const std::optional<std::string> standard = text;
    EXPECT_EQ(standard, std::optional<std::string>("abc"));
    std::optional<std::string> assigned;
    assigned = text;
    EXPECT_EQ(assigned, "abc");
    assigned = Text();
    EXPECT_FALSE(assigned.has_value());

    const Text back = standard;
    EXPECT_EQ(back, text);
    Text again = "old";
    again = std::optional<std::string>();
    EXPECT_FALSE(again);
    again = std::optional<const char*>("new");
    EXPECT_EQ(again, "new");
    const Optional<long> wider = Optional<int>(5);
    EXPECT_EQ(wider, 5);
    EXPECT_EQ(Optional<long>(Optional<int>()), nullopt);
}

TEST(OptionalValue, OfABooleanIsTheValueThatItHoldsAndNotWhetherThereIsOne) {
    const Optional<bool> no = false;
    const std::optional<bool> standard = no;
    ASSERT_TRUE(standard.has_value());
    EXPECT_FALSE(*standard);
    const Optional<bool> back = standard;
    ASSERT_TRUE(back.HasValue());
    EXPECT_FALSE(*back);
    EXPECT_EQ(Optional<bool>(std::optional<bool>()), nullopt);
    EXPECT_FALSE(no.value_or(true));
}

TEST(OptionalValue, MovesWithoutACopy) {
    Optional<std::unique_ptr<int>> pointer = std::make_unique<int>(3);
    std::optional<std::unique_ptr<int>> standard = std::move(pointer);
    EXPECT_EQ(**standard, 3);
    const Optional<std::unique_ptr<int>> back = std::move(standard);
    EXPECT_EQ(**back, 3);
    auto value = Optional<std::unique_ptr<int>>(std::make_unique<int>(4)).value_or(nullptr);
    EXPECT_EQ(*value, 4);
}

TEST(OptionalValue, HasAnotherWhereThereIsNone) {
    EXPECT_EQ(Text("abc").value_or("none"), "abc");
    EXPECT_EQ(Text().value_or("none"), "none");
    const Optional<int> number;
    EXPECT_EQ(number.value_or(-1), -1);
}

TEST(OptionalValue, IsEmplacedFromArgumentsOrFields) {
    Text text;
    EXPECT_EQ(text.emplace(3, 'x'), "xxx");
    EXPECT_EQ(text, "xxx");
    Optional<SPlain> plain;
    plain.emplace(4, "four");
    EXPECT_EQ(plain->Number, 4);
    EXPECT_EQ(plain->Name, "four");
    plain.emplace();
    EXPECT_EQ(plain->Number, 0);
}

TEST(OptionalValue, ComparesAsItsValueWithTheEmptyOneFirst) {
    const Optional<int> none;
    const Optional<int> one = 1;
    const Optional<int> two = 2;
    for (const auto& [less, greater] : {std::pair(none, one), std::pair(one, two), std::pair(none, two)}) {
        EXPECT_TRUE(less < greater && less <= greater && less != greater);
        EXPECT_TRUE(greater > less && greater >= less);
        EXPECT_FALSE(greater < less || greater <= less || less > greater || less >= greater ||
                     less == greater);
    }
    EXPECT_TRUE(none <= none && none >= none && !(none < none) && none == none);
    EXPECT_TRUE(one == 1 && 1 == one && one != 2);
    EXPECT_TRUE(none == nullopt && nullopt == none && one != nullopt);
}

TEST(OptionalValue, EqualsAStandardOneThatIsAsEmptyOrHoldsTheSame) {
    const std::optional<int> none;
    const std::optional<int> one = 1;
    EXPECT_TRUE(Optional<int>() == none && none == Optional<int>());
    EXPECT_TRUE(Optional<int>(1) == one && one == Optional<int>(1));
    EXPECT_TRUE(Optional<int>(1) != none && none != Optional<int>(1));
    EXPECT_FALSE(Optional<int>() == one || one == Optional<int>());
}

}  // namespace
}  // namespace apigen::test
