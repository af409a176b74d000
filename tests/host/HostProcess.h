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
  using Environment = std::map<std::string, std::string>;

  /// Starts the host with these arguments; `environment` is added to the test's own.
  explicit HostProcess(const std::vector<std::string>& arguments = {},
                       const Environment& environment = {},
                       const std::vector<std::string>& launcher = {});
  /// Ends the process, by force when it has not ended by itself.
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  void send(std::string_view bytes);
  void sendFrame(std::string_view text) { send(frame(text)); }
  void closeInput();
  void closeOutput();

  /// Next native frame's text; nothing at the end of output or when none comes in time.
  std::optional<std::string> receiveFrame();
  /// Next line without its line feed; likewise.
  std::optional<std::string> receiveLine();
  /// All that still comes until the process closes its output.
  std::string receiveRest();

  /// Sends a request frame and returns its answer's text ("" when there is none).
  std::string ask(std::string_view text);

  /// Exit status, or minus the signal's number; nothing when it is still running after `limit`.
  std::optional<int> wait(std::chrono::milliseconds limit = std::chrono::seconds(60));
  pid_t pid() const { return child; }

  /// What the process wrote to standard error, once it has ended.
  std::string standardError();

  static std::string frame(std::string_view text);

 private:
  bool receiveMore();

  pid_t child = -1;
  int toChild = -1;
  int fromChild = -1;
  int errorFile = -1;
  std::optional<int> status;
  std::string received;
};
