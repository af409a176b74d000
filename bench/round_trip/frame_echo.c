// The limit that the host's round trip is measured against: reads native frames and writes frames
// of a fixed size, with one read and one write a message and nothing else.
//
//   frame_echo SIZE     SIZE: bytes of text in every answer
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kLengthSize = 4, kLargestRequest = 4096, kLargestAnswer = 65536 };

int main(int argc, char** argv) {
  static char request[kLargestRequest];
  static char answer[kLargestAnswer];
  const long size = argc > 1 ? strtol(argv[1], NULL, 10) : 0;
  if (size <= 0 || size > kLargestAnswer - kLengthSize) {
    return EXIT_FAILURE;
  }
  const uint32_t length = (uint32_t)size;
  memcpy(answer, &length, kLengthSize);
  memset(answer + kLengthSize, ' ', length);
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, request, sizeof request);
    if (count <= 0) {
      return EXIT_SUCCESS;
    }
    // The driver writes a frame with one call and waits for its answer, so a frame arrives whole.
    uint32_t requestLength = 0;
    memcpy(&requestLength, request, kLengthSize);
    if ((size_t)count != kLengthSize + (size_t)requestLength ||
        write(STDOUT_FILENO, answer, kLengthSize + length) < 0) {
      return EXIT_FAILURE;
    }
  }
}
