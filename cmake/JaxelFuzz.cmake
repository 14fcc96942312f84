# Instruments the whole build for the libFuzzer targets: coverage feedback for
# the fuzzer and AddressSanitizer + UndefinedBehaviorSanitizer. Clang only.
include_guard(GLOBAL)

if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT CMAKE_C_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "JAXEL_BUILD_FUZZERS needs clang: configure with CC=clang CXX=clang++")
endif()
# The platform libraries link with --no-undefined, which clang's static
# sanitizer runtime cannot satisfy: every binary uses the shared one, named
# first so that it loads first. -fsanitize=fuzzer would put the C++ runtime
# ahead of it, so the fuzz targets link the engine's archive themselves.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-runtime-dir
  OUTPUT_VARIABLE JAXEL_CLANG_RUNTIME_DIR OUTPUT_STRIP_TRAILING_WHITESPACE)
add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize=vptr
                    -fno-sanitize-recover=all -fno-omit-frame-pointer)
add_link_options(${JAXEL_CLANG_RUNTIME_DIR}/libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so
                 -fsanitize=address,undefined -shared-libsan -Wl,-rpath,${JAXEL_CLANG_RUNTIME_DIR})
