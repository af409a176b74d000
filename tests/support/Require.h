#pragma once

#include <cstdio>
#include <cstdlib>

/// Makes the input a finding when something that must hold does not.
inline void require(bool holds, const char* what = "see the stack") {
  if (holds) return;
  static_cast<void>(std::fprintf(stderr, "does not hold: %s\n", what));
  std::abort();
}
