#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process when something that must hold does not, which makes a fuzzer's input a finding.
inline void require(bool holds, const char* what = "see the stack") {
  if (holds) return;
  static_cast<void>(std::fprintf(stderr, "does not hold: %s\n", what));
  std::abort();
}
