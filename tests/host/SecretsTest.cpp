// What of a PIN stands in the running host's memory, looked at from outside.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "tests/host/TokenHost.h"

namespace {

using nlohmann::json;
using namespace std::chrono_literals;
using Requests = std::vector<std::string>;

std::string memoryOf(pid_t process, std::size_t start, std::size_t size) {
  std::string bytes(size, '\0');
  std::ifstream memory("/proc/" + std::to_string(process) + "/mem");
  memory.seekg(static_cast<std::streamoff>(start));
  memory.read(bytes.data(), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<std::size_t>(memory.gcount()));
  return bytes;
}

/// The host cleans up after its answer; then it sleeps until the next request.
void waitUntilIdle(pid_t process) {
  while (statusOf(process, "State") != "S (sleeping)") std::this_thread::sleep_for(2ms);
}

/// How often each half of a PIN stands in the host's writable memory, and a piece: a copy whose
/// start a heap has overwritten is a copy all the same, and so is what a growing string object
/// leaves. Needs root: the host lets nobody else.
std::string counts(const TokenHost& host, const std::string& pin) {
  const pid_t process = host.process.pid();
  waitUntilIdle(process);
  std::string memory;
  std::istringstream maps(procText(process, "maps"));
  for (std::string line; std::getline(maps, line);) {
    std::size_t dash = 0;
    const std::size_t start = std::stoul(line, &dash, 16);
    const std::size_t end = std::stoul(line.substr(dash + 1), nullptr, 16);
    if (line.find(" rw") != std::string::npos) memory += memoryOf(process, start, end - start);
  }
  if (memory.size() < 100'000) throw std::runtime_error("the process's memory cannot be read");
  const auto count = [&](const std::string& half) {
    int found = 0;
    for (std::size_t at = 0; (at = memory.find(half, at)) != std::string::npos; ++at) ++found;
    return std::to_string(found);
  };
  return count(pin.substr(0, pin.size() / 2)) + " " + count(pin.substr(pin.size() / 2)) + " " +
         count(pin.substr(8, 6));
}

/// Requests that hand over a PIN by character, after `before`.
Requests typed(const std::string& pin, Requests before = {}) {
  for (const char character : pin) before.push_back(pinCharRequest({character}));
  return before;
}

class Secrets : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "the sanitizers keep released memory";
    if (geteuid() != 0) GTEST_SKIP() << "only root can read the host's memory";
  }

  static void script(const TokenHost& host, const std::string& fault = "") {
    host.script("key a1\nsignature 256\n" + fault);
  }
  static void sign(TokenHost& host, int error = 0) {
    // Without a further request, whose stack frames would cover what this one left behind.
    EXPECT_EQ(json::parse(host.process.ask(kSignRequest))["lastError"], error);
  }

  const std::string pin = GetParam();
  const std::string other = std::string(pin.rbegin(), pin.rend());
};

TEST_P(Secrets, OnceInTheRegistryHoweverThePinWasTyped) {
  const std::string escaped = "\\u00" + std::to_string(pin[0] / 16) + std::to_string(pin[0] % 16);
  const std::string filler(300, 'f');
  Requests corrected = typed(other);
  corrected.insert(corrected.end(), other.size(), R"({"command":7})");
  const std::pair<std::string, Requests> ways[] = {
      {"whole", {setPinRequest(pin)}},
      {"with escapes and comments",
       {"/* x */ {\"command\" : 3, \"pin\" : \"" + escaped + pin.substr(1) + "\"} "}},
      {"as a number", {"{\"command\":3,\"pin\":" + pin + "}"}},
      // The middle of a long block is cleared like its ends.
      {"in a long request",
       {R"({"command":3,"a":")" + filler + R"(","pin":")" + pin + R"(","z":")" + filler + "\"}"}},
      {"by character", typed(pin)},
      {"by character, corrected", typed(pin, corrected)},
      {"another first, replaced before it was used",
       {setPinRequest(other + other), setPinRequest(pin)}},
      {"wrong, then right", {setPinRequest(other), kSignRequest, setPinRequest(pin)}},
  };
  for (const auto& [way, requests] : ways) {
    SCOPED_TRACE(way);
    TokenHost host;
    script(host);
    sign(host, 11);
    script(host, way == "wrong, then right" ? "fail C_Login 1 0xA0" : "");
    for (const std::string& request : requests) host.process.ask(request);
    EXPECT_EQ(counts(host, pin), "1 1 1") << "pending";
    for (int signings = 0; signings < 3; ++signings) sign(host);
    EXPECT_EQ(counts(host, pin), "1 1 1") << "in the registry";
    EXPECT_EQ(counts(host, other), "0 0 0") << "a PIN that was replaced";
    host.ask(initializeRequest());
    EXPECT_EQ(host.ask(kListRequest).value("lastError", -1), 0);
    EXPECT_EQ(counts(host, pin), "1 1 1") << "after another Initialize";
    script(host, "fail C_Login 1 0xA0 ");
    sign(host, 5);
    for (const std::string& request : {setPinRequest(other), kSignRequest})
      host.process.ask(request);
    EXPECT_EQ(counts(host, pin), "0 0 0") << "replaced after a refusal";
  }
}

