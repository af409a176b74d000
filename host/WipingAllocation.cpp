// The process's allocation functions: a block is cleared before it goes back to the heap. Strings,
// JSON bodies and buffers that held a request or a PIN are thus wiped wherever and however they are
// released, without each of them having to remember it.
#include <malloc.h>
#include <string.h>  // NOLINT(modernize-deprecated-headers): explicit_bzero

#include <cstdlib>
#include <new>

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

void wipeAndRelease(void* block) noexcept {
  if (block != nullptr) {
    explicit_bzero(block, malloc_usable_size(block));
    std::free(block);
  }
}
// NOLINTEND(cppcoreguidelines-no-malloc)

}  // namespace

// The remaining forms (array, nothrow, sized) call these two by default. Over-aligned types, which
// nothing here allocates, keep the standard functions.
void* operator new(std::size_t size) { return allocate(size); }
void operator delete(void* block) noexcept { wipeAndRelease(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { wipeAndRelease(block); }
