# HX_SANITIZE=address,undefined instruments all targets.
set(HX_SANITIZE "" CACHE STRING "Comma-separated list of sanitizers")

if(HX_SANITIZE)
  add_compile_options(-fsanitize=${HX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${HX_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    # Without checks for undefined behavior in the headers of Qt and other libraries, the code is
    # half as large. The address sanitizer still checks them.
    add_compile_options(-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/sanitizers.ignore)
  endif()
endif()

# HX_FUZZ, with clang, builds the fuzz targets and instruments code for them.
option(HX_FUZZ "Build the fuzz targets" OFF)

function(hx_instrument_for_fuzzing target)
  if(HX_FUZZ)
    target_compile_options(${target} PRIVATE
      $<$<NOT:$<COMPILE_LANGUAGE:ASM>>:-fsanitize=fuzzer-no-link>)
  endif()
endfunction()
