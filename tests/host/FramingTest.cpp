#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "tests/host/TokenHost.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

const std::string kVersionFrame = frame(kVersionRequest);
const std::string kVersionAnswer = frame(indented(kFreshVersion));

std::string times(int count, const std::string& bytes) {
  std::string all;
  while (count-- > 0) all += bytes;
  return all;
}

std::string refusals(int count) { return times(count, frame(indented(kTooLong))); }

TEST(NativeFraming, IsChosenByEveryCommandLineButTheExactWord) {
  for (const char* argument : {"", "WS", "ws ", "wss", "chrome-extension://abcdefgh/", "w"}) {
    HostProcess host({argument, "ws"});
    EXPECT_EQ(host.ask(kVersionRequest), indented(kFreshVersion)) << argument;
  }
  EXPECT_EQ(HostProcess({"ws", "native"}).ask(kVersionRequest), kFreshVersion);
}

TEST(NativeFraming, InputAndOutputToTheByte) {
  struct Case {
    const char* name;
    std::string input;
    std::string output;
    bool closesInput = true;  ///< else the host ends without being told
  };
  const std::string padding(999 - kVersionRequest.size(), ' ');
  const Case cases[] = {
      {"no input", "", ""},
      {"a length cut off", "\x0d", ""},
      {"a length cut off counts as far as it came: 1000", "\xe8\x03", refusals(1)},
      {"nothing after the length", lengthBytes(500), ""},
      {"half of a frame", lengthBytes(7) + "{\"a\"", ""},
      {"a frame cut off holds the bytes that came, and nothing of earlier requests",
       frame(pinCharRequest("1") + std::string(40, ' ')) + lengthBytes(60) + R"({"command":7})",
       frame(indented(fullAnswer(6, 1, R"("ok":true)"))) +
           frame(indented(fullAnswer(7, 0, R"("ok":true)")))},
      {"a zero byte ends the text but not the frame",
       frame(kVersionRequest + "\0, and more"s) + kVersionFrame, kVersionAnswer + kVersionAnswer},
      {"so that a string may be left open",
       frame(R"({"command":8,"x":")" + "\0\"}"s) + kVersionFrame, kVersionAnswer},
      {"more frames than are read at once", times(2000, kVersionFrame),
       times(2000, kVersionAnswer)},
      {"999 bytes", frame(kVersionRequest + padding), kVersionAnswer},
      // A long message is not skipped: what follows is read as frames of its own.
      {"1000 bytes: two long lengths, then a request",
       lengthBytes(1000) + "AAAABBBB" + kVersionFrame, refusals(3) + kVersionAnswer},
      {"1000 bytes of spaces", lengthBytes(1000) + std::string(996, ' ') + lengthBytes(0),
       refusals(1 + 996 / 4), false},
      {"length 0", lengthBytes(0) + kVersionFrame, "", false},
      {"length -1", lengthBytes(-1) + kVersionFrame, "", false},
      {"the lowest length", lengthBytes(INT32_MIN) + kVersionFrame, "", false},
      {"the command to end", frame(kEndRequest) + kVersionFrame, "", false},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(outputFor(test.input, test.closesInput), test.output) << test.name;
  }
}

TEST(WebsocketFraming, OneLinePerMessageOfAnyLength) {
  const std::string lines[] = {
      R"({"command":8,"filler":")" + std::string(300'000, 'x') + "\"}",
      // A carriage return is white space of the text; empty and malformed lines are dropped.
      "\n\nnot json\n" + kVersionRequest + "\r",
      // A zero byte outside a string truncates the text like any other control byte.
      "{\0}\n"s + kVersionRequest + "\0"s,
      R"({"command":8,"x":")" + "\0\"}"s,
  };
  HostProcess host({"ws"});
  for (const std::string& line : lines) EXPECT_EQ(host.ask(line), kFreshVersion);
  host.say(kEndRequest);
  EXPECT_EQ(host.hearAll(), "");
  EXPECT_EQ(host.wait(), 0);
}

/// Whoever waits uses no processor time, on any thread.
void expectRest(const HostProcess& process) {
  const auto nanoseconds = [&] {
    clockid_t clock{};
    timespec used{};
    EXPECT_FALSE(clock_getcpuclockid(process.pid(), &clock) || clock_gettime(clock, &used));
    return used.tv_sec * 1'000'000'000 + used.tv_nsec;
  };
  const long before = nanoseconds();
  std::this_thread::sleep_for(500ms);
  EXPECT_LT(nanoseconds() - before, 30'000'000);
  EXPECT_NE(statusOf(process.pid(), "State"), "Z (zombie)");
}

// Intended: while somebody reads, the end of input ends no host in websocket mode, as a FIFO's next
// writer may come. Waiting must cost nothing.
TEST(WebsocketFraming, GoesOnAfterTheEndOfInput) {
  const TemporaryFolder folder;
  ASSERT_EQ(mkfifo(folder.file("input").c_str(), 0600), 0);
  HostProcess host({"ws"}, {"sh", "-c", "exec \"$0\" \"$@\" <'" + folder.file("input") + "'"});
  for (const char* lineEnd : {"\n", "", ""}) {  // The end of input ends a line too.
    std::ofstream(folder.file("input")) << kVersionRequest << lineEnd;
    EXPECT_EQ(host.hear(), kFreshVersion);
    expectRest(host);
  }
  host.closeOutput();
  EXPECT_EQ(host.wait(), 0);

  HostProcess relayed({"ws"});  // by sockets that do not block
  EXPECT_EQ(relayed.ask(kVersionRequest), kFreshVersion);
  expectRest(relayed);
  relayed.closeInput();
  expectRest(relayed);
}

