# Exploit mitigations of the released binary: position-independent executable, read-only
# relocations bound at start, stack protector, fortified libc calls, control-flow protection, checked
# preconditions of the C++ library, no uninitialised variables.
include(CheckPIESupported)
check_pie_supported()

if(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i[3-6]86")
    add_compile_options(-fcf-protection=full)
  endif()
  # Level 3 bounds also what is only known at run time, where compiler and C library have it.
  include(CheckCXXCompilerFlag)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstring>\nint main() {}" SIGNING_HOST_HAVE_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  add_compile_definitions(_FORTIFY_SOURCE=$<IF:$<BOOL:${SIGNING_HOST_HAVE_FORTIFY_3}>,3,2>)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  check_cxx_compiler_flag(-ftrivial-auto-var-init=zero SIGNING_HOST_HAVE_AUTO_VAR_INIT)
  if(SIGNING_HOST_HAVE_AUTO_VAR_INIT)
    add_compile_options(-ftrivial-auto-var-init=zero)
  endif()
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack,--as-needed,-O1)
endif()
