#pragma once

/// From now on the process ends as soon as nobody can read an answer any more and the input has
/// ended, whatever it is doing then: no call of a token module, however long it hangs, keeps a PIN
/// in a process that nobody listens to. While somebody can read, the end of the input ends nothing:
/// a FIFO's next writer is heard.
///
/// A negative descriptor counts as gone, and so does an input that nobody can write to, a file.
void endWithConversation(int input, int output);
