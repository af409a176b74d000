#include <cstdlib>

namespace {

[[noreturn, gnu::constructor]] void crash() { std::abort(); }

}  // namespace
