#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/json.h"

namespace {

using namespace std::literals;

// Rows are written "value -> what becomes of it".
constexpr std::string_view kTo = " -> ";

std::string textOf(const std::string& row) { return row.substr(0, row.find(kTo)); }

std::string converted(const std::string& row) {
  JSONNode root = JSONWorker::parse("[" + textOf(row) + "]");
  const JSONNode& node = root[0U];
  const auto natural = static_cast<unsigned long long>(node);
  const auto truth = static_cast<bool>(JSONWorker::parse("[" + textOf(row) + "]")[0U]);  // unread
  return textOf(row) + " -> " + std::to_string(static_cast<long long>(node)) + ' ' +
         std::to_string(natural) + (truth ? " 1" : " 0");
}

TEST(Numbers, AreRecognisedMoreWidelyThanTheStandardHasIt) {
  for (const std::string text :
       {"0",    "7",     "42",       "-1",      "+1",   "-0",
        "-007", "1.",    "1.5",      ".5",      ".",    "0.",
        "0.5",  "0.5e3", "1e5",      "1E+5",    "1e-5", "0e5",
        "0E5",  "0e+",   "0e-5",     "00",      "007",  "017",
        "0x",   "0x1F",  "0xabcdef", "+1.5e+3", ".5e1", "12345678901234567890"}) {
    EXPECT_TRUE(NumberToString::isNumeric(text)) << text;
  }
  for (const std::string text :
       {"",     "-",    "+",    "-.5",  "+e5",   "08",   "018", "0a",  "0X1F", "0x1G",
        "0e",   "0ex",  "0e+x", "0e5.", "0.5.5", "0.5e", "1e",  "1e+", "1e+x", "1e5e",
        "1e.5", "1.1.", "1e5.", "1a",   "1 ",    "a",    "e5",  "1-1", ".5.",  "0e5e5"}) {
    EXPECT_FALSE(NumberToString::isNumeric(text)) << text;
  }
}

TEST(Numbers, KeepTheirTextAndConvertLikeTheCLibrary) {
  for (const std::string text :
       {"42", "007", "017", "0x1F", "0x", "1.50", "-3.99", "+8", ".", "999999999999999",
        "1234567890123456", "12345678901234567890", "-1e300", "1e999"}) {
    for (const JSONNode& value : JSONWorker::parse("[" + text + ",\"" + text + "\"]")) {
      EXPECT_EQ(value.as_float(), std::strtod(text.c_str(), nullptr)) << text;
      EXPECT_EQ(value.as_string(), text);
    }
  }
}

TEST(Conversions, NeverFail) {
  // A value, and it as long, as unsigned long long and as bool.
  for (const std::string row :
       {"007 -> 7 7 1", "3.99 -> 3 3 1", "-3.99 -> -3 0 1", "-0.5 -> 0 0 1", "0.0 -> 0 0 0",
        "\"12abc\" -> 12 12 1", "\" 5\" -> 5 5 1", "\"abc\" -> 0 0 1", "\"\" -> 0 0 0",
        "\"nan\" -> 0 0 1", "\"-7\" -> -7 0 1", "true -> 1 1 1", "false -> 0 0 0", "null -> 0 0 0",
        "tru -> 0 0 0", "[1] -> 0 0 1", "{} -> 0 0 0",
        "9e18 -> 9000000000000000000 9000000000000000000 1"}) {
    EXPECT_EQ(converted(row), row);
  }
  for (const std::string row : {"1e300 -> 9223372036854775807 18446744073709551615 1",
                                "9223372036854775808 -> 9223372036854775807 9223372036854775808 1",
                                "-1e300 -> -9223372036854775808 0 1"}) {
    EXPECT_EQ(converted(row), row);
  }
  EXPECT_EQ(static_cast<long double>(JSONNode("n", 1.25)), 1.25L);
  for (const bool truth : {true, false}) EXPECT_EQ(JSONNode("n", truth).as_int(), truth ? 1 : 0);
}

template <typename... Values>
std::string texts(Values... values) {
  return ((JSONNode("n", values).as_string() + '|') + ...);
}

TEST(Constructors, GiveEveryValueItsText) {
  EXPECT_EQ(texts('A', static_cast<unsigned char>(200), static_cast<short>(SHRT_MIN),
                  static_cast<unsigned short>(65535), 0, INT_MIN, UINT_MAX),
            "65|200|-32768|65535|0|-2147483648|4294967295|");
  EXPECT_EQ(texts(LONG_MIN, ULONG_MAX, LLONG_MAX, ULLONG_MAX),
            "-9223372036854775808|18446744073709551615|9223372036854775807|18446744073709551615|");
  EXPECT_EQ(texts(1.5F, -2.25, 3.0L, true, false, "a/b", "a\0b"s),
            "1.500000|-2.250000|3.000000|true|false|a/b|a\0b|"s);
  EXPECT_EQ(texts(1.5e70L).substr(71) + texts(1e56L).substr(57), ".000000|.000000|");
  EXPECT_EQ(JSONNode("n", LONG_MIN).as_int(), LONG_MIN);
  EXPECT_EQ(NumberToString::_itoa(static_cast<signed char>(-128)), "-128");
  std::string empty;
  for (const char type :
       {JSON_NULL, JSON_STRING, JSON_NUMBER, JSON_BOOL, JSON_ARRAY, JSON_NODE, char{9}}) {
    empty += JSONNode(type).as_string() + '|';
  }
  EXPECT_EQ(empty, "null||0|false|||null|");
}

TEST(Casts, GoByWhatTheValueReadsAs) {
  const std::vector<std::pair<char, std::vector<std::string>>> cases{
      {JSON_STRING, {R"("/" -> "/")", R"(1.50 -> "1.50")", R"(true -> "true")"}},
      {JSON_NUMBER, {R"("12abc" -> 12)", R"("2.5" -> 2.500000)", "true -> 1"}},
      {JSON_NUMBER, {R"("nan" -> null)", R"("inf" -> null)"}},
      {JSON_BOOL, {"0x10 -> true", R"("" -> false)"}},
      {JSON_ARRAY, {R"({"a":1} -> [1])", "[1:2] -> []", "[1,2:3] -> []"}},
      {JSON_NODE, {R"([1] -> {"":1})", "5 -> {}"}},
      {JSON_NULL, {"[1] -> null"}},
      {char{77}, {"5 -> null"}},
  };
  for (const auto& [type, rows] : cases) {
    for (const std::string& row : rows) {
      JSONNode node = JSONWorker::parse("[" + textOf(row) + "]");
      const JSONNode sharer = node;  // so that a copy is cast
      node[0U].cast(type);
      EXPECT_EQ(node.write(), "[" + row.substr(row.find(kTo) + kTo.size()) + "]") << row;
      EXPECT_TRUE(node == JSONWorker::parse(node.write())) << row;  // the value, not its text alone
    }
  }
  JSONNode emptied("q", 7);
  JSONNode nulled = emptied;
  emptied.cast(JSON_NODE);
  nulled.cast(JSON_NULL);
  nulled.cast(JSON_NUMBER);
  EXPECT_EQ(emptied.as_string() + std::to_string(emptied.as_int() + nulled.as_int()), "0");
  const JSONNode object = JSONWorker::parse(R"({"a":1,"b":[2]})");
  EXPECT_EQ(object.as_array().as_node().write(), R"({"":1,"":[2]})");
}

}  // namespace
