// SPDX-License-Identifier: Apache-2.0
// How a request ends, as literal texts.
#include <gtest/gtest.h>

#include <string>

#include "support/apigen/RequestText.h"

namespace apigen::test {
namespace {

static_assert(EmptyAnswer == "<Data/>");
static_assert(IsReleaseRequest("<Data><__handle>7</__handle><__method>__dtr</__method></Data>"));
static_assert(!IsReleaseRequest("<Data><__handle>7</__handle><__method>dtr</__method></Data>"));
static_assert(!IsReleaseRequest("<Data><__method>__dtr</__method><__handle>7</__handle></Data>"));
static_assert(!IsReleaseRequest("</Data>"));

/// A request as it is sent.
std::string Request(const std::string& argument, Handle target, std::string_view method) {
    CXmlWriter text;
    BeginDocument(text);
    if (!argument.empty()) text.Entry("a", argument);
    EndRequest(text, target, method);
    return std::string(text.Text());
}

TEST(RequestText, EndsInHandleAndMethod) {
    EXPECT_EQ(Request("x", Handle{7}, "m"),
              "<Data><a>x</a><__handle>7</__handle><__method>m</__method></Data>");
    EXPECT_TRUE(IsReleaseRequest(Request("", Handle{7}, "__dtr")));
    EXPECT_FALSE(IsReleaseRequest(Request("<__method>__dtr</__method></Data>", Handle{7}, "m")));
}

TEST(RequestText, IsTakenApartAsItWasPutTogether) {
    const std::string text = Request("1 & 2", Handle{18446744073709551615U}, "m.1");
    const auto parts = SplitRequest(text);
    ASSERT_TRUE(parts.has_value());
    EXPECT_EQ(parts->Arguments, "<a>1 &amp; 2</a>");
    EXPECT_EQ(parts->Target, Handle{18446744073709551615U});
    EXPECT_EQ(parts->Method, "m.1");
    EXPECT_EQ(SplitRequest(Request("", Handle{1}, ""))->Arguments, "");
}

TEST(RequestText, OfAnotherMakeIsLeftToAContainer) {
    for (const std::string_view text :
         {"",
          "<Data/>",
          "<Data>",
          "</Data>",
          "<Data></Data>",
          "<data><__handle>1</__handle><__method>m</__method></data>",
          "<Data><__method>m</__method><__handle>1</__handle></Data>",
          "<Data><__handle>1</__handle><__method>m</__method><a/></Data>",
          "<Data><__handle>1</__handle><__method>m</__method></Data> ",
          "<Data><__handle>1</__handle> <__method>m</__method></Data>",
          "<Data><__handle>1</__handle><__method/></Data>",
          "<Data><__handle/><__method>m</__method></Data>",
          "<Data><__handle></__handle><__method>m</__method></Data>",
          "<Data><__handle>-1</__handle><__method>m</__method></Data>",
          "<Data><__handle>1 </__handle><__method>m</__method></Data>",
          "<Data><__handle>18446744073709551616</__handle><__method>m</__method></Data>",
          "<Data><__handle>1</__handle><__method>m<!-- --></__method></Data>",
          "<Data>1</__handle><__method>m</__method></Data>",
          "<Data>m</__method></Data>",
          "<Data><_handle>1</__handle><__method>m</__method></Data>",
          "</__method></Data>"}) {
        EXPECT_FALSE(SplitRequest(text).has_value()) << text;
    }
}

}  // namespace
}  // namespace apigen::test
