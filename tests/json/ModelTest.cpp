#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <string>
#include <string_view>
#include <utility>

#include "json/_internal/Source/FreeList.h"
#include "json/_internal/Source/internalJSONNode.h"
#include "json/json.h"

namespace {

TEST(CopyOnWrite, TakesEveryFieldOfEveryBody) {
  JSONNode tree = JSONWorker::parse(R"({"n":12.5, /*why*/ "s":"a\u00e9/"})");
  EXPECT_EQ(tree["n"].as_int() + static_cast<long>(tree["s"].as_string().size()), 15);
  tree.push_back(JSONNode("q/", "x/y"));
  JSONNode copy = tree;
  copy.set_name("other");
  EXPECT_EQ(copy.write_formatted(),
            "{\n\t\"n\" : 12.5,\n\t\n\t//why\n\t\"s\" : \"a\\u00E9\\/\",\n"
            "\t\"q\\/\" : \"x\\/y\"\n}");
  EXPECT_EQ(copy["n"].as_float(), 12.5);
}

TEST(Moves, LeaveTreesThatCanBeDestroyed) {
  JSONNode tree = JSONWorker::parse(R"({"a":{"b":[3,2,1]},"c":2})");
  JSONNode taken = std::move(tree["a"]);
  taken = std::move(taken["b"]);
  std::reverse(taken.begin(), taken.end());
  EXPECT_EQ(taken.write(), "[1,2,3]");
}

TEST(Lifetime, OfAMemberIsItsOwn) {
  JSONNode member;
  {
    JSONNode root =
        JSONWorker::parse(R"({"a name of more than 23 bytes":"so long a text as well"})");
    member = root[0U];
  }
  const JSONNode copy = member.duplicate();
  member.set_name(std::string(30, 'n'));
  member.set_name(std::string(23, 'm'));
  const JSONNode moved = std::move(member);
  EXPECT_EQ(moved.name() + moved.as_string(), std::string(23, 'm') + "so long a text as well");
  EXPECT_EQ(copy.name() + copy.as_string(), "a name of more than 23 bytesso long a text as well");
}

TEST(Laziness, ShowsInWhatIsFetched) {
  JSONNode root = JSONWorker::parse(R"({"s":"x","n":1,"a":[1],"t":true,"z":null})");
  const auto fetched = [&](const char* name) { return JSONNodeAccess::body(root[name]).fetched; };
  EXPECT_FALSE(JSONNodeAccess::body(root).fetched);
  EXPECT_FALSE(fetched("s") || fetched("n") || fetched("a"));
  EXPECT_TRUE(JSONNodeAccess::body(root).fetched && fetched("t") && fetched("z"));
  EXPECT_EQ(root["n"].as_int(), 1);
  EXPECT_TRUE(fetched("n") && !fetched("a"));
  EXPECT_TRUE(JSONNodeAccess::body(root).text.view().empty());
  internalJSONNode& list = JSONNodeAccess::body(root["a"]);
  const std::string_view whole = list.text.view();
  for (int i = 0; i < 2; ++i) JSONWorker::DoArray(list, whole);
  EXPECT_EQ(list.size(), 1U);  // in place of the one before
  JSONWorker::DoNode(JSONNodeAccess::body(root), "");
  EXPECT_EQ(root.type(), JSON_NULL);
}

TEST(Texts, AreClearedWhenTheyAreReplaced) {
  JSONNode node("0123456789", "9876543210");
  const std::string_view name = JSONNodeAccess::body(node).name.view();
  const std::string_view text = JSONNodeAccess::body(node).text.view();
  node.set_name("x");
  node.cast(JSON_NULL);
  EXPECT_EQ(std::string(name) + std::string(text), "x" + std::string(19, '\0'));
}

TEST(Equality, IsAboutTypesNamesValuesAndOrder) {
  const JSONNode node = JSONWorker::parse(R"({"a":1,"b":["x",true,null]})");
  EXPECT_TRUE(node == JSONWorker::parse(R"(/*c*/{"a":1.0,"b":["\u0078",true,nul]})"));
  for (const char* other :
       {R"({"b":["x",true,null],"a":1})", R"({"a":2,"b":["x",true,null]})",
        R"({"a":"1","b":["x",true,null]})", R"({"A":1,"b":["x",true,null]})",
        R"({"a":1,"b":["x",false,null]})", R"({"a":1,"b":["y",true,null]})",
        R"({"a":1,"b":["x",true]})", R"({"a":1,"b":{"":"x","":true,"":null}})"}) {
    EXPECT_FALSE(node == JSONWorker::parse(other)) << other;
  }
  JSONNode left = JSONWorker::parse("[1]");
  JSONNode right = JSONWorker::parse("[2]");
  right.push_back(JSONNode("", std::nan("")));
  left.push_back(right[1U]);
  EXPECT_FALSE(left == right);
  EXPECT_TRUE(left[1U] == right[1U]);  // the same body, whatever it holds
  EXPECT_TRUE(internalJSONNode::AreEqualNoCase("aZ[1", "Az[1"));
  EXPECT_FALSE(internalJSONNode::AreEqualNoCase("a[", "a{"));  // only letters fold
  EXPECT_FALSE(internalJSONNode::AreEqualNoCase("a", "ab"));
}

TEST(Threads, ReuseTheirOwnMemoryOnly) {
  const auto takeAndGive = [] {
    void* const block = json_detail::FreeList<char[100]>::take();
    json_detail::FreeList<char[100]>::give(block);
    return block;
  };
  const void* const given = takeAndGive();
  EXPECT_NE(std::async(std::launch::async, takeAndGive).get(), given);
}

// What is split out of copies must not pile up in the memory of the document they came from.
TEST(CopyOnWrite, CostsADocumentThatLivesOnNothing) {
  const JSONNode pattern = JSONWorker::parse(R"({"a":1,"b":{"c":"text","d":[true]}})");
  const auto inUse = [&pattern](int copies) {
    for (int i = 0; i < copies; ++i) {
      JSONNode copy = pattern;
      copy["b"].push_back(JSONNode("e", i));
    }
    return mallinfo2().uordblks;
  };
  const std::size_t before = inUse(10);
  EXPECT_LT(inUse(10'000), before + 10'000);
}

}  // namespace
