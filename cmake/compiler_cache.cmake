# SPDX-License-Identifier: Apache-2.0
# What was compiled before comes from ccache, when the machine has it. Precompiled headers need its leave to differ in
# their time stamps.
find_program(QUARL_CCACHE ccache)
if(QUARL_CCACHE)
  foreach(language C CXX)
    if(NOT CMAKE_${language}_COMPILER_LAUNCHER)
      set(CMAKE_${language}_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${QUARL_CCACHE})
    endif()
  endforeach()
endif()
