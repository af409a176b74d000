#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "json/_internal/Source/ByteScan.h"

namespace json_detail {

/// A string under construction. Its whole capacity is kept open for writing, so that appending a
/// few bytes is a comparison and a store; the destructor cuts the string to what was written.
class JSONOutput {
 public:
  /// Appends to `text`, which must not be touched in the meantime.
  explicit JSONOutput(std::string& text) : target(text) { open(text.size()); }
  JSONOutput(const JSONOutput&) = delete;
  JSONOutput& operator=(const JSONOutput&) = delete;
  JSONOutput(JSONOutput&&) = delete;
  JSONOutput& operator=(JSONOutput&&) = delete;
  ~JSONOutput() { target.resize(length()); }

  /// Room for that many bytes, behind what was written. Who fills it says so with advance().
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

  [[nodiscard]] std::size_t length() const { return static_cast<std::size_t>(at - target.data()); }
  /// What was written from an earlier length on, for changes in place.
  [[nodiscard]] std::span<char> writtenSince(std::size_t start) {
    return {target.data() + start, at};
  }

 private:
  void open(std::size_t size) {
    target.resize(target.capacity());
    at = target.data() + size;
    limit = target.data() + target.size();
  }
  void grow(std::size_t bytes);

  std::string& target;
  char* at = nullptr;
  char* limit = nullptr;
};

}  // namespace json_detail
