// What of a PIN stands in the running host's memory, looked at from outside.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/host/TokenHost.h"

namespace {

using nlohmann::json;

constexpr uid_t kNobody = 65534;

/// The host cleans up behind its answer; then it sleeps until the next request.
void waitUntilIdle(pid_t process) {
  for (char state = 'R'; state != 'S'; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    state = text.at(text.rfind(')') + 2);
  }
}

/// Occurrences of the text in the process's writable memory. Needs root: the host lets nobody else.
std::size_t occurrences(pid_t process, const std::string& text) {
  const std::string folder = "/proc/" + std::to_string(process);
  std::ifstream maps(folder + "/maps");
  std::ifstream memory(folder + "/mem", std::ios::binary);
  std::size_t count = 0;
  std::size_t writable = 0;
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
    for (auto at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1)) {
      ++count;
    }
  }
  if (writable < 100'000) throw std::runtime_error("the process's memory cannot be read");
  return count;
}

/// Both halves: a copy whose start a heap has overwritten is a copy all the same.
std::string counts(const TokenHost& host, const std::string& pin) {
  const pid_t process = host.process.pid();
  waitUntilIdle(process);
  return std::to_string(occurrences(process, pin.substr(0, pin.size() / 2))) + " " +
         std::to_string(occurrences(process, pin.substr(pin.size() / 2)));
}

void typePin(TokenHost& host, const std::string& pin) {
  for (const char character : pin) {
    host.ask(json{{"command", 6}, {"pinChar", std::string(1, character)}}.dump());
  }
}

class Secrets : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "the sanitizers keep released memory";
    if (geteuid() != 0) GTEST_SKIP() << "only root can read the host's memory";
  }

  /// A host in whose registry nothing is known, waiting for a PIN.
  static void missPin(TokenHost& host) {
    host.script("key a1\nsignature 256");
    EXPECT_EQ(host.ask(kSignRequest).value("lastError", -1), 11);
  }
  static void sign(TokenHost& host, int error = 0) {
    // Without a further request, whose stack frames would cover what this one left behind.
    EXPECT_EQ(json::parse(host.process.ask(kSignRequest))["lastError"], error);
  }

  const std::string pin = GetParam();
  const std::string other = std::string(pin.rbegin(), pin.rend());
};

TEST_P(Secrets, OnceInTheRegistryHoweverThePinWasTyped) {
  using Typing = void (*)(TokenHost&, const std::string&, const std::string&);
  const std::pair<const char*, Typing> ways[] = {
      {"whole", [](TokenHost& host, const std::string& own,
                   const std::string&) { host.process.ask(setPinRequest(own)); }},
      {"with escapes and comments",
       [](TokenHost& host, const std::string& own, const std::string&) {
         host.process.ask("/* x */ {\"command\" : 3, \"pin\" : \"\\u00" +
                          std::to_string(own[0] / 16) + std::to_string(own[0] % 16) +
                          own.substr(1) + "\"} ");
       }},
      {"as a number",
       [](TokenHost& host, const std::string& own, const std::string&) {
         host.process.ask("{\"command\":3,\"pin\":" + own + "}");
       }},
      {"by character",
       [](TokenHost& host, const std::string& own, const std::string&) { typePin(host, own); }},
      {"by character, corrected",
       [](TokenHost& host, const std::string& own, const std::string& wrong) {
         typePin(host, wrong);
         for (std::size_t typed = 0; typed < wrong.size(); ++typed) host.ask(R"({"command":7})");
         typePin(host, own);
       }},
      {"another first, replaced before it was used",
       [](TokenHost& host, const std::string& own, const std::string& wrong) {
         host.process.ask(setPinRequest(wrong + wrong));
         host.process.ask(setPinRequest(own));
       }},
      {"wrong, then right",
       [](TokenHost& host, const std::string& own, const std::string& wrong) {
         host.script("key a1\nsignature 256\nfail C_Login 1 CKR_PIN_INCORRECT");
         host.process.ask(setPinRequest(wrong));
         sign(host, 5);
         host.process.ask(setPinRequest(own));
       }},
      {"twice the same, refused at first",
       [](TokenHost& host, const std::string& own, const std::string& wrong) {
         host.script("key a1\nsignature 256\nfail C_Login 1 CKR_PIN_INCORRECT");
         host.process.ask(setPinRequest(own));
         sign(host, 5);
         host.process.ask(setPinRequest(own));
         sign(host, 5);
         EXPECT_EQ(counts(host, own), "1 1");
         host.process.ask(setPinRequest(wrong));
         sign(host);
         EXPECT_EQ(counts(host, own), "0 0");
         host.script("key a1\nsignature 256\nfail C_Login 1 CKR_PIN_LOCKED");
         sign(host, 5);
         host.process.ask(setPinRequest(own));
       }},
  };
  for (const auto& [way, type] : ways) {
    SCOPED_TRACE(way);
    TokenHost host;
    missPin(host);
    type(host, pin, other);
    EXPECT_EQ(counts(host, pin), "1 1") << "pending";
    for (int signings = 0; signings < 3; ++signings) sign(host);
    EXPECT_EQ(counts(host, pin), "1 1") << "in the registry";
    EXPECT_EQ(counts(host, other), "0 0") << "a PIN that was replaced";
    host.ask(initializeRequest());
    EXPECT_EQ(host.ask(kListRequest).value("lastError", -1), 0);
    EXPECT_EQ(counts(host, pin), "1 1") << "after another Initialize";
  }
}

