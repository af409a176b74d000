set(SIGNING_HOST_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")

if(SIGNING_HOST_SANITIZE)
  add_compile_options(-fsanitize=${SIGNING_HOST_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -g)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  add_link_options(-fsanitize=${SIGNING_HOST_SANITIZE})
endif()
