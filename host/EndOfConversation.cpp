#include "host/EndOfConversation.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <thread>

namespace {

constexpr int kForEver = -1;

/// Waits until the other end of the stream is gone; true when it is.
bool isGone(int descriptor, int milliseconds) {
  pollfd stream{descriptor, 0, 0};
  return descriptor < 0 || ::poll(&stream, 1, milliseconds) > 0;
}

bool hasOtherEnd(int descriptor) {
  using FileStatus = struct stat;
  FileStatus kind{};
  return fstat(descriptor, &kind) == 0 &&
         (S_ISFIFO(kind.st_mode) || S_ISSOCK(kind.st_mode) || isatty(descriptor) != 0);
}

[[noreturn]] void watch(int input, int output) {
  for (;;) {
    // One after the other: either end may come back, and neither is asked without a pause.
    isGone(output, kForEver);
    isGone(input, kForEver);
    if (isGone(output, 0) && isGone(input, 0)) {
      _exit(0);  // The kernel clears the memory; nothing of the module's is waited for.
    }
  }
}

}  // namespace

void endWithConversation(int input, int output) {
  // A signal handler of the module's runs on the threads that it knows.
  sigset_t all{};
  sigset_t before{};
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread(watch, hasOtherEnd(input) ? input : -1, output).detach();
  } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch): it serves without, too
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