TEST_P(Secrets, NowhereOnceTheRegistryIsCleared) {
  TokenHost host(FAKE_TOKEN_MODULE, {CLEARING_HOST});
  missPin(host);
  typePin(host, pin);
  sign(host);
  ASSERT_EQ(counts(host, pin), "1 1");
  host.process.ask(setPinRequest(pin));  // A pending PIN goes with the host.
  host.process.sendFrame(R"({"command":1})");
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

/// What another process of the same user can open of a process, as "environ mem ptrace".
std::string openTo(pid_t process, bool dropRoot) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child == 0) {
    if (dropRoot && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) _exit(1);
    const std::string folder = "/proc/" + std::to_string(process);
    std::string found;
    if (open((folder + "/environ").c_str(), O_RDONLY | O_CLOEXEC) >= 0) found += "environ ";
    if (open((folder + "/mem").c_str(), O_RDONLY | O_CLOEXEC) >= 0) found += "mem ";
    if (ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0) found += "ptrace ";
    _exit(write(ends[1], found.data(), found.size()) < 0 ? 1 : 0);
  }
  close(ends[1]);
  std::array<char, 64> found{};
  const ssize_t length = read(ends[0], found.data(), found.size());
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0 || length < 0) return "the probe failed";
  return {found.data(), static_cast<std::size_t>(length)};
}

TEST(Protection, NoProcessOfTheSameUserCanReadOrTraceTheHost) {
  const bool isRoot = geteuid() == 0;
  // Root may read everything: then host and probe run as a user without rights.
  TemporaryFolder folder;
  std::vector<std::string> launcher;
  if (isRoot) {
    std::filesystem::permissions(folder.file("."), std::filesystem::perms(0755));
    std::filesystem::copy_file(SIGNING_HOST_BINARY, folder.file("signing-host"));
    launcher = {"setpriv",
                "--reuid=65534",
                "--regid=65534",
                "--clear-groups",
                "sh",
                "-c",
                "exec " + folder.file("signing-host")};
  }
  HostProcess host({}, {}, launcher);
  ASSERT_NE(host.ask(kVersionRequest), "");
  EXPECT_EQ(openTo(host.pid(), isRoot), "");
  std::ifstream limits("/proc/" + std::to_string(host.pid()) + "/limits");
  std::string coreLimit;
  for (std::string line; std::getline(limits, line);) {
    if (line.starts_with("Max core file size")) coreLimit = line;
  }
  std::istringstream fields(coreLimit.substr(sizeof "Max core file size"));
  std::string soft;
  std::string hard;
  fields >> soft >> hard;
  EXPECT_EQ(soft + " " + hard, "0 0");

  // The probe does find what is not protected (whether it may trace is the machine's policy).
  if (!isRoot) launcher = {"sh", "-c", ""};
  launcher.back() = "exec sleep 60";
  HostProcess control({}, {}, launcher);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_TRUE(openTo(control.pid(), isRoot).starts_with("environ "));
}

}  // namespace
