#include "host/ProcessProtection.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "host/EndOfConversation.h"

void protectProcess() {
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  std::signal(SIGPIPE, SIG_IGN);  // NOLINT(cert-err33-c): cannot fail for this signal.
}

namespace {

/// A duplicate that programs started by a token module do not inherit.
int privateDuplicate(int descriptor) { return fcntl(descriptor, F_DUPFD_CLOEXEC, 3); }

/// Makes `descriptor` lead where `target` does, or nowhere at all when that is not possible.
void redirect(int descriptor, int target) {
  if (dup2(target, descriptor) < 0) {
    close(descriptor);
  }
}

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

}  // namespace

MessageChannel& claimMessageChannel() {
  static MessageChannel channel(privateDuplicate(STDIN_FILENO), privateDuplicate(STDOUT_FILENO),
                                endWithConversation);
  pthread_atfork(nullptr, nullptr, [] { channel.abandon(); });
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  // A standard descriptor left closed would go to the next file that a library opens, and a
  // diagnostic would then be written into that file.
  if (!isOpen(STDERR_FILENO)) {
    redirect(STDERR_FILENO, nowhere);
  }
  redirect(STDIN_FILENO, nowhere);
  redirect(STDOUT_FILENO, STDERR_FILENO);
  if (nowhere > STDERR_FILENO) {
    close(nowhere);
  }
  return channel;
}
