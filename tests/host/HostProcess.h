#pragma once

#include <sys/types.h>
#include <ext/stdio_filebuf.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Bytes.h"

/// The built host as a child process, spoken to over pipes as a browser does, or over a relay's
/// sockets, which do not block.
class HostProcess {
 public:
  using Texts = std::vector<std::string>;

  /// Starts the host after the launcher's words, which may set variables for it.
  explicit HostProcess(const Texts& arguments = {}, const Texts& launcher = {"env"});
  /// Ends the process, by force when it has not ended by itself.
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  void send(std::string_view bytes);
  void closeInput() { toChild.close(); }
  void closeOutput() { fromChild.close(); }

  /// A message in the framing that the host was started for.
  void say(const std::string& text);
  /// The next message; "" at the end of output or when none comes in time.
  std::string hear();
  std::string ask(const std::string& text);
  /// All that still comes until the process closes its output, however long that takes.
  std::string hearAll();

  /// Exit status, or minus the signal's number.
  int wait();
  pid_t pid() const { return child; }
  /// All that an ended process wrote there.
  std::string standardError();

 private:
  using Stream = __gnu_cxx::stdio_filebuf<char>;

  bool isRelay;
  pid_t child = -1;
  std::optional<int> status;
  Stream toChild;
  Stream fromChild;
  Stream errors;
};

using test_support::frame;
using test_support::lengthBytes;

/// All that a fresh native host writes for these bytes; it must end by itself with status 0.
std::string outputFor(std::string_view input, bool closeInput = true);

/// A file of /proc/<pid>, and the value of a field in its file `status`, "VmRSS" (in kB) for one.
std::string procText(pid_t process, const std::string& name);
std::string statusOf(pid_t process, const std::string& field);
