# SPDX-License-Identifier: Apache-2.0
# cmake -DLIBRARY=... -DOBJDUMP=... -P check_versions.cmake: fails where the library needs something of the C library that
# the oldest one which it is to run on does not have.
set(OLDEST 2.17)

execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${OBJDUMP} -T ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)

# Besides versions of symbols there are names of abilities that the loader must have (GLIBC_ABI_DT_RELR).
string(REGEX REPLACE ".*Version References:" "" references "${headers}")
string(REGEX MATCHALL "GLIBC_[A-Za-z0-9_.]+" wanted "${references}")
if(NOT wanted)
  message(FATAL_ERROR "${LIBRARY}: ${OBJDUMP} says nothing of the versions that it needs")
endif()
foreach(version IN LISTS wanted)
  if(version MATCHES "^GLIBC_([0-9.]+)$" AND CMAKE_MATCH_1 VERSION_LESS_EQUAL OLDEST)
    continue()
  endif()
  string(REGEX MATCHALL "${version}\\)? +[A-Za-z0-9_]+" uses "${symbols}")
  list(TRANSFORM uses REPLACE ".* " "")
  list(JOIN uses ", " names)
  list(APPEND newer "${version} (${names})")
endforeach()
if(newer)
  file(REMOVE ${LIBRARY})
  list(JOIN newer "; " all)
  message(FATAL_ERROR "${LIBRARY} would not load on glibc ${OLDEST}: it needs ${all}")
endif()
