#pragma once

#include "host/MessageChannel.h"

/// Keeps the memory of this process, which holds the PIN, to itself: no core file, and no other
/// process of the same user can trace it or read its memory. Also makes a reader that went away an
/// ordinary write error instead of a signal.
void protectProcess();

/// Takes standard input and output for messages alone: the channel gets private duplicates of both,
/// descriptor 0 then reads nothing and descriptor 1 leads to standard error, so that a token module
/// that prints or reads cannot disturb a byte of the conversation.
MessageChannel claimMessageChannel();
