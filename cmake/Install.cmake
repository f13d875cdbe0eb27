# What `cmake --install` puts under the prefix, by component (top-level CMakeLists.txt):
# - dev: the libraries with their headers, the CMake package VplsDecap, the pkg-config file
#   vpls-decap.pc and the consumer example's sources;
# - runtime: the programs (each directory installs its own), the show command's front end, the
#   manual pages (man/), the example scenarios and the documentation; the Debian package's
#   service files too (packaging/);
# - license: LICENSE beside the documentation, for an install outside Debian (a Debian
#   package's copyright file refers to Debian's copy of the licence instead).
include(CMakePackageConfigHelpers)

# Headers under one directory of their own, at the include paths the code in this tree uses
# below it: `Loom/...`, `Fab/...`, `MarlTunnel/...`.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/ DESTINATION ${VPLS_DECAP_INCLUDE_DIR}
        COMPONENT dev FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/MarlTunnel DESTINATION ${VPLS_DECAP_INCLUDE_DIR}
        COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN "detail" EXCLUDE)

install(TARGETS platform_archive platform marltunnel_archive marltunnel
        EXPORT VplsDecapTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(EXPORT VplsDecapTargets NAMESPACE VplsDecap:: DESTINATION ${VPLS_DECAP_CMAKE_DIR}
        COMPONENT dev)
configure_package_config_file(cmake/VplsDecapConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/VplsDecapConfig.cmake
                              INSTALL_DESTINATION ${VPLS_DECAP_CMAKE_DIR}
                              PATH_VARS VPLS_DECAP_INCLUDE_DIR)
# 0.x: a new minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VplsDecapConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VplsDecapConfig.cmake
              ${PROJECT_BINARY_DIR}/VplsDecapConfigVersion.cmake
        DESTINATION ${VPLS_DECAP_CMAKE_DIR} COMPONENT dev)

# The pkg-config file, for programs not built with CMake. Its paths hang off ${prefix}, so that
# `pkg-config --define-variable=prefix=DIR` finds a tree moved elsewhere.
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(VPLS_DECAP_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(VPLS_DECAP_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(cmake/vpls-decap.pc.in ${PROJECT_BINARY_DIR}/vpls-decap.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vpls-decap.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT dev)

# The consumer example, built with CMake or with make and pkg-config, beside the dev package's
# documentation.
install(FILES ${PROJECT_SOURCE_DIR}/examples/consumer/CMakeLists.txt
              ${PROJECT_SOURCE_DIR}/examples/consumer/Makefile
              ${PROJECT_SOURCE_DIR}/examples/consumer/main.cpp
        DESTINATION ${VPLS_DECAP_DEV_DOCDIR}/examples/consumer COMPONENT dev)

install(PROGRAMS ${PROJECT_BINARY_DIR}/frontend/show-vpls-decap
        DESTINATION ${CMAKE_INSTALL_BINDIR})

# The scenarios that teach the system; examples/consumer is a source example, not a scenario.
file(GLOB example_scenarios CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.json)
install(FILES ${example_scenarios} DESTINATION ${CMAKE_INSTALL_DATADIR}/vpls-decap/examples)

file(GLOB docs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${docs} DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT license)
