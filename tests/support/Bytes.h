#pragma once

#include <cstdint>
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

/// A native message: four bytes of length, then the text.
inline std::string lengthBytes(std::int32_t length) {
  return {reinterpret_cast<const char*>(&length), sizeof length};
}

inline std::string frame(std::string_view text) {
  return lengthBytes(static_cast<std::int32_t>(text.size())).append(text);
}

}  // namespace test_support
