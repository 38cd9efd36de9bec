# SPDX-License-Identifier: Apache-2.0
# cmake -DLIBRARY=... -DOBJDUMP=... -P check_versions.cmake: fails where the library needs something of the C library that
# the oldest one which it is to run on does not have.
set(OLDEST 2.17)

execute_process(COMMAND ${OBJDUMP} -T ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\*UND\\*[^\n]*GLIBC_[0-9.]+[^\n]*" needed "${symbols}")
foreach(line IN LISTS needed)
  string(REGEX MATCH "GLIBC_([0-9.]+)\\)? +([A-Za-z0-9_]+)" found "${line}")
  if(CMAKE_MATCH_1 VERSION_GREATER OLDEST)
    list(APPEND newer "${CMAKE_MATCH_2} (GLIBC_${CMAKE_MATCH_1})")
  endif()
endforeach()
if(newer)
  list(JOIN newer ", " names)
  file(REMOVE ${LIBRARY})
  message(FATAL_ERROR "${LIBRARY} would not load on glibc ${OLDEST}: it needs ${names}")
endif()
