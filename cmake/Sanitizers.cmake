# HX_SANITIZE=address,undefined instruments everything that is built here.
set(HX_SANITIZE "" CACHE STRING "Comma-separated list of sanitizers")

if(HX_SANITIZE)
  add_compile_options(-fsanitize=${HX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${HX_SANITIZE})
endif()
