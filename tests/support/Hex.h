#pragma once

#include <string>
#include <string_view>

namespace test_support {

inline std::string hex(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    text += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4U];
    text += "0123456789abcdef"[static_cast<unsigned char>(c) & 0x0FU];
  }
  return text;
}

}  // namespace test_support
