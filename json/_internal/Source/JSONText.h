#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <span>
#include <string_view>

#include "json/_internal/Source/ByteScan.h"

namespace json_detail {

/// A byte string of a body: borrowed (a slice of the body's JSONSource, or one
/// of the constant texts) without a copy, or copied into room that the body
/// has, or else to the heap. Below 4 GiB; std::bad_alloc for more.
class JSONText {
 public:
  JSONText() = default;
  /// Borrows, see borrow().
  explicit JSONText(std::string_view text) noexcept
      : bytes(text.data()), length(static_cast<std::uint32_t>(text.size())) {}
  JSONText(const JSONText&) = delete;
  JSONText& operator=(const JSONText&) = delete;
  JSONText(JSONText&&) = delete;
  JSONText& operator=(JSONText&&) = delete;
  ~JSONText() { release(); }

  [[nodiscard]] std::string_view view() const noexcept { return {bytes, length}; }

  /// Takes a copy of `text`, which must not be part of the present text. The
  /// room is only this text's and lives as long.
  void assign(std::string_view text, std::span<char> room = {}) {
    const Place newPlace = text.size() <= room.size() ? Place::kRoom : Place::kHeap;
    char* const copy = newPlace == Place::kRoom ? room.data() : newBytes(text.size());
    forget();
    copyBytes(copy, text.data(), text.size());
    set(copy, text.size(), newPlace);
  }

  /// Refers to bytes that outlive this object.
  void borrow(std::string_view text) noexcept {
    forget();
    set(text.data(), text.size(), Place::kElsewhere);
  }

  void clear() noexcept { borrow({}); }

  /// Leaves out the first and the last byte of a borrowed text.
  void dropEnds() noexcept {
    ++bytes;
    length -= 2;
  }

  /// A copy of `other`; what other borrows stays borrowed.
  void copyFrom(const JSONText& other, std::span<char> room = {}) {
    if (other.place == Place::kElsewhere) {
      borrow(other.view());
    } else {
      assign(other.view(), room);
    }
  }

 private:
  enum class Place : std::uint32_t { kElsewhere, kRoom, kHeap };

  static char* newBytes(std::size_t size) {
    if (size > std::numeric_limits<std::uint32_t>::max()) {
      throw std::bad_alloc();
    }
    return new char[size];
  }
  void set(const char* data, std::size_t size, Place newPlace) noexcept {
    bytes = data;
    length = static_cast<std::uint32_t>(size);
    place = newPlace;
  }
  /// Leaves nothing behind in the room, which lives on.
  void forget() noexcept {
    if (place == Place::kRoom) {
      // Copied there by assign().
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
      std::memset(const_cast<char*>(bytes), 0, length);
    }
    release();
  }
  void release() noexcept {
    if (place == Place::kHeap) {
      delete[] bytes;
    }
  }

  const char* bytes = nullptr;
  std::uint32_t length = 0;
  Place place = Place::kElsewhere;
};

}  // namespace json_detail
