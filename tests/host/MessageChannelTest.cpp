#include "host/MessageChannel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>

#include "tests/host/TokenHost.h"

namespace {

/// A pipe whose ends do not block, as a starter may hand them over.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK), 0); }
  std::array<int, 2> ends{};
};

TEST(MessageChannel, WaitsForStreamsThatDoNotBlock) {
  const Pipe in;
  const Pipe out;
  MessageChannel channel(in.ends[0], out.ends[1]);
  const std::string large(1'000'000, 'x');
  std::string received;
  std::thread other([&] {
    for (const char* part : {"fr", "ame", "line\nrest"}) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      EXPECT_GT(::write(in.ends[1], part, std::string_view(part).size()), 0);
    }
    while (received.size() < large.size() + 4) {
      std::array<char, 4096> block{};
      const ssize_t count = ::read(out.ends[0], block.data(), block.size());
      count > 0 ? static_cast<void>(received.append(block.data(), static_cast<std::size_t>(count)))
                : std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  std::string frame(5, '\0');
  channel.read(frame);
  EXPECT_EQ(frame, "frame");
  EXPECT_EQ(channel.readLine(), "line");
  channel.write("head", large);
  other.join();
  EXPECT_EQ(received, "head" + large);
}

// Whatever the starter left closed, the host serves what it can and ends with its input.
TEST(Descriptors, LeftClosedByTheStarter) {
  for (const std::string input : {"", " <&-"}) {
    for (const std::string output : {"", " >&-"}) {
      for (const std::string error : {"", " 2>&-"}) {
        HostProcess host({}, {}, {"sh", "-c", "exec \"$0\"" + input + output + error});
        host.say(kVersionRequest);
        host.say(initializeRequest());
        host.say(kListRequest);
        host.closeInput();
        EXPECT_EQ(host.hear(), (input + output).empty() ? indented(kFreshVersion) : "");
        host.hearAll();
        EXPECT_EQ(host.wait(), 0) << input << output << error;
      }
    }
  }
}

}  // namespace
