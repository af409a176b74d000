# The project's warnings; errors wherever SIGNING_HOST_WERROR is on (script/test turns it on).
option(SIGNING_HOST_WERROR "Treat compiler warnings as errors" OFF)

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # False alarms about what is inlined at -O3 (GCC bugs 105329, 105651); array bounds on arm64.
  add_compile_options(-Wno-restrict -Wno-stringop-overread -Wno-array-bounds)
endif()
if(SIGNING_HOST_WERROR)
  add_compile_options(-Werror)
endif()
