# SPDX-License-Identifier: Apache-2.0
# Programs for clang's fuzzing engine. What they read their input with is compiled once, with the sanitizers, into
# `fuzzed`; a fuzzer takes from it what it needs.

set(QUARL_SANITIZERS address,undefined)

add_library(fuzzed STATIC)
target_compile_options(fuzzed PUBLIC -O1 -g1 -fsanitize=fuzzer-no-link,${QUARL_SANITIZERS} -fno-sanitize-recover=all)
target_include_directories(fuzzed PUBLIC ${PROJECT_SOURCE_DIR}/srcs ${PROJECT_SOURCE_DIR}/srcs/quarl
                                         ${PROJECT_SOURCE_DIR}/tools ${PROJECT_SOURCE_DIR}/tools/cli)
find_package(fmt REQUIRED)
find_package(Threads REQUIRED)
target_link_libraries(fuzzed PUBLIC fmt::fmt Threads::Threads)

# fuzzer(NAME SOURCE FUZZED...): a program NAME of SOURCE and what it fuzzes
function(fuzzer name source)
  target_sources(fuzzed PRIVATE ${ARGN})
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE fuzzed)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer,${QUARL_SANITIZERS})
endfunction()
