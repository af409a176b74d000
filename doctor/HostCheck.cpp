#include "doctor/HostCheck.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{5};
/// More than any answer about a version.
constexpr std::size_t kAnswerLimit = 4096;

/// A file descriptor that is closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : number(descriptor) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() { reset(); }
  void reset() {
    if (number >= 0) {
      close(std::exchange(number, -1));
    }
  }
  [[nodiscard]] int get() const { return number; }

 private:
  int number;
};

std::optional<std::array<int, 2>> makePipe() {
  std::array<int, 2> ends{};
  return pipe2(ends.data(), O_CLOEXEC) == 0 ? std::optional(ends) : std::nullopt;
}

/// The whole answer, or what came before the patience ended.
std::string readAnswer(int descriptor) {
  std::string answer;
  std::uint32_t length = 0;
  const Clock::time_point deadline = Clock::now() + kPatience;
  while (answer.size() < sizeof length || answer.size() - sizeof length < length) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd waiting{descriptor, POLLIN, 0};
    std::array<char, kAnswerLimit> bytes{};
    ssize_t count = 0;
    if (left <= 0 || poll(&waiting, 1, static_cast<int>(left)) <= 0 ||
        (count = read(descriptor, bytes.data(), bytes.size())) <= 0) {
      break;
    }
    answer.append(bytes.data(), static_cast<std::size_t>(count));
    if (answer.size() >= sizeof length) {
      std::memcpy(&length, answer.data(), sizeof length);
      if (length > kAnswerLimit) {
        break;
      }
    }
  }
  return answer.size() > sizeof length ? answer.substr(sizeof length) : "";
}

/// The version that the host answers; nothing when it does not start or answer.
std::optional<std::string> askVersion(const std::string& path) {
  const auto input = makePipe();
  const auto output = makePipe();
  if (!input || !output) {
    return std::nullopt;
  }
  Descriptor hostInput(input->at(0));
  Descriptor toHost(input->at(1));
  Descriptor fromHost(output->at(0));
  Descriptor hostOutput(output->at(1));
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, hostInput.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, hostOutput.get(), STDOUT_FILENO);
  std::string program = path;
  std::array<char*, 2> arguments{program.data(), nullptr};
  pid_t child = -1;
  const int started =
      posix_spawn(&child, path.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (started != 0) {
    return std::nullopt;
  }
  hostInput.reset();
  hostOutput.reset();

  const std::string request = R"({"command": 8})";
  const auto length = static_cast<std::uint32_t>(request.size());
  std::string frame(sizeof length, '\0');
  std::memcpy(frame.data(), &length, sizeof length);
  frame += request;
  std::string answer;
  if (write(toHost.get(), frame.data(), frame.size()) == static_cast<ssize_t>(frame.size())) {
    answer = readAnswer(fromHost.get());
  }
  toHost.reset();
  fromHost.reset();
  kill(child, SIGKILL);  // it holds nothing: it was given no PIN and asked for no card
  waitpid(child, nullptr, 0);
  try {
    const JSONNode response = JSONWorker::parse(answer);
    const auto version = response.find("version");
    return version == response.end() ? std::nullopt : std::optional(version->as_string());
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

}  // namespace

void checkHost(Report& report, const std::string& path) {
  if (const auto version = askVersion(path)) {
    report.add(Verdict::kOk, "host", "doctor.host.ok", {{"path", path}, {"version", *version}});
  } else {
    report.add({"error.host-ended", "doctor.host.silent"}, "host", {{"path", path}});
  }
}
