#include "common/Numbers.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>

#include "support/Errors.h"

namespace ptzd {
namespace {

using test::NumberOf;

static_assert(FLT_EVAL_METHOD == 0, "singles must be computed as singles");

constexpr double Infinity = std::numeric_limits<double>::infinity();
const double NotANumber = std::nan("");

TEST(Numbers, TiesGoToEvenAndRangesAreKept) {
  struct Row {
    double value;
    std::int32_t rounded;
  };
  for (const auto& [value, rounded] : {Row{0.5, 0},
                                       {1.5, 2},
                                       {2.5, 2},
                                       {-0.5, 0},
                                       {-1.5, -2},
                                       {-2.5, -2},
                                       {67.5, 68},
                                       {0.49999999999999994, 0},
                                       {2147483647.4, 2147483647},
                                       {-2147483648.5, -2147483647 - 1}})
    EXPECT_EQ(ToInt32(value), rounded) << value;
  EXPECT_EQ(ToInt16(32767.4), 32767);
  EXPECT_EQ(ToInt16(-32768.5), -32768);
  EXPECT_EQ(ToByte(255.4), 255);
  EXPECT_EQ(ToByte(-0.5), 0);

  for (const double value : {2147483647.5, -2147483649.0, 1e300, Infinity, -Infinity, NotANumber})
    EXPECT_EQ(NumberOf([=] { ToInt32(value); }), 6) << value;
  for (const double value : {32767.5, -32769.0, 70000.0, NotANumber})
    EXPECT_EQ(NumberOf([=] { ToInt16(value); }), 6) << value;
  for (const double value : {255.5, 256.0, -0.51, NotANumber})
    EXPECT_EQ(NumberOf([=] { ToByte(value); }), 6) << value;
  EXPECT_EQ(NumberOf([] { ToSingle(1e39); }), 6);
  EXPECT_EQ(NumberOf([] { Int(NotANumber); }), 6);
  EXPECT_EQ(Int(-0.1), -1);
  EXPECT_EQ(Int(2.9), 2);
}

TEST(Numbers, DecimalTextOfSingles) {
  struct Row {
    float value;
    const char* text;
  };
  for (const auto& [value, text] : {Row{0, "0"},
                                    {-0.0F, "0"},
                                    {0.25F, "0.25"},
                                    {-0.5F, "-0.5"},
                                    {401, "401"},
                                    {0.1F, "0.1"},
                                    {3337.5F, "3337.5"},
                                    {363.6F, "363.6"},
                                    {1.0F / 3, "0.3333333"},
                                    {16777216, "1.677722E+07"},
                                    {9999999, "9999999"},
                                    {10000000, "1E+07"},
                                    {0.0001F, "0.0001"},
                                    {0.00001F, "1E-05"},
                                    {1e30F, "1E+30"},
                                    {-1.5e-8F, "-1.5E-08"}})
    EXPECT_EQ(Text(value), text);
}

TEST(Numbers, DecimalTextOfDoublesAndIntegers) {
  struct Row {
    double value;
    const char* text;
  };
  for (const auto& [value, text] : {Row{-0.0, "0"},
                                    {0.1 + 0.2, "0.3"},
                                    {1.0 / 3, "0.333333333333333"},
                                    {2.0 / 3, "0.666666666666667"},
                                    {123456789012345, "123456789012345"},
                                    {1e15, "1E+15"},
                                    {1e-5, "1E-05"},
                                    {1e100, "1E+100"},
                                    {-45, "-45"}})
    EXPECT_EQ(Text(value), text);
  EXPECT_EQ(Text(std::numeric_limits<std::int32_t>::min()), "-2147483648");
  EXPECT_EQ(NumberOf([] { Text(Infinity); }), 6);
  EXPECT_EQ(Hex(-596), "FFFFFDAC");
  EXPECT_EQ(Hex(0), "0");
}

TEST(Numbers, ValTakesTheNumberInFront) {
  struct Row {
    const char* text;
    double value;
  };
  for (const auto& [text, value] : {Row{"12.5\r", 12.5},
                                    {"", 0},
                                    {"abc", 0},
                                    {" 1 615 198th Street", 1615198},
                                    {"-.5x", -0.5},
                                    {"+3", 3},
                                    {"1E", 1},
                                    {"1E+", 1},
                                    {"1E2", 100},
                                    {"1d2", 100},
                                    {"1.2.3", 1.2},
                                    {"-", 0},
                                    {".", 0},
                                    {"3858)", 3858},
                                    {"\t\n7", 7},
                                    {"1E-400", 0},
                                    {"0E999999999999", 0}})
    EXPECT_EQ(Val(text), value) << text;
  EXPECT_EQ(Val(std::string(400, '0') + "1E-400"), 0);
  EXPECT_EQ(NumberOf([] { Val("1E400"); }), 6);
  EXPECT_EQ(NumberOf([] { Val("0.001E999999999999"); }), 6);
}

TEST(Numbers, ConversionsOfVariants) {
  EXPECT_EQ(ToInt32(Variant(std::string(" 12 "))), 12);
  EXPECT_EQ(ToInt32(Variant(std::string("9999\r"))), 9999);  // a list with foreign line ends
  EXPECT_EQ(ToInt32(Variant(std::string("2.5"))), 2);
  EXPECT_EQ(ToInt32(Variant(std::string("&HFFFF"))), -1);
  EXPECT_EQ(ToInt32(Variant(std::string("&H10000"))), 65536);
  EXPECT_EQ(ToInt32(Variant(std::string("&o17"))), 15);
  EXPECT_EQ(ToInt32(Variant(true)), -1);
  EXPECT_EQ(ToInt32(Variant()), 0);
  EXPECT_TRUE(ToBoolean(Variant(std::string("tRuE"))));
  EXPECT_FALSE(ToBoolean(Variant(std::string("False"))));
  EXPECT_FALSE(ToBoolean(Variant(std::string("0.0"))));
  EXPECT_TRUE(ToBoolean(Variant(0.25)));
  EXPECT_EQ(ToText(Variant(0.1F)), "0.1");
  EXPECT_EQ(ToText(Variant(true)), "True");
  for (const char* text : {"", "abc", "1x", "1 2", "1,5", "&H", "&HG", "--1", "1E+", "1.2.3"})
    EXPECT_EQ(NumberOf([=] { ToInt32(Variant(std::string(text))); }), 13) << text;
  EXPECT_EQ(NumberOf([] { ToBoolean(Variant(std::string("yes"))); }), 13);
  EXPECT_EQ(NumberOf([] { ToText(Variant(Bytes{1})); }), 13);
  EXPECT_EQ(NumberOf([] { ToInt32(Variant(std::string("1E400"))); }), 6);
}

}  // namespace
}  // namespace ptzd
