#include "tests/host/HostProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

constexpr int kAnswerLimitMilliseconds = 60'000;

void closeOnce(int& descriptor) {
  if (descriptor >= 0) close(std::exchange(descriptor, -1));
}

}  // namespace

HostProcess::HostProcess(const Texts& arguments, const Environment& environment,
                         const Texts& launcher)
    : errorFile(memfd_create("stderr", MFD_CLOEXEC)),
      isRelay(!arguments.empty() && arguments.front() == "ws") {
  Texts command = launcher;
  command.emplace_back(SIGNING_HOST_BINARY);
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<char*> words;
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);

  std::array<int, 2> in{};
  std::array<int, 2> out{};
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR || pipe2(in.data(), O_CLOEXEC) != 0 ||
      pipe2(out.data(), O_CLOEXEC) != 0 || (child = fork()) < 0) {
    throw std::runtime_error("the host cannot be started");
  }
  if (child == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(errorFile, STDERR_FILENO);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the child's only thread
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    execvp(words.front(), words.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  toChild = in[1];
  fromChild = out[0];
}

HostProcess::~HostProcess() {
  closeInput();
  closeOutput();
  if (!status) kill(child, SIGKILL);
  wait();
  close(errorFile);
}

void HostProcess::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = write(toChild, bytes.data(), bytes.size());
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void HostProcess::closeInput() { closeOnce(toChild); }
void HostProcess::closeOutput() { closeOnce(fromChild); }

bool HostProcess::receiveUntil(std::size_t size) {
  std::array<char, 65536> block{};
  while (received.size() < size) {
    pollfd ready{fromChild, POLLIN, 0};
    if (poll(&ready, 1, kAnswerLimitMilliseconds) <= 0) return false;
    const ssize_t count = read(fromChild, block.data(), block.size());
    if (count <= 0) return false;
    received.append(block.data(), static_cast<std::size_t>(count));
  }
  return true;
}

std::string HostProcess::take(std::size_t start, std::size_t size, std::size_t end) {
  std::string text = received.substr(start, size);
  received.erase(0, end);
  return text;
}

std::string HostProcess::hear() {
  if (isRelay) {
    std::size_t lineFeed = 0;
    while ((lineFeed = received.find('\n')) == std::string::npos) {
      if (!receiveUntil(received.size() + 1)) return "";
    }
    return take(0, lineFeed, lineFeed + 1);
  }
  std::uint32_t length = 0;
  if (!receiveUntil(sizeof length)) return "";
  std::memcpy(&length, received.data(), sizeof length);
  if (!receiveUntil(sizeof length + length)) return "";
  return take(sizeof length, length, sizeof length + length);
}

std::string HostProcess::ask(const std::string& text) {
  say(text);
  return hear();
}

std::string HostProcess::hearAll() {
  receiveUntil(std::string::npos);
  return std::exchange(received, {});
}

std::optional<int> HostProcess::wait(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (int result = 0; !status; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
    if (waitpid(child, &result, WNOHANG) == child) {
      return status = WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
    }
    if (std::chrono::steady_clock::now() > deadline) break;
  }
  return status;
}

double HostProcess::processorSeconds() const {
  clockid_t clock{};
  timespec used{};
  if (clock_getcpuclockid(child, &clock) != 0 || clock_gettime(clock, &used) != 0) {
    throw std::runtime_error("no processor time");
  }
  return static_cast<double>(used.tv_sec) + 1e-9 * static_cast<double>(used.tv_nsec);
}

long HostProcess::statusNumber(const std::string& field) const {
  std::ifstream file("/proc/" + std::to_string(child) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(field + ":")) return std::stol(line.substr(field.size() + 1));
  }
  throw std::runtime_error("no " + field);
}

std::string HostProcess::standardError() const {
  std::string text(static_cast<std::size_t>(lseek(errorFile, 0, SEEK_END)), '\0');
  return pread(errorFile, text.data(), text.size(), 0) < 0 ? "" : text;
}

std::string HostProcess::frame(std::string_view text) {
  return lengthBytes(static_cast<std::int32_t>(text.size())).append(text);
}

std::string lengthBytes(std::int32_t length) {
  return {reinterpret_cast<const char*>(&length), sizeof length};
}

std::string outputFor(std::string_view input, bool closeInput) {
  HostProcess host;
  host.send(input);
  if (closeInput) host.closeInput();
  std::string output = host.hearAll();
  EXPECT_EQ(host.wait(), 0);
  return output;
}
