#include "tests/host/HostProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

constexpr int kAnswerLimitMilliseconds = 60'000;

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

}  // namespace

HostProcess::HostProcess(const std::vector<std::string>& arguments, const Environment& environment,
                         const std::vector<std::string>& launcher) {
  static const bool ignoresBrokenPipes = std::signal(SIGPIPE, SIG_IGN) != SIG_ERR;
  std::vector<std::string> command = launcher;
  command.emplace_back(SIGNING_HOST_BINARY);
  command.insert(command.end(), arguments.begin(), arguments.end());

  std::vector<std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    if (!environment.contains(std::string(text.substr(0, text.find('='))))) {
      variables.emplace_back(text);
    }
  }
  for (const auto& [name, value] : environment) {
    variables.push_back(name + "=" + value);
  }

  std::array<int, 2> in{};
  std::array<int, 2> out{};
  if (!ignoresBrokenPipes || pipe2(in.data(), O_CLOEXEC) != 0 ||
      pipe2(out.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2");
  }
  errorFile = memfd_create("stderr", MFD_CLOEXEC);
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errorFile, STDERR_FILENO);
  const int error = posix_spawnp(&child, command.front().c_str(), &actions, nullptr,
                                 pointers(command).data(), pointers(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  toChild = in[1];
  fromChild = out[0];
  if (error != 0) {
    throw std::runtime_error(command.front() + ": " + std::strerror(error));
  }
}

HostProcess::~HostProcess() {
  closeInput();
  closeOutput();
  if (!status) {
    kill(child, SIGKILL);
    wait();
  }
  close(errorFile);
}

void HostProcess::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(toChild, bytes.data(), bytes.size());
    if (count <= 0) {
      return;
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void HostProcess::closeInput() {
  if (toChild >= 0) {
    close(std::exchange(toChild, -1));
  }
}

void HostProcess::closeOutput() {
  if (fromChild >= 0) {
    close(std::exchange(fromChild, -1));
  }
}

bool HostProcess::receiveMore() {
  pollfd ready{fromChild, POLLIN, 0};
  std::array<char, 65536> block{};
  if (poll(&ready, 1, kAnswerLimitMilliseconds) <= 0) {
    return false;
  }
  const ssize_t count = read(fromChild, block.data(), block.size());
  if (count > 0) {
    received.append(block.data(), static_cast<std::size_t>(count));
  }
  return count > 0;
}

std::optional<std::string> HostProcess::receiveFrame() {
  std::uint32_t length = 0;
  while (received.size() < sizeof length) {
    if (!receiveMore()) {
      return std::nullopt;
    }
  }
  std::memcpy(&length, received.data(), sizeof length);
  while (received.size() < sizeof length + length) {
    if (!receiveMore()) {
      return std::nullopt;
    }
  }
  std::string text = received.substr(sizeof length, length);
  received.erase(0, sizeof length + length);
  return text;
}

std::optional<std::string> HostProcess::receiveLine() {
  std::size_t lineFeed = 0;
  while ((lineFeed = received.find('\n')) == std::string::npos) {
    if (!receiveMore()) {
      return std::nullopt;
    }
  }
  std::string text = received.substr(0, lineFeed);
  received.erase(0, lineFeed + 1);
  return text;
}

std::string HostProcess::receiveRest() {
  while (receiveMore()) {
  }
  return std::exchange(received, {});
}

std::string HostProcess::ask(std::string_view text) {
  sendFrame(text);
  return receiveFrame().value_or("");
}

std::optional<int> HostProcess::wait(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!status) {
    int result = 0;
    if (waitpid(child, &result, WNOHANG) == child) {
      status = WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
    } else if (std::chrono::steady_clock::now() > deadline) {
      return std::nullopt;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  return status;
}

std::string HostProcess::standardError() {
  std::string text(static_cast<std::size_t>(lseek(errorFile, 0, SEEK_END)), '\0');
  const ssize_t count = pread(errorFile, text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

std::string HostProcess::frame(std::string_view text) {
  const auto length = static_cast<std::uint32_t>(text.size());
  std::string bytes(reinterpret_cast<const char*>(&length), sizeof length);
  return bytes.append(text);
}
