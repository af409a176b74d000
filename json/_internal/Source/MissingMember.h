#pragma once

#include <string_view>

namespace json_detail {

/// Ends the process for want of a member that the caller relies on, with one
/// line on standard error. Not an exception: a request loop that swallows
/// exceptions must not go on as if there had been a value.
///
/// Alone in its source file, so that a program that must outlive such a request, as a fuzz harness
/// does, can bring a definition of its own, which may throw.
[[noreturn]] void missingMember(std::string_view name);

}  // namespace json_detail
