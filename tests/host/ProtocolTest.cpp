#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "tests/host/Envelopes.h"
#include "tests/host/HostProcess.h"

namespace {

constexpr std::string_view kInitialize =
    R"({"command":0,"signature":"s","domains":"d","currentDomain":"c","caSubjectNames":""})";

/// A PIN command's answer on a host that has not reached the token.
std::string pinAnswer(int command, int pinLength) {
  return R"({"command":)" + std::to_string(command) +
         R"(,"error":false,"errorMessage":"","lastError":0,"lastLowLevelError":0,)"
         R"("pinModuleName":"","missingPin":false,"invalidPin":false,"pinLength":)" +
         std::to_string(pinLength) + R"(,"ok":true})";
}

TEST(Outcomes, EveryAnswerToTheByteInBothFramings) {
  struct Exchange {
    std::string request;
    std::string answer;
  };
  const Exchange conversation[] = {
      {R"({"command":8})", std::string(kFreshVersion)},
      {R"({"command":2})", std::string(kNotInitialized)},
      // Intended: the refusal names command 2 whichever was asked; the members are not even read.
      {R"({"command":4})", std::string(kNotInitialized)},
      {R"({"command":5})", std::string(kNotInitialized)},
      {R"({"command":3,"pin":"123456"})", pinAnswer(3, 6)},
      {R"({"command":3,"pin":12.50})", pinAnswer(3, 5)},
      {R"({"command":3,"pin":""})", pinAnswer(3, 0)},
      {R"({"command":7})", pinAnswer(7, 0)},
      {R"({"command":6,"pinChar":"1"})", pinAnswer(6, 1)},
      {R"({"command":6,"pinChar":"56"})", pinAnswer(6, 2)},
      // Intended: an empty text lengthens the PIN by its terminating zero byte.
      {R"({"command":6,"pinChar":""})", pinAnswer(6, 3)},
      {R"({"command":7})", pinAnswer(7, 2)},
      {std::string(kInitialize), std::string(kInitialized)},
      {std::string(kInitialize), std::string(kInitialized)},
      // Initialize keeps the pending PIN.
      {R"({"command":7})", pinAnswer(7, 1)},
  };
  HostProcess native;
  HostProcess relay({"ws"});
  for (const Exchange& exchange : conversation) {
    EXPECT_EQ(native.ask(exchange.request), indented(exchange.answer)) << exchange.request;
    relay.send(exchange.request + "\n");
    EXPECT_EQ(relay.receiveLine(), exchange.answer) << exchange.request;
  }
  native.sendFrame(R"({"command":1})");
  EXPECT_EQ(native.receiveRest(), "");
  EXPECT_EQ(native.wait(), 0);
}

TEST(CommandCode, IsTheFirstPlainCommandMemberTruncatedToItsLow32Bits) {
  enum Outcome { kVersion, kPinDeleted, kEnd, kRefusal, kDropped };
  struct Case {
    const char* request;
    Outcome outcome;
  };
  const Case cases[] = {
      {R"({"command":8.9})", kVersion},
      {R"({"command":"8"})", kVersion},
      {R"({"command":"8 and more"})", kVersion},
      {R"({"command":8e0})", kVersion},
      {R"({"command":010})", kDropped},  // Octal-looking, read as ten.
      {R"({"command":4294967298})", kRefusal},
      {R"({"command":-4294967288})", kVersion},
      {R"({"command":true})", kEnd},
      {R"({"command":1.99})", kEnd},
      {R"({"command":9})", kDropped},
      {R"({"command":-1})", kDropped},
      {R"({"command":1e300})", kDropped},
      {R"({"command":-1e300})", kDropped},
      {R"({"command":9223372036854775808})", kDropped},
      {R"({"command":1e999})", kDropped},
      {R"({"command":"nan"})", kDropped},
      {R"({"command":[8]})", kDropped},
      {R"({"command":{"command":8}})", kDropped},
      {R"({"command":{},"command":8})", kVersion},
      {R"({"command":{x},"command":8})", kVersion},
      {R"({"command":8,"x":})", kVersion},
      {R"({"command":8,"x"})", kDropped},
      {R"({"command":7,"command":8})", kPinDeleted},
      {R"({"Command":8})", kDropped},
      {R"({"\u0063ommand":8})", kVersion},
      {R"({"x":{"command":8}})", kDropped},
      {R"([8])", kDropped},
      {R"([{"command":8}])", kDropped},
      {R"({})", kDropped},
      {R"([])", kDropped},
      {R"({"command" 8})", kDropped},
      {R"({"a":1,})", kDropped},
      {R"({"command":8)", kDropped},
      {R"("command")", kDropped},
      {R"(8)", kDropped},
      {R"( )", kDropped},
      {R"({"command":8} x)", kDropped},
      {"/* c */ {\"command\" : 8, \"b\" : [1,,] }", kVersion},
      {R"({"command":8} // a comment behind the root)", kDropped},
  };
  for (const Case& test : cases) {
    HostProcess host;
    host.sendFrame(test.request);
    host.sendFrame(R"({"command":8})");  // A dropped request never takes the next one with it.
    host.closeInput();
    const std::string output = host.receiveRest();
    const std::string version = HostProcess::frame(indented(kFreshVersion));
    std::string expected;
    switch (test.outcome) {
      case kVersion:
        expected = version + version;
        break;
      case kPinDeleted:
        expected = HostProcess::frame(indented(pinAnswer(7, 0))) + version;
        break;
      case kRefusal:
        expected = HostProcess::frame(indented(kNotInitialized)) + version;
        break;
      case kDropped:
        expected = version;
        break;
      case kEnd:
        break;
    }
    EXPECT_EQ(output, expected) << test.request;
    EXPECT_EQ(host.wait(), 0) << test.request;
  }
}

// "command" null or false is command 0, and what it lacks ends the process like anywhere else.
TEST(MissingMember, EndsTheProcessWithOneLineAndNoAnswer) {
  for (const char* request :
       {R"({"command":0})", R"({"command":null})", R"({"command":false,"signature":"s"})",
        R"({"command":"abc"})", R"({"command":3})", R"({"command":3,"Pin":"1"})",
        R"({"command":6,"pin":"1"})"}) {
    HostProcess host;
    host.sendFrame(request);
    host.sendFrame(R"({"command":8})");
    EXPECT_EQ(host.receiveRest(), "") << request;
    const std::optional<int> status = host.wait();
    EXPECT_TRUE(status.has_value() && *status != 0) << request;
    const std::string error = host.standardError();
    EXPECT_EQ(error.find('\n'), error.size() - 1) << error;
  }
  for (const char* request :
       {R"({"command":4})", R"({"command":5,"certId":"YQ=="})", R"({"command":5,"digest":""})"}) {
    HostProcess relay({"ws"});
    relay.send(std::string(kInitialize) + "\n" + request + "\n" + R"({"command":8})" + "\n");
    EXPECT_EQ(relay.receiveRest(), std::string(kInitialized) + "\n") << request;
    EXPECT_NE(relay.wait(), 0);
  }
}

}  // namespace
