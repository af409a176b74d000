// The process's allocation functions: a block is cleared before it goes back to the heap. Strings,
// JSON bodies and buffers that held a request or a PIN are thus wiped wherever and however they are
// released, without each of them having to remember it.
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

namespace {

// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is where the heap is made.
void* allocate(std::size_t size) {
  // As operator new must: retry while the new-handler may free something, then throw.
  for (;;) {
    if (void* block = std::malloc(size != 0 ? size : 1)) {
      return block;
    }
    if (const std::new_handler handler = std::get_new_handler()) {
      handler();
    } else {
      throw std::bad_alloc();
    }
  }
}

/// Most blocks of token modules written in C++ are small: two stores of a fixed size, which may
/// overlap, take less than the call of memset().
void clear(void* block, std::size_t size) noexcept {
  const auto clearEnds = [=](auto part) {
    std::memset(block, 0, part);
    std::memset(static_cast<char*>(block) + size - part, 0, part);
  };
  if (size < 8 || size > 64) {
    std::memset(block, 0, size);
  } else if (size >= 32) {
    clearEnds(std::integral_constant<std::size_t, 32>());
  } else if (size >= 16) {
    clearEnds(std::integral_constant<std::size_t, 16>());
  } else {
    clearEnds(std::integral_constant<std::size_t, 8>());
  }
}

void wipeAndRelease(void* block, std::size_t size) noexcept {
  clear(block, size);
  // The block is about to die: without this the compiler may leave the writes out. (explicit_bzero
  // says the same at several times the cost, which token modules written in C++ would pay on each
  // of their many small blocks.)
  asm volatile("" : : "r"(block) : "memory");
  std::free(block);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

}  // namespace

// The remaining forms (array, nothrow, sized) call these two by default. Over-aligned types, which
// nothing here allocates, keep the standard functions.
void* operator new(std::size_t size) { return allocate(size); }
void operator delete(void* block) noexcept {
  if (block != nullptr) {
    wipeAndRelease(block, malloc_usable_size(block));
  }
}
// The size is the one that was asked for; nothing was ever written behind it.
void operator delete(void* block, std::size_t size) noexcept {
  if (block != nullptr) {
    wipeAndRelease(block, size);
  }
}
