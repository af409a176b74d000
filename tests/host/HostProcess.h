#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The built host as a child process, spoken to over pipes as a browser or a relay does.
class HostProcess {
 public:
  using Texts = std::vector<std::string>;
  using Environment = std::map<std::string, std::string>;

  /// Starts the host, with further environment variables and behind the launcher's words.
  explicit HostProcess(const Texts& arguments = {}, const Environment& environment = {},
                       const Texts& launcher = {});
  /// Ends the process, by force when it has not ended by itself.
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  void send(std::string_view bytes) const;
  void closeInput();
  void closeOutput();

  /// A message in the framing that the host was started for.
  void say(const std::string& text) const { send(isRelay ? text + "\n" : frame(text)); }
  /// The next message; "" at the end of output or when none comes in time.
  std::string hear();
  std::string ask(const std::string& text);
  /// All that still comes until the process closes its output.
  std::string hearAll();

  /// Exit status, or minus the signal's number; nothing when it is still running after `limit`.
  std::optional<int> wait(std::chrono::milliseconds limit = std::chrono::seconds(60));
  pid_t pid() const { return child; }
  double processorSeconds() const;
  /// A number of /proc/<pid>/status, "VmRSS" (in kB) for one.
  long statusNumber(const std::string& field) const;
  std::string standardError() const;

  static std::string frame(std::string_view text);

 private:
  bool receiveUntil(std::size_t size);
  std::string take(std::size_t start, std::size_t size, std::size_t end);

  pid_t child = -1;
  int toChild = -1;
  int fromChild = -1;
  int errorFile = -1;
  bool isRelay;
  std::optional<int> status;
  std::string received;
};

/// Four bytes in front of a native message.
std::string lengthBytes(std::int32_t length);

/// All that a fresh native host writes for these bytes; it must end by itself with status 0.
std::string outputFor(std::string_view input, bool closeInput = true);
