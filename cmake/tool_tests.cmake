# SPDX-License-Identifier: Apache-2.0
# What the tests of the host tool share: 32-bit programs to look at, and areas of Python's unittest.

set(QUARL_CC_NAME_i686 i686-linux-gnu-gcc)
set(QUARL_CC_NAME_armhf arm-linux-gnueabihf-gcc)
set(QUARL_CC_NAME_armel arm-linux-gnueabi-gcc)

# cross_program(NAME TARGET SOURCE [OPTION]...): NAME in the current build folder, walkable by frames, and -fno-builtin so
# that no allocation is optimised away. Nothing when the compiler of TARGET is not there.
function(cross_program name target source)
  find_program(QUARL_CC_${target} ${QUARL_CC_NAME_${target}})
  if(NOT QUARL_CC_${target})
    return()
  endif()
  set(flags -std=gnu17 -O1 -g -Wall -Wextra -Werror -fno-builtin -fno-omit-frame-pointer -fno-optimize-sibling-calls)
  if(target MATCHES "^arm")
    list(APPEND flags -marm -mapcs-frame)
  endif()
  add_custom_command(OUTPUT ${name} DEPENDS ${source} VERBATIM
    COMMAND ${QUARL_CC_${target}} ${flags} ${CMAKE_CURRENT_SOURCE_DIR}/${source} -o ${name} -pthread -ldl ${ARGN})
  add_custom_target(build_${name} ALL DEPENDS ${name})
endfunction()

# python_areas(PREFIX AREA... [ENVIRONMENT name=value...]): test PREFIX_AREA runs test_AREA.py of the current folder.
function(python_areas prefix)
  cmake_parse_arguments(arg "" "" ENVIRONMENT ${ARGN})
  find_package(Python3 3.11 REQUIRED COMPONENTS Interpreter)
  foreach(area ${arg_UNPARSED_ARGUMENTS})
    add_test(NAME ${prefix}_${area} COMMAND ${Python3_EXECUTABLE} -m unittest -v test_${area}
      WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    set_tests_properties(${prefix}_${area} PROPERTIES TIMEOUT 300
      ENVIRONMENT "QUARL_BUILD=${PROJECT_BINARY_DIR}/..;PYTHONDONTWRITEBYTECODE=1;${arg_ENVIRONMENT}")
  endforeach()
endfunction()