// A short one stands inside the string objects, a long one on the heap.
INSTANTIATE_TEST_SUITE_P(Pins, Secrets,
                         testing::Values("831792645027194",
                                         "8317926450271946385017264938561702948371"));

// The stack below the waiting host is painted from outside. After a request, what was touched must
// have been cleared: nothing but paint and zeros is left, wherever the compiler, the processor and
// the loader put their things.
TEST(WipeStack, ARequestLeavesNothingBelowTheWaitingHost) {
  if (kSanitized || EMULATED) GTEST_SKIP() << "sanitizers and emulators have stacks of their own";
  if (geteuid() != 0) GTEST_SKIP() << "only root can write the host's memory";
  constexpr char kPaint = 'P';
  constexpr std::size_t kRedZone = 128;
  // Where the calls that clear return to stands below what they clear.
  constexpr std::ptrdiff_t kReturnAddresses = 64;
  for (const char* mode : {"native", "ws"}) {
    TokenHost token(FAKE_TOKEN, "env", mode);
    HostProcess& host = token.process;
    const std::string longPin = "{\"command\":3,\"pin\":\"" + std::string(900, '7') + "\"}";
    for (const std::string& request :
         {kVersionRequest, setPinRequest("831792"), longPin, pinCharRequest("1"),
          initializeRequest(), kListRequest, kSignRequest, kRetrieveRequest, kVersionRequest}) {
      waitUntilIdle(host.pid());
      const std::string maps = procText(host.pid(), "maps");
      const std::size_t line = maps.rfind('\n', maps.find("[stack]")) + 1;
      const std::size_t start = std::stoul(maps.substr(line), nullptr, 16);
      // The last two numbers of a waiting process's system call are stack and program pointer.
      const std::string call = procText(host.pid(), "syscall");
      const std::size_t pointer =
          std::stoul(call.substr(call.rfind(' ', call.rfind(' ') - 1)), nullptr, 16);
      const std::size_t size = pointer - kRedZone - start;
      std::fstream memory("/proc/" + std::to_string(host.pid()) + "/mem");
      memory.seekp(static_cast<std::streamoff>(start));
      memory << std::string(size, kPaint) << std::flush;
      host.say("831792");  // refused by an exception, without an answer
      EXPECT_NE(host.ask(request), "");
      waitUntilIdle(host.pid());
      const std::string below = memoryOf(host.pid(), start, size);
      const auto left = std::count_if(below.begin(), below.end(),
                                      [](char byte) { return byte != kPaint && byte != 0; });
      EXPECT_LE(left, kReturnAddresses) << request;
      EXPECT_LT(below.find_first_not_of(kPaint), size) << request;
    }
  }
}

TEST(Protection, NoProcessOfTheSameUserCanReadOrTraceTheHost) {
  // Root may read everything: then host and probe run as a user without rights.
  const TemporaryFolder folder;
  std::filesystem::permissions(folder.file("."), std::filesystem::perms(0755));
  std::filesystem::copy_file(SIGNING_HOST, folder.file("signing-host"));
  const auto launcher = [](const std::string& command) {
    const std::string user = "exec setpriv --reuid=65534 --regid=65534 --clear-groups ";
    return Requests{"sh", "-c", (geteuid() == 0 ? user : "exec ") + command};
  };
  // Whoever may not read this file may neither read the memory nor trace the process.
  const auto isOpen = [&](pid_t process) {
    return HostProcess({}, launcher("head -c 1 /proc/" + std::to_string(process) + "/environ"))
               .wait() == 0;
  };
  HostProcess host({}, launcher(folder.file("signing-host")));
  ASSERT_NE(host.ask(kVersionRequest), "");
  EXPECT_FALSE(isOpen(host.pid()));
  EXPECT_EQ(statusOf(host.pid(), "NoNewPrivs"), "1");
  EXPECT_TRUE(
      std::regex_search(procText(host.pid(), "limits"), std::regex("core file size +0 +0 ")));

  // The probe does find what is not protected.
  HostProcess control({}, launcher("sleep 60"));
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(isOpen(control.pid()));
  // Beside what it was given, the host holds its two streams and nothing else.
  const auto descriptors = [](pid_t process) {
    std::error_code denied;  // For all but root.
    const std::string list = "/proc/" + std::to_string(process) + "/fd";
    return std::distance(std::filesystem::directory_iterator(list, denied), {});
  };
  EXPECT_EQ(descriptors(host.pid()) - descriptors(control.pid()), geteuid() == 0 ? 2 : 0);
}

}  // namespace
