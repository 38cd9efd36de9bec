# SPDX-License-Identifier: Apache-2.0
# Where the library is installed. On a board, with what a program needs that calls it (component `board`): in the folder of
# its architecture where the compiler knows one (lib/arm-linux-gnueabihf), else in lib; CMAKE_INSTALL_LIBDIR says otherwise.
# On a desk, beside those of other targets, where the host tool looks (component `desk`, only when named): lib/quarl/TARGET.
# Nothing that is installed holds the prefix: an installed tree can be moved.

if(NOT DEFINED CMAKE_INSTALL_LIBDIR)
  execute_process(COMMAND ${CMAKE_C_COMPILER} ${CMAKE_C_COMPILER_ARG1} -print-multiarch
    OUTPUT_VARIABLE multiarch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  set(CMAKE_INSTALL_LIBDIR lib CACHE PATH "folder of libraries, below the prefix")
  if(multiarch)
    set_property(CACHE CMAKE_INSTALL_LIBDIR PROPERTY VALUE lib/${multiarch})
  endif()
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(quarl INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS quarl EXPORT quarl LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT board)
install(FILES ${PROJECT_SOURCE_DIR}/include/quarl.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT board)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/quarl)
install(EXPORT quarl NAMESPACE quarl:: FILE quarl-config.cmake DESTINATION ${package} COMPONENT board)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/quarl-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quarl-config-version.cmake DESTINATION ${package} COMPONENT board)

file(RELATIVE_PATH QUARL_PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/quarl.pc.in quarl.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quarl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT board)

install(TARGETS quarl LIBRARY DESTINATION lib/quarl/${QUARL_TARGET} COMPONENT desk EXCLUDE_FROM_ALL)
