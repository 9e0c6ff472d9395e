# Installs the library, its headers, the CMake package `kelvonclip` and the pkg-config file `kelvonclip`.
include(CMakePackageConfigHelpers)

install(TARGETS kelvonclip EXPORT kelvonclip-targets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kelvonclip DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kelvonclip)
install(EXPORT kelvonclip-targets NAMESPACE kelvonclip:: DESTINATION ${package_dir} FILE kelvonclip-targets.cmake)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kelvonclip-config.cmake.in
                              ${PROJECT_BINARY_DIR}/kelvonclip-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelvonclip-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kelvonclip-config.cmake ${PROJECT_BINARY_DIR}/kelvonclip-config-version.cmake
        DESTINATION ${package_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/kelvonclip.pc.in ${PROJECT_BINARY_DIR}/kelvonclip.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelvonclip.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
