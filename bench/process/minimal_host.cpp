// The least that a C++ program linked with NSS does from its start to its first answer. It
// calls nothing of NSS: loading it is what is measured.
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

int main() {
  std::array<char, 1024> request{};
  std::uint32_t size = 0;
  // Chromium writes a frame at once, Firefox in two parts.
  while (read(STDIN_FILENO, &size, sizeof size) == sizeof size && size <= request.size() &&
         read(STDIN_FILENO, request.data(), size) == static_cast<ssize_t>(size)) {
    const std::string text = R"({"command":8,"version":"1.1"})";
    const auto length = static_cast<std::uint32_t>(text.size());
    std::string answer(sizeof length, '\0');
    std::memcpy(answer.data(), &length, sizeof length);
    answer += text;
    if (write(STDOUT_FILENO, answer.data(), answer.size()) < 0) {
      return 1;
    }
  }
  return 0;
}
