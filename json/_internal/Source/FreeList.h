#pragma once

#include <cstddef>
#include <cstring>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define JSON_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer) || \
    __has_feature(thread_sanitizer)
#define JSON_UNDER_SANITIZER 1
#endif
#endif

namespace json_detail {

/// Memory blocks of one size, kept for reuse instead of going back to the allocator.
///
/// Every thread has its own list, so trees that belong to different threads stay independent. A
/// block is cleared when it is given back: nothing that a request said survives in the list. The
/// list is bounded, so that one large document does not hold its memory for ever, and under the
/// sanitizers it is bypassed, so that leaks and uses after release are still found.
template <typename T>
class FreeList {
 public:
  static void* take() {
    if (Block* block = list.first; block != nullptr) {
      list.first = block->next;
      ++list.room;
      return block;
    }
    return ::operator new(kBlockSize);
  }

  static void give(void* memory) noexcept {
    if (list.room == 0 && !makeRoom()) {
      ::operator delete(memory);
      return;
    }
    clear<kBlockSize>(static_cast<char*>(memory));
    list.first = ::new (memory) Block{list.first};
    --list.room;
  }

 private:
  struct Block {
    Block* next;
  };
  struct List {
    Block* first = nullptr;
    std::size_t room = 0;  // for that many more blocks
    bool opened = false;   // it will be emptied when the thread ends
  };
  struct Drain {
    Drain() = default;
    Drain(const Drain&) = delete;
    Drain& operator=(const Drain&) = delete;
    Drain(Drain&&) = delete;
    Drain& operator=(Drain&&) = delete;
    ~Drain() {
      while (list.first != nullptr) {
        ::operator delete(take());
      }
      list.room = 0;  // what is released from here on goes straight to the allocator
    }
  };

  static constexpr std::size_t kBlockSize = sizeof(T) < sizeof(Block) ? sizeof(Block) : sizeof(T);
  static constexpr std::size_t kLimit = 16384;
#ifdef JSON_UNDER_SANITIZER
  static constexpr bool kBypass = true;
#else
  static constexpr bool kBypass = false;
#endif

  /// In pieces, because a larger fill of a known size becomes a string instruction, which takes
  /// longer to start than all of this takes.
  template <std::size_t Size>
  static void clear(char* bytes) noexcept {
    constexpr std::size_t kPiece = 64;
    if constexpr (Size <= kPiece) {
      std::memset(bytes, 0, Size);
    } else {
      std::memset(bytes, 0, kPiece);
      clear<Size - kPiece>(bytes + kPiece);
    }
  }

  /// Opens the list on first use; afterwards it is full.
  static bool makeRoom() noexcept {
    if (kBypass || list.opened) {
      return false;
    }
    static thread_local Drain drain;
    list.opened = true;
    list.room = kLimit;
    return true;
  }

  // Initialised at compile time and placed in the program's own block, so that using it is no call.
  [[gnu::tls_model("initial-exec")]] static inline constinit thread_local List list{};
};

}  // namespace json_detail
