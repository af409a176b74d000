#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

using Clock = std::chrono::steady_clock;

/// Ends the benchmark with a message; a measurement that went wrong is none.
[[noreturn]] void fail(std::string_view what);

/// Nanoseconds since `start`.
double nanosecondsSince(Clock::time_point start);

/// The processors that this process may use.
std::vector<int> usableProcessors();

/// Keeps this process to one processor.
void runThisProcessOn(int processor);

/// A program under measurement that speaks native messaging over pipes: 32-bit length, text.
/// Any failure of a call or of the conversation ends the benchmark with a message.
class Child {
 public:
  /// Starts `command` (searched in PATH) with `environment` ("NAME=value") added to this process's.
  explicit Child(const std::vector<std::string>& command,
                 const std::vector<std::string>& environment = {});
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  Child(Child&&) = delete;
  Child& operator=(Child&&) = delete;

  /// Sends one frame and waits for the answer's text, which stays valid until the next call.
  std::string_view ask(std::string_view text);

  /// A field of the process's status in kB, "VmRSS" (resident now) or "VmHWM" (its peak).
  [[nodiscard]] double kilobytes(std::string_view field) const;

  /// Keeps the child to one processor.
  void runOn(int processor) const;

  /// Closes the child's input and waits for its end. Returns its peak resident size in kB.
  double finish();

 private:
  pid_t process = -1;
  int toChild = -1;
  int fromChild = -1;
  std::vector<char> outgoing;
  std::vector<char> incoming;
};

/// Runs a command to its end, its output discarded; it must succeed. Returns its peak resident size
/// in kB.
double runToEnd(const std::vector<std::string>& command,
                const std::vector<std::string>& environment = {});
