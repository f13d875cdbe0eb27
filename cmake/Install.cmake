# What `cmake --install` puts under the prefix: the libraries with their headers and the CMake
# package VplsDecap, the programs (each directory installs its own), the show command's front
# end, the example scenarios and the documentation. The Debian package adds the service files
# (packaging/).
include(CMakePackageConfigHelpers)

# Headers, at the include paths the code in this tree uses: `Loom/...`, `Fab/...`, `MarlTunnel/...`.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/MarlTunnel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "detail" EXCLUDE)

install(TARGETS platform_archive platform marltunnel_archive marltunnel
        EXPORT VplsDecapTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT VplsDecapTargets NAMESPACE VplsDecap:: DESTINATION ${VPLS_DECAP_CMAKE_DIR})
configure_package_config_file(cmake/VplsDecapConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/VplsDecapConfig.cmake
                              INSTALL_DESTINATION ${VPLS_DECAP_CMAKE_DIR})
# 0.x: a new minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VplsDecapConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VplsDecapConfig.cmake
              ${PROJECT_BINARY_DIR}/VplsDecapConfigVersion.cmake
        DESTINATION ${VPLS_DECAP_CMAKE_DIR})

install(PROGRAMS ${PROJECT_BINARY_DIR}/frontend/show-vpls-decap
        DESTINATION ${CMAKE_INSTALL_BINDIR})

# The scenarios that teach the system; examples/consumer is a source example, not a scenario.
file(GLOB example_scenarios CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.json)
install(FILES ${example_scenarios} DESTINATION ${CMAKE_INSTALL_DATADIR}/vpls-decap/examples)

file(GLOB docs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${docs} DESTINATION ${CMAKE_INSTALL_DOCDIR})
