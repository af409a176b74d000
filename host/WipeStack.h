#pragma once

/// Clears the stack below the caller's frame, as deep as serving a request reaches, so that no copy
/// of a PIN outlives the request that carried or used it.
void wipeStack();
