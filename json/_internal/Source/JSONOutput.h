#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "json/_internal/Source/ByteScan.h"

namespace json_detail {

/// A text under construction. Its memory is open for writing as a whole, so
/// that appending a few bytes is a comparison and a store.
class JSONOutput {
 public:
  /// @param reserve  the expected length in bytes; not a limit
  explicit JSONOutput(std::size_t reserve);
  JSONOutput(const JSONOutput&) = delete;
  JSONOutput& operator=(const JSONOutput&) = delete;
  JSONOutput(JSONOutput&&) = delete;
  JSONOutput& operator=(JSONOutput&&) = delete;
  ~JSONOutput() { release(); }

  /// Room for that many bytes, after what was written. Who fills it says so with advance().
  [[nodiscard]] char* room(std::size_t bytes) {
    if (static_cast<std::size_t>(limit - at) < bytes) {
      grow(bytes);
    }
    return at;
  }
  void advance(char* end) { at = end; }

  void append(char byte) {
    char* const out = room(1);
    *out = byte;
    advance(out + 1);
  }
  void append(std::string_view text) {
    char* const out = room(text.size());
    copyBytes(out, text.data(), text.size());
    advance(out + text.size());
  }

  [[nodiscard]] std::size_t length() const { return static_cast<std::size_t>(at - start); }
  /// What was written, from an earlier length on: to be changed in place.
  [[nodiscard]] std::span<char> writtenSince(std::size_t earlier) { return {start + earlier, at}; }
  [[nodiscard]] std::string text() const { return {start, at}; }

 private:
  void grow(std::size_t bytes);
  void release() noexcept;

  char* start;  // a page, or a longer block
  char* at;
  char* limit;
};

}  // namespace json_detail
