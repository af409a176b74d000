// What the host promises around the calls of a token, for the bare program: with
// host/WipingAllocation.cpp, what the module releases is cleared; and a second thread waits for the
// end of the conversation, which takes the C library's shortcuts for one thread from the module.
#include <unistd.h>

#include "host/EndOfConversation.h"

namespace {
[[maybe_unused]] const bool kWatched = (endWithConversation(STDIN_FILENO, STDOUT_FILENO), true);
}  // namespace
