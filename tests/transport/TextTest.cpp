#include <gtest/gtest.h>

#include "platform/CodePages.h"
#include "transport/HTTP.h"
#include "transport/Split2DModule.h"
#include "transport/StringEncoding.h"

namespace ptzd {
namespace {

TEST(UrlEncode, EscapesCodeUnits) {
  struct Row {
    const char* text;
    const char* encoded;
  };
  for (const auto& [text, encoded] : {
           Row{"a b&c", "a+b%26c"},
           {"\t~!'()*-._", "%09~!'()*-._"},
           {"", ""},
           {"\"/%", "%22%2F%25"},
           {"\xC3\xA4", "%E4"},                   // one byte of code page 1252
           {"\xE2\x82\xAC", "%20%AC"},            // a unit above 255, high byte first
           {"\xC4\x80", "%01%00"},                // both bytes with their leading zeros
           {"\xF0\x9F\x8E\xA5", "%D8%3C%DF%A5"},  // two units
           // What is no UTF-8: lone followers, too long, a surrogate, beyond the last, cut off.
           {"\x9F\xBF", "%FF%FD%FF%FD"},
           {"\xC1\x81", "%FF%FD%FF%FD"},
           {"\xE0\x9F\xBF", "%FF%FD%FF%FD%FF%FD"},
           {"\xED\xA0\x80", "%FF%FD%FF%FD%FF%FD"},
           {"\xF4\x90\x80\x80", "%FF%FD%FF%FD%FF%FD%FF%FD"},
           {"\xF0\x9F\x8E", "%FF%FD%FF%FD%FF%FD"},
           {"\xEF\xBF\xBF\xED\x9F\xBF", "%FF%FF%D7%FF"},
       })
    EXPECT_EQ(UrlEncode(text), encoded);
  EXPECT_EQ(UrlEncode(std::string(5000, '&')).size(), 15000U);
}

TEST(PercentDecode, ResolvesOnceAndLeavesWhatIsNoEscape) {
  EXPECT_EQ(PercentDecode("p%3A%2525w%40"), "p:%25w@");
  EXPECT_EQ(PercentDecode("100%"), "100%");
  EXPECT_EQ(PercentDecode("%zz%4"), "%zz%4");
  EXPECT_EQ(PercentDecode("%E4\xC3\xA4%"), "\xC3\xA4\xC3\xA4%");
}

TEST(DecodeBytes, CodePages) {
  const auto decode = [](Bytes bytes, std::int32_t codePage) { return DecodeBytes(bytes, codePage); };
  EXPECT_EQ(decode({}, 1252), "");
  EXPECT_EQ(decode({'a', 0, 0xFF}, 1252), std::string("a\0\xC3\xBF", 4));
  EXPECT_EQ(decode({0xC0, 0xE0}, 1251), "\xD0\x90\xD0\xB0");
  EXPECT_EQ(decode({'a'}, 20127), "a");
  EXPECT_EQ(decode({0xE4}, 28591), "\xC3\xA4");
  EXPECT_EQ(decode(Bytes(3000, 0xE4), 65001).substr(0, 6), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(decode({'a'}, 12345), "");
  EXPECT_EQ(EncodeText("\xE2\x82\xAC\xC3\xA4\xE4\xB8\xAD", 1252), (Bytes{0x80, 0xE4, '?'}));
  EXPECT_EQ(EncodeText("\x80\xC3\xA4", 1252), (Bytes{'?', 0xE4})) << "half a character is none";
  EXPECT_EQ(EncodeText("\xC3\xA4\xE4\xB8\xAD!", 28591), (Bytes{0xE4, '?', '!'}));
  Bytes all, high;
  for (int byte = 0; byte < 256; ++byte) all.push_back(static_cast<std::uint8_t>(byte));
  EXPECT_EQ(EncodeText(DecodeBytes(all, 1252), 1252), all) << "every byte comes back";
  for (int byte = 0x80; byte < 0xA0; ++byte) high.push_back(static_cast<std::uint8_t>(byte));
  EXPECT_EQ(
      decode(high, 1252),
      "\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\u008D\u017D\u008F"
      "\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\u009D\u017E\u0178");
}

TEST(Split2D, TwoColumns) {
  struct Case {
    const char* text;
    std::vector<Row> rows;
  };
  for (const auto& [text, rows] : {
           Case{"a=1\r\nb=2=3", {{"a", "1"}, {"b", "2"}}},
           {"", {{"", ""}}},
           {"name\r\n=v\r\n", {{"name", ""}, {"", "v"}, {"", ""}}},
           {"a\r=\n1\r\r\n", {{"a\r", "\n1\r"}, {"", ""}}},  // half a separator is none
       }) {
    std::vector<Row> found;
    for (const auto& row : Split2D(text, "\r\n", "=")) found.push_back(row);
    EXPECT_EQ(found, rows) << text;
  }
  for (const auto& row : Split2D("a=b", "", ""))
    EXPECT_EQ(row, (Row{"a=b", ""})) << "an empty separator is none";
  EXPECT_EQ(Split("a=b", ""), std::vector<std::string_view>{"a=b"});
  const std::string hostile(1 << 20, '=');
  std::size_t rows = 0;
  for (const auto& row : Split2D(hostile, "=", "=")) rows += row == Row{};
  EXPECT_EQ(rows, hostile.size() + 1) << "all of them, and each empty";
}

}  // namespace
}  // namespace ptzd
