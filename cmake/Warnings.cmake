# The project's warnings; errors wherever SIGNING_HOST_WERROR is on (script/test turns it on).
option(SIGNING_HOST_WERROR "Treat compiler warnings as errors" OFF)

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(SIGNING_HOST_WERROR)
  add_compile_options(-Werror)
endif()
