#include "host/MessageChannel.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace {

constexpr auto kEndedInputPause = std::chrono::milliseconds(200);

/// After a failed call: true when it is to be made again, once the stream is ready. Whoever starts
/// the host may have made its pipes non-blocking.
bool mayRetry(int descriptor, short event) {
  if (errno == EAGAIN) {
    pollfd ready{descriptor, event, 0};
    return ::poll(&ready, 1, -1) > 0 || errno == EINTR;
  }
  return errno == EINTR;
}

}  // namespace

void MessageChannel::beforeLongWait() {
  if (!watched && watch != nullptr) {
    watched = true;
    watch(input, output);
  }
}

void MessageChannel::abandon() {
  close(std::exchange(input, -1));
  close(std::exchange(output, -1));
  watched = false;
}

/// Waits for more input; false at its end. Call only when everything buffered is consumed.
bool MessageChannel::refill() {
  ssize_t count = 0;
  do {
    count = ::read(input, buffer.data(), buffer.size());
  } while (count < 0 && mayRetry(input, POLLIN));
  next = 0;
  end = count > 0 ? static_cast<std::size_t>(count) : 0;
  return end > 0;
}

void MessageChannel::consume(std::size_t count) {
  explicit_bzero(buffer.data() + next, count);
  next += count;
}

void MessageChannel::read(std::span<char> bytes) {
  while (!bytes.empty() && !inputFailed) {
    if (next == end && !refill()) {
      inputFailed = true;
      return;
    }
    const std::size_t count = std::min(bytes.size(), end - next);
    std::memcpy(bytes.data(), buffer.data() + next, count);
    consume(count);
    bytes = bytes.subspan(count);
  }
}

std::string MessageChannel::readLine() {
  std::string line;
  if (inputEnded) {
    beforeLongWait();
    std::this_thread::sleep_for(kEndedInputPause);
  }
  while (next != end || refill()) {
    inputEnded = false;
    const char* start = buffer.data() + next;
    const auto* lineFeed = static_cast<const char*>(std::memchr(start, '\n', end - next));
    const std::size_t count =
        lineFeed != nullptr ? static_cast<std::size_t>(lineFeed - start) : end - next;
    line.append(start, count);
    consume(count);
    if (lineFeed != nullptr) {
      consume(1);
      return line;
    }
  }
  inputEnded = true;
  return line;
}

void MessageChannel::write(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t written = ::write(output, bytes.data(), bytes.size());
    if (written < 0 && mayRetry(output, POLLOUT)) {
      continue;
    }
    if (written <= 0) {
      return;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}
