#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/// The two byte streams of the conversation, read through a buffer that is cleared as the bytes are
/// handed out: no byte of a request stays in it.
///
/// The descriptors are borrowed: they live as long as the process.
class MessageChannel {
 public:
  /// Told the two descriptors, sees to what must happen when their other ends go.
  using Watch = void (*)(int input, int output);

  /// @param watchForEnd called at the first `beforeLongWait`; null for none.
  MessageChannel(int inputDescriptor, int outputDescriptor, Watch watchForEnd)
      : input(inputDescriptor), output(outputDescriptor), watch(watchForEnd) {}
  MessageChannel(const MessageChannel&) = delete;
  MessageChannel& operator=(const MessageChannel&) = delete;
  MessageChannel(MessageChannel&&) = delete;
  MessageChannel& operator=(MessageChannel&&) = delete;
  ~MessageChannel() = default;

  /// To be called before anything that may take for ever without reading or writing here.
  void beforeLongWait();

  /// Closes both descriptors; from then on nothing is read and nothing is written.
  void abandon();

  /// Fills `bytes`, waiting as long as it takes. At the end of input the bytes that did not arrive
  /// are left as they were, and every later read yields nothing.
  void read(std::span<char> bytes);

  /// Makes every later `read` yield nothing.
  void failInput() { inputFailed = true; }

  /// The bytes up to the next line feed, which is consumed and not returned, or up to the end of
  /// input. A line may have any length and hold any other byte. Once the input has ended, each call
  /// asks it again, after a pause so that a host left behind by its relay costs no processor time.
  std::string readLine();

  /// Writes all of it with as few system calls as the stream allows. Errors are not reported: when
  /// the reader is gone, so is the conversation.
  void write(std::string_view bytes) const;

 private:
  bool refill();
  void consume(std::size_t count);

  int input;
  int output;
  Watch watch;
  bool watched = false;
  bool inputFailed = false;
  bool inputEnded = false;
  std::size_t next = 0;
  std::size_t end = 0;
  std::array<char, 16384> buffer{};
};
