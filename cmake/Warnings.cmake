# Warnings for our own targets: errors in our presets, but not in a plain build with another compiler.
option(HX_WERROR "Treat warnings as errors" OFF)

add_library(hx_warnings INTERFACE)
target_compile_options(hx_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2
  -Wundef -Wcast-align
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
  $<$<BOOL:${HX_WERROR}>:-Werror>)
