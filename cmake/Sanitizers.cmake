# HX_SANITIZE=address,undefined instruments all targets.
set(HX_SANITIZE "" CACHE STRING "Comma-separated list of sanitizers")

if(HX_SANITIZE)
  add_compile_options(-fsanitize=${HX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${HX_SANITIZE})
endif()

# HX_FUZZ, with clang, builds the fuzz targets and instruments code for them.
option(HX_FUZZ "Build the fuzz targets" OFF)

function(hx_instrument_for_fuzzing target)
  if(HX_FUZZ)
    target_compile_options(${target} PRIVATE
      $<$<NOT:$<COMPILE_LANGUAGE:ASM>>:-fsanitize=fuzzer-no-link>)
  endif()
endfunction()
