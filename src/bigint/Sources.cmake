# The integers' sources, for the library and for the tests, which build them a second time. The
# assembly is empty where it does not apply.
enable_language(ASM)

set(HX_BIGINT_SOURCES
  arithmetic.c
  binary.c
  compare.c
  kernel_barrett.c
  kernel_basic.c
  kernel_dispatch.c
  kernel_div.c
  kernel_gcd.c
  kernel_mul.c
  kernel_root.c
  kernel_rows.c
  kernel_text.c
  kernel_toom.c
  kernel_x86_64.S
  life.c
  modular.c
  number_theory.c
  power.c
  record.c
  shift.c
  small.c
  text.c)
list(TRANSFORM HX_BIGINT_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
