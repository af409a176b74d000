#include "tests/host/HostProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <istream>
#include <iterator>
#include <stdexcept>

HostProcess::HostProcess(const Texts& arguments, const Texts& launcher)
    : isRelay(!arguments.empty() && arguments.front() == "ws") {
  Texts command = launcher;
  command.emplace_back(SIGNING_HOST);
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<char*> words;
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);

  std::array<int, 2> in{};
  std::array<int, 2> out{};
  const auto open = [&](std::array<int, 2>& ends) {
    return isRelay ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data())
                   : pipe2(ends.data(), O_CLOEXEC);
  };
  const int errorFile = memfd_create("stderr", MFD_CLOEXEC);
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR || open(in) != 0 || open(out) != 0 ||
      (child = fork()) < 0) {
    throw std::runtime_error("the host cannot be started");
  }
  if (child == 0) {
    for (const int end : {in[0], out[1]}) fcntl(end, F_SETFL, isRelay ? O_NONBLOCK : 0);
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(errorFile, STDERR_FILENO);
    execvp(words.front(), words.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  toChild = Stream(in[1], std::ios::out);
  fromChild = Stream(out[0], std::ios::in);
  errors = Stream(errorFile, std::ios::in);
}

HostProcess::~HostProcess() {
  closeInput();
  closeOutput();
  if (!status) kill(child, SIGKILL);
  wait();
}

void HostProcess::send(std::string_view bytes) {
  toChild.sputn(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  toChild.pubsync();
}

void HostProcess::say(const std::string& text) { send(isRelay ? text + "\n" : frame(text)); }

std::string HostProcess::hear() {
  constexpr int kAnswerLimitMilliseconds = 60'000;
  pollfd ready{fromChild.fd(), POLLIN, 0};
  if (fromChild.in_avail() <= 0 && poll(&ready, 1, kAnswerLimitMilliseconds) <= 0) return "";
  std::istream output(&fromChild);
  std::string text;
  if (isRelay) {
    std::getline(output, text);
    return text;
  }
  std::uint32_t length = 0;
  if (!output.read(reinterpret_cast<char*>(&length), sizeof length)) return "";
  text.resize(length);
  return output.read(text.data(), length) ? text : "";
}

std::string HostProcess::ask(const std::string& text) {
  say(text);
  return hear();
}

std::string HostProcess::hearAll() { return {std::istreambuf_iterator<char>(&fromChild), {}}; }

int HostProcess::wait() {
  int result = 0;
  if (!status && waitpid(child, &result, 0) == child) {
    status = WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
  }
  return status.value_or(-1);
}

std::string HostProcess::standardError() {
  errors.pubseekpos(0);
  return {std::istreambuf_iterator<char>(&errors), {}};
}

std::string outputFor(std::string_view input, bool closeInput) {
  HostProcess host;
  host.send(input);
  if (closeInput) host.closeInput();
  std::string output = host.hearAll();
  EXPECT_EQ(host.wait(), 0);
  return output;
}

std::string procText(pid_t process, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(process) + "/" + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string statusOf(pid_t process, const std::string& field) {
  const std::string text = procText(process, "status");
  const std::size_t start = text.find("\n" + field + ":\t") + field.size() + 3;
  return text.substr(start, text.find('\n', start) - start);
}
