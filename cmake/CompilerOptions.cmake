# Options every target is compiled with.
#
# -ffp-contract=off: scores and hash decisions are compared with thresholds, and a fused multiply-add
# rounds once where the plain expression rounds twice. The same reason rules out fast-math.
add_compile_options(
  -Wall -Wextra -Wpedantic $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> -Wconversion
  -Wno-sign-conversion -Werror -ffp-contract=off -fno-omit-frame-pointer)

set(CORVANTH_SANITIZE "" CACHE STRING "Value of -fsanitize=, empty for none")
if(CORVANTH_SANITIZE)
  add_compile_options(-fsanitize=${CORVANTH_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CORVANTH_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # gcc's flow analysis misjudges instrumented code; the plain presets keep these as errors.
    add_compile_options(-Wno-maybe-uninitialized -Wno-tsan)
    if(CORVANTH_SANITIZE MATCHES "address")
      add_compile_options(-Wno-stringop-overflow -Wno-array-bounds)
    endif()
  endif()
endif()

# libFuzzer is clang's. Everything is built to tell it which branches an input takes.
option(CORVANTH_FUZZ "Build the fuzz targets (clang only)" OFF)
if(CORVANTH_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link
    -fsanitize-ignorelist=${CMAKE_SOURCE_DIR}/fuzz/ignorelist.txt)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
