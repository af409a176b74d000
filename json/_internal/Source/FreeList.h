#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "json/_internal/Source/Sanitizer.h"

namespace json_detail {

/// Memory blocks of one size, kept for reuse instead of going back to the allocator.
///
/// Every thread has its own list, so trees that belong to different threads stay independent. A
/// block is cleared when it is given back: nothing that a request said survives in the list. The
/// list is bounded, so that one large tree does not hold its memory for ever.
template <typename T, std::size_t Limit = 16384>
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
    giveBack(memory, [memory] { clear<kBlockSize>(static_cast<char*>(memory)); });
  }
  /// The same for a block of which only the first bytes were used.
  static void give(void* memory, std::size_t used) noexcept {
    giveBack(memory, [memory, used] { std::memset(memory, 0, used); });
  }

  /// new and delete for a T in such a block.
  template <typename... Arguments>
  static T* make(Arguments&&... arguments) {
    static_assert(noexcept(T(std::forward<Arguments>(arguments)...)));
    return ::new (take()) T(std::forward<Arguments>(arguments)...);
  }
  static void destroy(T* object) noexcept {
    object->~T();
    give(object);
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

  template <typename Clear>
  static void giveBack(void* memory, Clear clearUsed) noexcept {
    if (list.room == 0 && !makeRoom()) {
      ::operator delete(memory);
      return;
    }
    clearUsed();
    list.first = ::new (memory) Block{list.first};
    --list.room;
  }

  /// In pieces, because a larger fill of a known size becomes a string instruction: without them
  /// writing takes half as long again.
  template <std::size_t Size>
  static void clear(char* bytes) noexcept {
    constexpr std::size_t kPiece = 64;
    std::memset(bytes, 0, Size < kPiece ? Size : kPiece);
    if constexpr (Size > kPiece) {
      clear<Size - kPiece>(bytes + kPiece);
    }
  }

  /// Opens the list on first use; false when it is open already and therefore full.
  static bool makeRoom() noexcept {
    if (!kMemoryIsReused || list.opened) {
      return false;
    }
    static thread_local Drain drain;
    list.opened = true;
    list.room = Limit;
    return true;
  }

  // Initialised at compile time and placed in the program's own block, so that using it is no call.
  [[gnu::tls_model("initial-exec")]] static inline constinit thread_local List list{};
};

/// For a std::unique_ptr to what FreeList<T>::make() gave.
template <typename T>
struct Recycle {
  void operator()(T* object) const noexcept { FreeList<T>::destroy(object); }
};

}  // namespace json_detail
