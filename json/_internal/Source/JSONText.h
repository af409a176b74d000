#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "json/_internal/Source/ByteScan.h"

namespace json_detail {

/// The compacted bytes of one parsed document, shared by the bodies whose texts are slices of it.
/// A handle on a reference-counted block (plain count: one thread at a time, as the whole tree).
class JSONSource {
 public:
  JSONSource() = default;
  /// Room for `capacity` bytes, to be filled through data() and closed with setSize().
  explicit JSONSource(std::size_t capacity);
  JSONSource(const JSONSource& other) noexcept : block(other.block) {
    if (block != nullptr) {
      ++block->references;
    }
  }
  JSONSource(JSONSource&& other) noexcept : block(std::exchange(other.block, nullptr)) {}
  JSONSource& operator=(const JSONSource& other) noexcept { return *this = JSONSource(other); }
  JSONSource& operator=(JSONSource&& other) noexcept {
    std::swap(block, other.block);
    return *this;
  }
  ~JSONSource() {
    if (block != nullptr && --block->references == 0) {
      ::operator delete(block);
    }
  }

  [[nodiscard]] char* data() const { return reinterpret_cast<char*>(block + 1); }
  [[nodiscard]] std::string_view view() const { return {data(), block->size}; }
  void setSize(std::size_t size) { block->size = size; }

  /// False when no byte of the text is a backslash, so that no string needs unescaping.
  [[nodiscard]] bool mayHoldEscapes() const { return block == nullptr || block->mayHoldEscapes; }
  void setMayHoldEscapes(bool may) { block->mayHoldEscapes = may; }
  /// False when the text holds no comment marker outside its strings.
  [[nodiscard]] bool mayHoldComments() const { return block == nullptr || block->mayHoldComments; }
  void setMayHoldComments(bool may) { block->mayHoldComments = may; }

 private:
  struct Block {
    std::size_t references;
    std::size_t size;
    bool mayHoldEscapes;
    bool mayHoldComments;
  };
  Block* block = nullptr;
};

/// A byte string of a body: up to 23 bytes in place, more on the heap, or borrowed (a slice of the
/// body's JSONSource, or one of the constant texts) without a copy.
class JSONText {
 public:
  JSONText() noexcept : raw{} {}
  /// Borrows, see borrow().
  explicit JSONText(std::string_view text) noexcept : raw{} {
    setRemote(text.data(), text.size(), kBorrowed);
  }
  JSONText(const JSONText&) = delete;
  JSONText& operator=(const JSONText&) = delete;
  JSONText(JSONText&&) = delete;
  JSONText& operator=(JSONText&&) = delete;
  ~JSONText() { release(); }

  [[nodiscard]] std::size_t size() const noexcept {
    return tag() <= kInPlace ? tag() : remote().size;
  }
  [[nodiscard]] std::string_view view() const noexcept {
    if (tag() <= kInPlace) {
      return {raw.data(), tag()};
    }
    const Remote text = remote();
    return {text.data, text.size};
  }

  /// Takes a copy of `text`, which must not be part of the present text.
  void assign(std::string_view text) {
    if (text.size() > kInPlace) {
      assignToHeap(text);
      return;
    }
    clear();
    copyBytes(raw.data(), text.data(), text.size());
    raw[kInPlace] = static_cast<char>(text.size());
  }

  /// Refers to bytes that outlive this object.
  void borrow(std::string_view text) noexcept {
    release();
    setRemote(text.data(), text.size(), kBorrowed);
  }

  void clear() noexcept {
    release();
    raw.fill(0);
  }

  /// A copy of `other`; what other borrows stays borrowed.
  void copyFrom(const JSONText& other) {
    if (other.tag() == kBorrowed) {
      borrow(other.view());
    } else {
      assign(other.view());
    }
  }

 private:
  struct Remote {
    const char* data;
    std::size_t size;
  };
  static constexpr std::size_t kInPlace = 23;
  static constexpr unsigned char kBorrowed = 0xFE;
  static constexpr unsigned char kHeap = 0xFF;

  [[nodiscard]] unsigned char tag() const noexcept {
    return static_cast<unsigned char>(raw[kInPlace]);
  }
  [[nodiscard]] Remote remote() const noexcept {
    Remote text{};
    std::memcpy(&text, raw.data(), sizeof text);
    return text;
  }
  void setRemote(const char* data, std::size_t size, unsigned char newTag) noexcept {
    const Remote text{data, size};
    std::memcpy(raw.data(), &text, sizeof text);
    raw[kInPlace] = static_cast<char>(newTag);
  }
  void assignToHeap(std::string_view text);

  void release() noexcept {
    if (tag() == kHeap) {
      delete[] remote().data;
    }
  }

  // The bytes themselves or a Remote; the last byte is the length in place or tells which.
  alignas(Remote) std::array<char, kInPlace + 1> raw;
};

}  // namespace json_detail
