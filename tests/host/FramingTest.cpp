#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/host/Envelopes.h"
#include "tests/host/HostProcess.h"

namespace {

using namespace std::string_literals;

const std::string kVersionRequest = R"({"command":8})";

std::string lengthBytes(std::int32_t length) {
  return {reinterpret_cast<const char*>(&length), sizeof length};
}

TEST(NativeFraming, IsChosenByEveryCommandLineButTheExactWord) {
  for (const char* argument : {"", "WS", "ws ", "wss", "chrome-extension://abcdefgh/", "w"}) {
    HostProcess host({argument, "ws"});
    EXPECT_EQ(host.ask(kVersionRequest), indented(kFreshVersion)) << argument;
  }
  HostProcess relay({"ws", "native"});
  relay.send(kVersionRequest + "\n");
  EXPECT_EQ(relay.receiveLine(), kFreshVersion);
}

TEST(NativeFraming, EndsAtAZeroLengthAndAtTheEndOfInputWithoutOutput) {
  const std::string answerless[] = {"",
                                    "\0\0\0\0"s + HostProcess::frame(kVersionRequest),
                                    "\x0d",
                                    "\x0d\0\0\0"s,
                                    lengthBytes(500),
                                    "\x07\0\0\0{\"a\""s};
  for (const std::string& input : answerless) {
    HostProcess host;
    host.send(input);
    host.closeInput();
    EXPECT_EQ(host.receiveRest(), "") << testing::PrintToString(input);
    EXPECT_EQ(host.wait(), 0);
  }
}

TEST(NativeFraming, ALengthCutOffByTheEndOfInputCountsAsFarAsItCame) {
  HostProcess host;
  host.send("\xe8\x03"s);  // 1000 in its two lower bytes
  host.closeInput();
  EXPECT_EQ(host.receiveRest(), HostProcess::frame(indented(kTooLong)));
  EXPECT_EQ(host.wait(), 0);
}

// A frame cut off by the end of input holds the bytes that came, and nothing of earlier requests.
TEST(NativeFraming, TakesWhatArrivedOfACutOffFrame) {
  HostProcess host;
  host.sendFrame(R"({"command":6,"pinChar":"1"}                                 )");
  ASSERT_TRUE(host.receiveFrame());
  host.send(lengthBytes(60) + R"({"command":7})");
  host.closeInput();
  EXPECT_NE(host.receiveFrame().value_or("").find(R"("pinLength" : 0)"), std::string::npos);
  EXPECT_EQ(host.receiveRest(), "");
  EXPECT_EQ(host.wait(), 0);
}

TEST(NativeFraming, LengthLimitIs999AndALongMessageIsNotSkipped) {
  HostProcess host;
  const std::string longest = kVersionRequest + std::string(999 - kVersionRequest.size(), ' ');
  EXPECT_EQ(host.ask(longest), indented(kFreshVersion));

  // 1000 bytes: refused, then read as frames of their own: twice four bytes that are long lengths,
  // then a length that takes the next bytes as a request.
  const std::string payload = "AAAABBBB" + HostProcess::frame(kVersionRequest);
  host.send(lengthBytes(1000) + payload);
  for (int refused = 0; refused < 3; ++refused) {
    EXPECT_EQ(host.receiveFrame(), indented(kTooLong));
  }
  EXPECT_EQ(host.receiveFrame(), indented(kFreshVersion));
  host.send(lengthBytes(1000) + std::string(996, ' ') + "\0\0\0\0"s);
  for (int refused = 0; refused < 1 + 996 / 4; ++refused) {
    EXPECT_EQ(host.receiveFrame(), indented(kTooLong));
  }
  EXPECT_EQ(host.receiveRest(), "");
  EXPECT_EQ(host.wait(), 0);
}

TEST(NativeFraming, NegativeLengthEndsTheConversation) {
  for (const std::int32_t length : {-1, -1000, INT32_MIN}) {
    HostProcess host;
    host.send(lengthBytes(length) + HostProcess::frame(kVersionRequest));
    EXPECT_EQ(host.receiveRest(), "");
    EXPECT_EQ(host.wait(), 0) << length;
  }
}

TEST(NativeFraming, AZeroByteEndsTheTextButNotTheFrame) {
  HostProcess host;
  EXPECT_EQ(host.ask(kVersionRequest + "\0, and more"s), indented(kFreshVersion));
  EXPECT_EQ(host.ask(kVersionRequest), indented(kFreshVersion));
}

TEST(NativeFraming, BytesMayArriveOneByOne) {
  HostProcess host;
  for (const char byte : HostProcess::frame(kVersionRequest)) {
    host.send({&byte, 1});
  }
  EXPECT_EQ(host.receiveFrame(), indented(kFreshVersion));
}

TEST(NativeFraming, TheBrowserClosingItsPipesAtAnyByteEndsTheProcess) {
  const std::string bytes = HostProcess::frame(kVersionRequest);
  for (std::size_t sent = 0; sent <= bytes.size(); ++sent) {
    HostProcess host;
    host.send(std::string_view(bytes).substr(0, sent));
    host.closeInput();
    host.closeOutput();
    EXPECT_EQ(host.wait(), 0) << sent;
  }
}

TEST(WebsocketFraming, OneLinePerMessageOfAnyLength) {
  HostProcess host({"ws"});
  host.send(R"({"command":8,"filler":")" + std::string(300'000, 'x') + "\"}\n");
  EXPECT_EQ(host.receiveLine(), kFreshVersion);
  // A carriage return is white space of the text; empty and malformed lines are dropped.
  host.send("\n\nnot json\n" + kVersionRequest + "\r\n");
  EXPECT_EQ(host.receiveLine(), kFreshVersion);
  // A zero byte outside a string truncates the text like any other control byte.
  host.send(kVersionRequest + "\0\n"s + R"({"command":8,"x":")" + "\0\"}\n"s + "{\0}\n"s);
  EXPECT_EQ(host.receiveLine(), kFreshVersion);
  EXPECT_EQ(host.receiveLine(), kFreshVersion);
  host.send("{\"command\":1}\n");
  EXPECT_EQ(host.receiveRest(), "");
  EXPECT_EQ(host.wait(), 0);
}

// Intended: only command 1 or a signal ends a host in websocket mode. Waiting must cost nothing.
TEST(WebsocketFraming, GoesOnAfterTheEndOfInput) {
  HostProcess host({"ws"});
  host.send(kVersionRequest);  // No line feed: the end of input ends the line.
  host.closeInput();
  EXPECT_EQ(host.receiveLine(), kFreshVersion);
  const double before = processorSeconds(host.pid());
  EXPECT_EQ(host.wait(std::chrono::seconds(3)), std::nullopt);
  EXPECT_LT(processorSeconds(host.pid()) - before, 0.03);
}

}  // namespace
