# The whole build, tools and test helpers included, never fuses multiply-adds; the
# module and the tests get the full set below.
add_compile_options(-ffp-contract=off)

# Floating-point results are part of the module's contract, bit for bit, on every
# target: no fused multiply-add (arm64 compilers fuse by default), no fast-math, and
# no SLP vectorising of float sums (GCC 12 at -O2 regrouped a float-rounded sum of
# squares through it).
function(calmodule_exact_float target)
  target_compile_options(${target} PRIVATE
      -ffp-contract=off -fno-fast-math -fno-tree-slp-vectorize -fno-tree-vectorize
      -Wall -Wextra -Wdouble-promotion -Wno-unused-parameter)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # clang has no tree vectoriser flags; turn its vectorisers off explicitly.
    target_compile_options(${target} PRIVATE -fno-vectorize -fno-slp-vectorize
        -Wno-unknown-warning-option -Wno-ignored-optimization-argument)
  endif()
endfunction()

# The sanitizer build instruments the module, the tests and the tools alike.
set(CALMODULE_SANITIZE "" CACHE STRING "Sanitizers to build with, e.g. address,undefined")
if(CALMODULE_SANITIZE)
  add_compile_options(-fsanitize=${CALMODULE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CALMODULE_SANITIZE})
endif()

# arm64 devices may run with 16 KiB pages; a library whose LOAD segments are aligned
# to less does not load there. 16 KiB alignment loads on 4 KiB-page devices too.
function(calmodule_page_alignment target)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64|ARM64)$")
    target_link_options(${target} PRIVATE -Wl,-z,max-page-size=16384)
  endif()
endfunction()
