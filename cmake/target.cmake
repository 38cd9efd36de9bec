# SPDX-License-Identifier: Apache-2.0
# QUARL_TARGET is what is built: `host`, the tool for the development PC, or the library for `i686`, `armhf` or `armel`.
# The toolchain files here name it. Without a name, or with `library`, it follows from what the compiler makes code for,
# with all its flags: 32 bits are the library's, 64 bits the tool's.

# quarl_probe_target(RESULT): i686, armhf, armel, `wide` (64 bits), or in words what else the compiler makes code for.
function(quarl_probe_target result)
  try_compile(compiled ${CMAKE_CURRENT_BINARY_DIR}/target ${PROJECT_SOURCE_DIR}/cmake/target.c OUTPUT_VARIABLE told)
  if(NOT told MATCHES "quarl target: ([a-zA-Z0-9 ,]+);")
    message(FATAL_ERROR "what the compiler makes code for cannot be told; it said:\n${told}")
  endif()
  set(${result} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

set(QUARL_TESTS_DEFAULT ON)
if(NOT QUARL_TARGET MATCHES "^(host|fuzz)$")
  quarl_probe_target(probed)
  if(probed MATCHES "^(i686|armhf|armel)$")
    if(QUARL_TARGET AND NOT QUARL_TARGET MATCHES "^(library|${probed})$")
      message(FATAL_ERROR "QUARL_TARGET is ${QUARL_TARGET}, but ${CMAKE_C_COMPILER} makes code for ${probed}.")
    endif()
  elseif(probed STREQUAL "wide" AND NOT QUARL_TARGET AND NOT CMAKE_CROSSCOMPILING)
    set(probed host)
  else()
    string(REPLACE "wide" "a 64-bit processor" probed "${probed}")
    message(FATAL_ERROR "libquarl.so is for 32-bit programs, of ARM from ARMv5 on (little endian, EABI) or of x86, on Linux; "
      "${CMAKE_C_COMPILER} makes code for ${probed}. The host tool for such a machine: -DQUARL_TARGET=host.")
  endif()
  if(NOT QUARL_TARGET OR QUARL_TARGET STREQUAL "library")
    set(QUARL_TARGET ${probed})
    # Somebody else's toolchain: nobody there has what the tests need.
    if(NOT QUARL_TARGET STREQUAL "host")
      set(QUARL_TESTS_DEFAULT OFF)
    endif()
  endif()
endif()
