#include "json/_internal/Source/MissingMember.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace json_detail {

void missingMember(std::string_view name) {
  constexpr std::size_t kShown = 64;
  std::string shown(name.substr(0, kShown));
  for (char& c : shown) {
    if (c < ' ' || c > '~') {
      c = '?';
    }
  }
  static_cast<void>(std::fprintf(stderr, "json: the member \"%s\" is missing\n", shown.c_str()));
  std::abort();
}

}  // namespace json_detail
