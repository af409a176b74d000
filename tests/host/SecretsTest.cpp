// What of a PIN stands in the running host's memory, looked at from outside.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "host/WipeStack.h"
#include "tests/host/TokenHost.h"

namespace {

using nlohmann::json;
using Requests = std::vector<std::string>;

constexpr uid_t kNobody = 65534;

std::string procFile(pid_t process, const char* name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

/// The host cleans up behind its answer; then it sleeps until the next request.
void waitUntilIdle(pid_t process) {
  for (char state = 'R'; state != 'S'; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
    std::ifstream file(procFile(process, "stat"));
    const std::string text(std::istreambuf_iterator<char>(file), {});
    state = text.at(text.rfind(')') + 2);
  }
}

/// How often a text stands in a process's writable memory. Needs root: the host lets nobody else.
std::size_t occurrences(pid_t process, const std::string& text) {
  std::size_t found = 0;
  std::size_t writable = 0;
  std::ifstream maps(procFile(process, "maps"));
  std::ifstream memory(procFile(process, "mem"), std::ios::binary);
  for (std::string line; std::getline(maps, line);) {
    std::istringstream fields(line);
    std::size_t start = 0;
    std::size_t end = 0;
    char dash = 0;
    std::string permissions;
    fields >> std::hex >> start >> dash >> end >> permissions;
    if (!permissions.starts_with("rw")) continue;
    std::string bytes(end - start, '\0');
    memory.clear();
    memory.seekg(static_cast<std::streamoff>(start));
    memory.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    writable += static_cast<std::size_t>(memory.gcount());
    for (std::size_t at = 0; (at = bytes.find(text, at)) != std::string::npos; ++at) ++found;
  }
  if (writable < 100'000) throw std::runtime_error("the process's memory cannot be read");
  return found;
}

/// The same for each half of a PIN: a copy whose start a heap has overwritten is a copy all the
/// same.
std::string counts(const TokenHost& host, const std::string& pin) {
  waitUntilIdle(host.process.pid());
  const std::size_t half = pin.size() / 2;
  return std::to_string(occurrences(host.process.pid(), pin.substr(0, half))) + " " +
         std::to_string(occurrences(host.process.pid(), pin.substr(half)));
}

Requests typed(const std::string& pin) {
  Requests requests;
  for (const char character : pin) requests.push_back(pinCharRequest({character}));
  return requests;
}

Requests operator+(Requests first, const Requests& then) {
  first.insert(first.end(), then.begin(), then.end());
  return first;
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
  const std::pair<const char*, Requests> ways[] = {
      {"whole", {setPinRequest(pin)}},
      {"with escapes and comments",
       {"/* x */ {\"command\" : 3, \"pin\" : \"" + escaped + pin.substr(1) + "\"} "}},
      {"as a number", {"{\"command\":3,\"pin\":" + pin + "}"}},
      {"by character", typed(pin)},
      {"by character, corrected",
       typed(other) + Requests(other.size(), R"({"command":7})") + typed(pin)},
      {"another first, replaced before it was used",
       {setPinRequest(other + other), setPinRequest(pin)}},
      {"wrong, then right", {setPinRequest(other), kSignRequest, setPinRequest(pin)}},
  };
  for (const auto& [way, requests] : ways) {
    SCOPED_TRACE(way);
    TokenHost host;
    script(host);
    sign(host, 11);
    script(host, way == std::string("wrong, then right") ? "fail C_Login 1 CKR_PIN_INCORRECT" : "");
    for (const std::string& request : requests) host.process.ask(request);
    EXPECT_EQ(counts(host, pin), "1 1") << "pending";
    for (int signings = 0; signings < 3; ++signings) sign(host);
    EXPECT_EQ(counts(host, pin), "1 1") << "in the registry";
    EXPECT_EQ(counts(host, other), "0 0") << "a PIN that was replaced";
    host.ask(initializeRequest());
    EXPECT_EQ(host.ask(kListRequest).value("lastError", -1), 0);
    EXPECT_EQ(counts(host, pin), "1 1") << "after another Initialize";
  }
}

TEST_P(Secrets, OnceWhenTypedAgainAfterARefusalAndNowhereWhenReplaced) {
  TokenHost host;
  script(host, "fail C_Login 1 CKR_PIN_INCORRECT");
  sign(host, 11);
  for (int times = 0; times < 2; ++times) {
    host.process.ask(setPinRequest(pin));
    sign(host, 5);
    EXPECT_EQ(counts(host, pin), "1 1");
  }
  host.process.ask(setPinRequest(other));
  sign(host);
  EXPECT_EQ(counts(host, pin), "0 0");
  EXPECT_EQ(counts(host, other), "1 1");
}

TEST_P(Secrets, NowhereOnceTheRegistryIsCleared) {
  TokenHost host(FAKE_TOKEN_MODULE, {CLEARING_HOST});
  script(host);
  sign(host, 11);
  for (const std::string& request : typed(pin)) host.process.ask(request);
  sign(host);
  ASSERT_EQ(counts(host, pin), "1 1");
  host.process.ask(setPinRequest(pin));  // A pending PIN goes with the host.
  host.process.say(kEndRequest);
  for (int tries = 0; tries < 50 && counts(host, pin) != "0 0"; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(counts(host, pin), "0 0");
  EXPECT_EQ(host.process.wait(std::chrono::milliseconds(0)), std::nullopt) << "it was running";
}

// A short one stands inside the string objects, a long one on the heap.
INSTANTIATE_TEST_SUITE_P(Pins, Secrets,
                         testing::Values("831792645027194",
                                         "8317926450271946385017264938561702948371"));

constexpr unsigned char kMark[] = {0x9B, 0x31, 0xE4, 0x77, 0xC2, 0x58, 0x8D, 0x16};

/// Leaves a mark on the stack, 6 kB below the caller; nothing else in the process spells it.
[[gnu::noinline]] void leaveOnStack() {
  [[maybe_unused]] volatile char depth[6000];
  for (std::size_t i = 0; i < sizeof kMark; ++i) depth[i] = static_cast<char>(kMark[i] ^ 0xFFU);
}

TEST(WipeStack, ClearsWhatACallLeftBehind) {
  if (kSanitized || geteuid() != 0) GTEST_SKIP() << "looks at a process's memory as it is";
  const auto start = [](bool wiping) {
    const pid_t child = fork();
    if (child == 0) {
      leaveOnStack();
      if (wiping) wipeStack<kMessageStackDepth>();
      for (;;) pause();
    }
    return child;
  };
  const pid_t left = start(false);
  const pid_t wiped = start(true);
  // Spelt only now: the children have this process's memory.
  std::string mark(std::begin(kMark), std::end(kMark));
  for (char& byte : mark) byte = static_cast<char>(~byte);
  for (const pid_t child : {left, wiped}) {
    waitUntilIdle(child);
    EXPECT_EQ(occurrences(child, mark), child == left ? 1U : 0U);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

/// What another process of the same user can open of a process: 1 environ, 2 mem, 4 ptrace.
int openTo(pid_t process, bool dropRoot) {
  const pid_t child = fork();
  if (child == 0) {
    if (dropRoot && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) _exit(99);
    int found = 0;
    if (open(procFile(process, "environ").c_str(), O_RDONLY | O_CLOEXEC) >= 0) found += 1;
    if (open(procFile(process, "mem").c_str(), O_RDONLY | O_CLOEXEC) >= 0) found += 2;
    if (ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0) found += 4;
    _exit(found);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Protection, NoProcessOfTheSameUserCanReadOrTraceTheHost) {
  const bool isRoot = geteuid() == 0;
  // Root may read everything: then host and probe run as a user without rights.
  TemporaryFolder folder;
  std::filesystem::permissions(folder.file("."), std::filesystem::perms(0755));
  std::filesystem::copy_file(SIGNING_HOST_BINARY, folder.file("signing-host"));
  const auto launcher = [&](const std::string& command) {
    const HostProcess::Texts shell = {"sh", "-c", "exec " + command};
    return isRoot ? Requests{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"} + shell
                  : shell;
  };
  HostProcess host({}, {}, launcher(folder.file("signing-host")));
  ASSERT_NE(host.ask(kVersionRequest), "");
  EXPECT_EQ(openTo(host.pid(), isRoot), 0);
  std::ifstream limits(procFile(host.pid(), "limits"));
  std::string line;
  while (std::getline(limits, line) && !line.starts_with("Max core file size")) continue;
  std::istringstream fields(line.substr(sizeof "Max core file size"));
  std::string soft;
  std::string hard;
  fields >> soft >> hard;
  EXPECT_EQ(soft + " " + hard, "0 0");

  // The probe does find what is not protected (whether it may trace is the machine's policy).
  HostProcess control({}, {}, launcher("sleep 60"));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(openTo(control.pid(), isRoot) & 1, 1);
}

}  // namespace
