#include "bench/driver/Child.h"

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <system_error>

namespace {

constexpr std::size_t kLengthSize = sizeof(std::uint32_t);

void require(bool success, const std::string& what) {
  if (!success) {
    fail(what + ": " + std::generic_category().message(errno));
  }
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

/// posix_spawn, whose cost does not grow with the size of this process as fork's does.
pid_t spawn(std::vector<std::string> command, std::vector<std::string> environment, int input,
            int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  std::vector<char*> variables = pointers(environment);
  variables.pop_back();
  for (char** inherited = environ; *inherited != nullptr; ++inherited) {
    variables.push_back(*inherited);  // of two equal names, the first counts
  }
  variables.push_back(nullptr);
  pid_t process = -1;
  errno = posix_spawnp(&process, command.front().c_str(), &actions, nullptr,
                       pointers(command).data(), variables.data());
  require(errno == 0, command.front());
  posix_spawn_file_actions_destroy(&actions);
  return process;
}

double waitForEnd(pid_t process) {
  int status = 0;
  rusage usage{};
  require(wait4(process, &status, 0, &usage) == process, "wait4");
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    fail("a measured program failed");
  }
  return static_cast<double>(usage.ru_maxrss);
}

void keepTo(int processor, pid_t process) {
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(static_cast<std::size_t>(processor), &only);
  require(sched_setaffinity(process, sizeof only, &only) == 0, "sched_setaffinity");
}

}  // namespace

void fail(std::string_view what) {
  std::cerr << "benchmark: " << what << '\n';
  std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): there is one thread.
}

double nanosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

std::vector<int> usableProcessors() {
  cpu_set_t usable;
  CPU_ZERO(&usable);
  require(sched_getaffinity(0, sizeof usable, &usable) == 0, "sched_getaffinity");
  std::vector<int> result;
  for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (CPU_ISSET(static_cast<std::size_t>(processor), &usable)) {
      result.push_back(processor);
    }
  }
  return result;
}

void runThisProcessOn(int processor) { keepTo(processor, 0); }

Child::Child(const std::vector<std::string>& command, const std::vector<std::string>& environment)
    : incoming(std::size_t{1} << 20U) {
  std::array<int, 2> input{};
  std::array<int, 2> output{};
  require(pipe2(input.data(), O_CLOEXEC) == 0 && pipe2(output.data(), O_CLOEXEC) == 0, "pipe");
  process = spawn(command, environment, input[0], output[1]);
  close(input[0]);
  close(output[1]);
  toChild = input[1];
  fromChild = output[0];
}

Child::~Child() {
  if (process >= 0) {
    finish();
  }
}

std::string_view Child::ask(std::string_view text) {
  const auto length = static_cast<std::uint32_t>(text.size());
  outgoing.resize(kLengthSize + text.size());
  std::memcpy(outgoing.data(), &length, kLengthSize);
  std::memcpy(outgoing.data() + kLengthSize, text.data(), text.size());
  const auto size = static_cast<ssize_t>(outgoing.size());
  require(write(toChild, outgoing.data(), outgoing.size()) == size, "write to a measured program");

  std::size_t have = 0;
  std::size_t wanted = kLengthSize;
  while (have < wanted) {
    const ssize_t count = read(fromChild, incoming.data() + have, incoming.size() - have);
    require(count > 0, "read from a measured program");
    have += static_cast<std::size_t>(count);
    if (have >= kLengthSize) {
      std::uint32_t answerLength = 0;
      std::memcpy(&answerLength, incoming.data(), kLengthSize);
      wanted = kLengthSize + answerLength;
      require(wanted <= incoming.size(), "an answer is too long");
    }
  }
  return {incoming.data() + kLengthSize, wanted - kLengthSize};
}

double Child::kilobytes(std::string_view field) const {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) {
      return std::stod(line.substr(field.size() + 1));
    }
  }
  fail("no such field: " + std::string(field));
}

void Child::runOn(int processor) const { keepTo(processor, process); }

double Child::finish() {
  close(toChild);
  close(fromChild);
  const double peak = waitForEnd(process);
  process = -1;
  return peak;
}

double runToEnd(const std::vector<std::string>& command,
                const std::vector<std::string>& environment) {
  static const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  return waitForEnd(spawn(command, environment, nowhere, nowhere));
}
