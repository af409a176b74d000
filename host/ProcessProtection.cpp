#include "host/ProcessProtection.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

void protectProcess() {
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  std::signal(SIGPIPE, SIG_IGN);  // NOLINT(cert-err33-c): cannot fail for this signal.
}

namespace {

/// A duplicate that programs started by a token module do not inherit.
int privateDuplicate(int descriptor) { return fcntl(descriptor, F_DUPFD_CLOEXEC, 3); }

}  // namespace

MessageChannel claimMessageChannel() {
  const int input = privateDuplicate(STDIN_FILENO);
  const int output = privateDuplicate(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nowhere, STDIN_FILENO);
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    dup2(nowhere, STDOUT_FILENO);  // Started without a standard error.
  }
  if (nowhere > STDERR_FILENO) {
    close(nowhere);
  }
  return {input, output};
}
