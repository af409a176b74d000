// A module that stands in front of the fake token, which it links: the list that it hands out leads
// to its own C_Initialize, the exported names lead past it. It replaces the allocation functions,
// with blocks that no other functions can release.
#include <dlfcn.h>
#include <pkcs11.h>

#include <cstdlib>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kHeader = 64;

// NOLINTBEGIN(cppcoreguidelines-no-malloc,bugprone-misplaced-pointer-arithmetic-in-alloc)
void* take(std::size_t size) { return static_cast<char*>(std::malloc(size + kHeader)) + kHeader; }

void release(void* block) {
  if (block != nullptr) std::free(static_cast<char*>(block) - kHeader);
}
// NOLINTEND(cppcoreguidelines-no-malloc,bugprone-misplaced-pointer-arithmetic-in-alloc)

/// Calls the token's own twice, which shows in its log.
CK_RV initialize(CK_VOID_PTR arguments) {
  std::ostringstream text;  // Allocated partly in the runtime's code, partly in this file's.
  for (const auto& word : std::vector<std::string>(9, std::string(99, 'x'))) text << word;
  delete[] new std::string[3]{text.str()};
  C_Initialize(arguments);
  return C_Initialize(arguments);
}

}  // namespace

void* operator new(std::size_t size) { return take(size); }
void* operator new[](std::size_t size) { return take(size); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { release(block); }
void operator delete[](void* block, std::size_t /*size*/) noexcept { release(block); }

#pragma GCC visibility push(default)
extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST own;
  const auto next = reinterpret_cast<CK_C_GetFunctionList>(dlsym(RTLD_NEXT, "C_GetFunctionList"));
  const CK_RV value = next(list);
  own = **list;
  own.C_Initialize = initialize;
  *list = &own;
  return value;
}
#pragma GCC visibility pop