// With the browser or the relay killed, nobody can hear an answer: not even a module that hangs
// keeps the process, and the PIN in it, alive. One end alone is nothing: requests may stay unread.
TEST(End, ComesWhenNobodyReadsOrWritesAnyMore) {
  for (const char* mode : {"native", "ws"}) {
    for (const bool outputFirst : {false, true}) {
      TokenHost token(FAKE_TOKEN, "env", mode);
      token.script("hang C_Initialize 1\n");
      HostProcess& host = token.process;
      host.say(kListRequest);
      std::this_thread::sleep_for(300ms);  // It has begun.
      host.say(kVersionRequest);
      std::set<std::string> blocked;  // Signals are for the threads that the module knows.
      for (const auto& thread :
           std::filesystem::directory_iterator("/proc/" + std::to_string(host.pid()) + "/task")) {
        blocked.insert(statusOf(std::stoi(thread.path().filename()), "SigBlk"));
      }
      EXPECT_EQ(blocked.size(), 2U);
      outputFirst ? host.closeOutput() : host.closeInput();
      expectRest(host);
      outputFirst ? host.closeInput() : host.closeOutput();
      EXPECT_EQ(host.wait(), 0) << mode << outputFirst;
    }
  }
  // Input that has no other end counts as gone.
  const TemporaryFolder folder;
  folder.write("script", "hang C_Initialize 1\n");
  folder.write("input", frame(initializeRequest()) + frame(kListRequest));
  const std::string module = "SIGNING_HOST_PKCS11_MODULE=" FAKE_TOKEN;
  HostProcess host({}, {"env", module, "FAKE_TOKEN_SCRIPT=" + folder.file("script"), "sh", "-c",
                        "exec \"$0\" <'" + folder.file("input") + "'"});
  EXPECT_NE(host.hear(), "");
  host.closeOutput();
  EXPECT_EQ(host.wait(), 0);
}

// Whatever the starter left closed, the host serves what it can and ends with its input. What it
// does not write to its reader leads nowhere, and into no file that is opened later.
TEST(Descriptors, LeftClosedByTheStarter) {
  for (const std::string closed :
       {"", "2>&-", "<&-", ">&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-"}) {
    HostProcess host({}, {"sh", "-c", "exec \"$0\" " + closed});
    for (const std::string& text : {kVersionRequest, initializeRequest(), kListRequest}) {
      host.say(text);
    }
    if (closed.empty() || closed == "2>&-") {
      EXPECT_EQ(host.hear(), indented(kFreshVersion)) << closed;
      std::string links;  // which the host shows to root alone
      for (const char* number : {"0", "1", "2"}) {
        std::error_code denied;
        links += std::filesystem::read_symlink(
            "/proc/" + std::to_string(host.pid()) + "/fd/" + number, denied);
      }
      const std::string errors = closed.empty() ? "/memfd:stderr (deleted)" : "/dev/null";
      EXPECT_EQ(links, geteuid() == 0 ? "/dev/null" + errors + errors : "") << closed;
    }
    host.closeInput();
    host.hearAll();
    EXPECT_EQ(host.wait(), 0) << closed;
  }
}

// A long conversation leaves the process as it was after its first rounds.
constexpr int kRounds = kSanitized ? 300 : 6'000;  // A sanitized process is far slower.
// What a hundred bytes, lost once a round, would come to.
constexpr long kToleranceKilobytes = kSanitized ? 1'000'000 : kRounds * 100 / 1000;

TEST(Endurance, AHundredThousandMixedRequests) {
  std::string round;
  for (const std::string& request :
       {kVersionRequest, initializeRequest(""), kListRequest, initializeRequest(), kListRequest,
        setPinRequest("1234567890123456789012345678901234567890"), pinCharRequest("1"),
        std::string(R"({"command":7})"), kRetrieveRequest, kSignRequest, kSignRequest,
        std::string(R"({"command":5,"certId":"oQ==","digest":"AAEC"})"),
        std::string(R"({"command":4,"certId":"!"})")}) {  // leaves its session open
    round += frame(request);
  }
  const int answers = 13 + 2;
  for (const char* dropped : {"not json", "{\"command\":8", "{\"command\" 8}",
                              R"({"command":99,"deep":[[[[{"a":[1,2,{"b":"\u00e9"}]}]]]]})"}) {
    round += frame(dropped);
  }
  round += lengthBytes(1000) + lengthBytes(1000);  // too long, each
  TokenHost token;
  token.script("key a1\ncertificate a1 hex 3003020101\n");
  HostProcess& host = token.process;
  // Threads, and in steps of 64 the room for descriptors.
  const auto held = [&] {
    return statusOf(host.pid(), "Threads") + statusOf(host.pid(), "FDSize");
  };
  const auto converse = [&](int rounds) {
    for (int heard = 0; heard < rounds * answers; ++heard) {
      if (heard % answers == 0) host.send(round);
      ASSERT_TRUE(host.hear().starts_with("{\n\t\"command\" : ")) << heard;
    }
  };
  converse(50);  // to warm up
  const std::string early = held();
  const long before = std::stol(statusOf(host.pid(), "VmRSS"));
  converse(kRounds);
  EXPECT_GT(told(nlohmann::json::parse(host.ask(kSignRequest))).size(), 256U);
  EXPECT_EQ(held(), early);
  EXPECT_LT(std::stol(statusOf(host.pid(), "VmRSS")), before + kToleranceKilobytes);
  host.say(kEndRequest);
  EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(host.hearAll() + host.standardError(), "");
}

}  // namespace
