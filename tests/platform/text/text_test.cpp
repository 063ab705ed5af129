#include "platform/text/text.h"

#include <gtest/gtest.h>

#include "platform/dates/dates.h"
#include "platform/http.h"
#include "platform/json/json.h"

namespace kestrin {
namespace {

TEST(Text, CountsWhatAPersonSees) {
  const std::string family = "👨‍👩‍👧";
  EXPECT_EQ(text::characterCount("a" + family + "e\u0301\r\n"), 4u);
  EXPECT_EQ(text::prefix("x" + family + "y", 2), "x" + family);
  EXPECT_EQ(text::suffix("x" + family + "y", 2), family + "y");
  EXPECT_EQ(text::prefix("abc", 9), "abc");
  EXPECT_EQ(text::utf16Length("🎉a"), 3u);
}

TEST(Text, OffsetsNeverSplitACharacter) {
  const std::string value = "a🎉b";
  EXPECT_EQ(text::utf16ToCodePoints(value, 3), 2u);
  EXPECT_EQ(text::utf16ToCodePoints(value, 2), 2u) << "inside the pair: the next boundary";
  EXPECT_EQ(text::codePointsToUtf16(value, 2), 3u);
  EXPECT_EQ(text::utf16Slice(value, 1, 3), "🎉");
  EXPECT_EQ(text::utf16Slice(value, 2, 99), "b");
}

TEST(Text, InvalidBytesAreHarmless) {
  const std::string torn = "ab\xF0\x9F\x8E";
  EXPECT_EQ(text::incompleteUtf8Tail(torn), 3u);
  EXPECT_EQ(text::incompleteUtf8Tail("ab\xED\xA0"), 0u) << "a surrogate can never be completed";
  EXPECT_EQ(text::incompleteUtf8Tail("🎉"), 0u);
  EXPECT_FALSE(text::isValidUtf8(torn));
  EXPECT_TRUE(text::isValidUtf8(text::replaceInvalidUtf8("\xFF\xC0 ok \x80")));
  EXPECT_EQ(text::trim("\u00A0\n a b \t"), "a b");
  EXPECT_EQ(Json("\xFF"
                 "a")
                .dump(),
            "\"\uFFFDa\"");
}

TEST(Text, Base64IsStrict) {
  std::string out;
  const std::vector<std::string> samples{"", "f", "fo", "foo", "foob", std::string("\0\xFF", 2)};
  for (const std::string& sample : samples) {
    ASSERT_TRUE(text::base64Decode(text::base64Encode(sample), out));
    EXPECT_EQ(out, sample);
  }
  for (const char* broken : {"Zg", "Zg=", "Z===", "Zm9v!", "Zg==Zg==", "====", "Z=g="}) {
    EXPECT_FALSE(text::base64Decode(broken, out)) << broken;
  }
}

TEST(Dates, ReadAndWriteTheFormsOfTheWire) {
  const auto date = dates::parseIso8601("2026-03-01T10:30:00.25+01:00");
  ASSERT_TRUE(date);
  EXPECT_EQ(dates::iso8601(*date, true), "2026-03-01T09:30:00.250Z");
  EXPECT_EQ(dates::format(*date, "h:mm a", "America/New_York"), "4:30 AM");
  EXPECT_FALSE(dates::parseIso8601("yesterday"));
  for (const char* beyond : {"8424-03-01T10:00:00Z", "1604-01-01T00:00:00Z"})
    EXPECT_FALSE(dates::parseIso8601(beyond)) << "would run over into another century";
  EXPECT_FALSE(dates::parse("2026-13-01", "yyyy-MM-dd"));
}

TEST(Json, ReadsTolerantlyAndKeepsOrder) {
  const auto value =
      Json::parse(R"({"b":1,"a":{"x":true},"list":[{"k":1},2,"s"],"n":1.5,"big":1e3})");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->members().front().first, "b");
  EXPECT_FALSE(value->stringAt("b"));
  EXPECT_FALSE(value->intAt("n"));
  EXPECT_EQ(value->intAt("big"), 1000);
  EXPECT_EQ(value->objectsAt("list").size(), 1u);
  EXPECT_EQ(value->stringsAt("list"), std::vector<std::string>{"s"});
  EXPECT_EQ(Json::parse(value->dump()), *value);
  EXPECT_FALSE(Json::parse("{\"a\":"));
  EXPECT_FALSE(Json::parse(std::string(100'000, '[')));
}

TEST(HttpTypes, AddressesAreCheckedBeforeUse) {
  EXPECT_TRUE(isHttpUrl("HTTP://127.0.0.1:8001/x"));
  for (const char* bad : {"ftp://a/", "http://", "http:///x", "a b", "http://a/\r\nX: y", "/x"}) {
    EXPECT_FALSE(isHttpUrl(bad)) << bad;
  }
  EXPECT_EQ(urlEncode("a b/ü"), "a%20b%2F%C3%BC");
}

}  // namespace
}  // namespace kestrin
