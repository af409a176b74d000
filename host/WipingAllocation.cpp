// The process's allocation functions: a block is cleared before it goes back to the heap. Strings,
// JSON bodies and buffers that held a request or a PIN are thus wiped wherever and however they are
// released, without each of them having to remember it; so is what a token module written in C++
// releases, whose calls end up here too.
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is where the heap is made.
void* operator new(std::size_t size) {
  // As operator new must: retry while the new-handler may free something, then throw.
  for (;;) {
    if (void* block = std::malloc(size)) {  // glibc has one for no bytes, too
      return block;
    }
    if (const std::new_handler handler = std::get_new_handler()) {
      handler();
    } else {
      throw std::bad_alloc();
    }
  }
}

// The remaining forms (array, nothrow) are the C++ runtime's and call these. Over-aligned types,
// which nothing here allocates, keep the runtime's own functions.
void operator delete(void* block) noexcept {
  if (block != nullptr) {
    std::memset(block, 0, malloc_usable_size(block));
    // The block is about to die: without this the compiler may leave the clearing out.
    asm volatile("" : : "r"(block) : "memory");
    std::free(block);
  }
}
// How much is cleared is not left to the caller's word.
void operator delete(void* block, std::size_t /*size*/) noexcept { operator delete(block); }
// NOLINTEND(cppcoreguidelines-no-malloc)
