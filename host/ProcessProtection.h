#pragma once

#include "host/MessageChannel.h"

/// Keeps the memory of this process, which holds the PIN, to itself: no core file, and no other
/// process of the same user can trace it or read its memory. Programs that a token module starts
/// gain no rights that the user lacks. Also makes a reader that went away an
/// ordinary write error instead of a signal.
void protectProcess();

/// Takes standard input and output for messages alone: the channel gets private duplicates of both,
/// descriptor 0 then reads nothing and descriptor 1 leads to standard error, so that a token module
/// that prints or reads cannot disturb a byte of the conversation. A process that a module forks
/// has no part in it. The process ends with it (host/EndOfConversation.h), in native mode from the
/// first token command on, before which nothing can keep it from reading the end of its input.
///
/// To be called once; the channel lives as long as the process.
MessageChannel& claimMessageChannel();
