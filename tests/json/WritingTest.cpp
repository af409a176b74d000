#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "json/_internal/Source/JSONPage.h"
#include "json/json.h"

namespace {

std::string written(const std::string& text) {
  JSONNode list(JSON_ARRAY);
  list.push_back(JSONNode("", text));
  return list.write();
}

TEST(Escapes, AreMadeForEveryByteOutsidePrintableAscii) {
  constexpr std::string_view kShort = "\\/\"\b\t\n\f\r";
  for (unsigned int code = 0; code < 256; ++code) {
    const auto byte = static_cast<char>(code);
    const std::size_t place = kShort.find(byte);
    std::string expected(1, byte);
    if (place != std::string_view::npos) {
      expected = "\\";
      expected += "\\/\"btnfr"[place];
    } else if (code < 0x20 || code > 0x7E) {
      expected = JSONWorker::toUTF8(static_cast<unsigned char>(code));
    }
    // Sixteen bytes are looked at and copied at a time: every length comes, and every place.
    const std::string before(code % 71, 'a');
    const std::string after(code % 29, 'z');
    const std::string text = before + byte + after;
    EXPECT_EQ(written(text), "[\"" + before + expected + after + "\"]");
    for (const char* space : {"", " "}) {  // with a space in front it is compacted
      JSONNode root = JSONWorker::parse(space + written(text));
      EXPECT_EQ(root.write() + root[0U].as_string(), written(text) + text);
    }
  }
  std::string output = "x";
  JSONWorker::UnfixString("\xC3\xB1\x0B\x7F\x01", true, output);
  EXPECT_EQ(output, R"(x\u00C3\u00B1\u000B\u007F\u0001)");
  JSONNode aPage = JSONWorker::parse(written(std::string(4094, 'x')));
  EXPECT_EQ(aPage[0U].as_string().size(), 4094U);
  EXPECT_EQ(aPage.write().size(), 4098U);
}

JSONNode named(char type, std::string_view name) {
  JSONNode node(type);
  node.set_name(name);
  return node;
}

TEST(Writing, FixesEveryByteOfBothForms) {
  JSONNode answer(JSON_NODE);
  EXPECT_EQ(answer.write() + answer.write_formatted(), "{}{}");

  JSONNode list = named(JSON_ARRAY, "l");
  list.push_back(JSONNode("ignored", 1));
  list.push_back(JSONNode("", true));
  JSONNode tree = named(JSON_NODE, "never written");
  tree.push_back(JSONNode("t/\"\xC3", "tab\tline\nquote\""));
  tree.push_back(named(JSON_ARRAY, "e"));
  tree.push_back(list);
  tree.push_back(named(JSON_NULL, "n"));
  EXPECT_EQ(tree.write(1024),
            "{\"t\\/\\\"\\u00C3\":\"tab\\tline\\nquote\\\"\",\"e\":[],\"l\":[1,true],\"n\":null}");
  EXPECT_EQ(tree.write_formatted(2048),
            "{\n\t\"t\\/\\\"\\u00C3\" : \"tab\\tline\\nquote\\\"\",\n\t\"e\" : [],\n\t\"l\" : [\n"
            "\t\t1,\n\t\ttrue\n\t],\n\t\"n\" : null\n}");
  EXPECT_EQ(JSONNode("n", "text").write() + JSONNode("n", 1).write_formatted(), "");
  const JSONNode malformed = JSONWorker::parse(R"({"a" 1})");
  EXPECT_EQ(malformed.write_formatted() + malformed.write_formatted(), "");
}

TEST(Writing, IndentsByOneTabPerLevelHoweverDeep) {
  constexpr std::size_t kDepth = 300;  // more tabs than the first memory has room for
  JSONNode root = JSONWorker::parse(std::string(kDepth, '[') + "1" + std::string(kDepth, ']'));
  std::string expected = "1";
  for (std::string tabs(kDepth, '\t'); !tabs.empty(); tabs.pop_back()) {
    expected = "[\n" + tabs + expected + "\n" + tabs.substr(1) + "]";
  }
  EXPECT_EQ(root.write_formatted(), expected);
}

TEST(Writing, LeavesNothingOfATextInThePageItWasWrittenOn) {
  if (!json_detail::kMemoryIsReused) GTEST_SKIP() << "the sanitizers get every block back";
  EXPECT_EQ(written(std::string(200, 'x')).size(), 204U);
  void* const page = json_detail::JSONPage::List::take();  // the last that was given back
  const std::string_view left(static_cast<char*>(page), 204);
  EXPECT_EQ(left.find('x', sizeof page), std::string_view::npos);  // after the list's pointer
  json_detail::JSONPage::List::give(page);
}

TEST(Writing, GivesBackWhatWasNotReadAsItCameIn) {
  const std::string text =
      "/*c*/ { \"a/\xC3\" : \"b/\xC3\" , \"n\":[ 1.50, 007, tru ],/*x*/ \"q\\\"\":\"\\\"\\u00e9\" "
      "}";
  JSONNode root = JSONWorker::parse(text);
  EXPECT_EQ(root.write(), "{\"a/\xC3\":\"b/\xC3\",\"n\":[1.50,007,tru],\"q\\\"\":\"\\\"\\u00e9\"}");
  // Read: values without an escape keep their bytes, others are escaped anew; names stay raw.
  EXPECT_EQ(root["a/\xC3"].as_string(), "b/\xC3");
  EXPECT_EQ(root["q\""].as_string(), "\"\xE9");
  EXPECT_EQ(root.write(), "{\"a/\xC3\":\"b/\xC3\",\"n\":[1.50,007,tru],\"q\"\":\"\\\"\\u00E9\"}");
  EXPECT_EQ(root["n"].size(), 3U);
  EXPECT_EQ(root["n"].write(), "[1.50,007,null]");
  // Formatted: what is malformed shows as null, unread strings keep their text.
  EXPECT_EQ(JSONWorker::parse(R"({"a":[1:2],"s":"\u00e9\"\/"})").write_formatted(),
            "{\n\t\"a\" : null,\n\t\"s\" : \"\\u00e9\\\"\\/\"\n}");
  EXPECT_EQ(JSONWorker::parse("[\"\",1,//a\n\"#\",[/*\"*/]]//\n]").write(), "[\"\",1,\"#\",[]]]");
  EXPECT_EQ(JSONWorker::parse_unformatted("[#c#1]").write(), "[1]");
}

TEST(Writing, PutsCommentsOnLinesOfTheirOwn) {
  JSONNode root = JSONWorker::parse("//t\n{/*o*/\"a\":10000,/*x*//*y*/\"b\":2}");
  EXPECT_EQ(root.write_formatted(),
            "\n//t\n{\n\t\n\t//o\n\t\"a\" : 10000,\n\t\n\t/*\n\t\tx\n\t\ty\n\t*/\n\t\"b\" : 2\n}");
  root[0U].set_name("another name");
  root[0U].cast(JSON_STRING);
  EXPECT_EQ(root.write(), R"({"another name":"10000","b":2})");
  root.set_comment("a*/b\n*/");
  EXPECT_EQ(root.write_formatted().substr(0, 18), "\n/*\n\ta* /b\n\t* /\n*/");
}

}  // namespace
