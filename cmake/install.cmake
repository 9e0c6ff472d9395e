# Installs the library, its headers, the CMake package `kelvonclip` and the pkg-config file `kelvonclip`.
include(CMakePackageConfigHelpers)

install(TARGETS kelvonclip EXPORT kelvonclip-targets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kelvonclip DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kelvonclip)
install(EXPORT kelvonclip-targets NAMESPACE kelvonclip:: DESTINATION ${package_dir} FILE kelvonclip-targets.cmake)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kelvonclip-config.cmake.in
                              ${PROJECT_BINARY_DIR}/kelvonclip-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelvonclip-config-version.cmake
                                 COMPATIBILITY ${package_compatibility})
install(FILES ${PROJECT_BINARY_DIR}/kelvonclip-config.cmake ${PROJECT_BINARY_DIR}/kelvonclip-config-version.cmake
        DESTINATION ${package_dir})

# The pkg-config file derives the prefix from its own location, so that an installed tree can be moved. This is not
# possible if the library's folder is an absolute path; then it is the prefix of the installation, which
# `cmake --install --prefix` can still change. So the file is written when it is installed.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(pkgconfig_prefix "\${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  set(pkgconfig_prefix "\\\${pcfiledir}/${up}")
endif()
cmake_path(APPEND pkgconfig_libdir "\${prefix}" ${CMAKE_INSTALL_LIBDIR})  # an absolute path replaces what it is appended to
cmake_path(APPEND pkgconfig_includedir "\${prefix}" ${CMAKE_INSTALL_INCLUDEDIR})
set(pkgconfig_libs -lkelvonclip)
if(library_type STREQUAL STATIC)
  set(pkgconfig_cflags " -DKELVONCLIP_STATIC")
  if(WIN32)
    string(APPEND pkgconfig_libs " -lrpcrt4 -lstdc++")
  else()
    set(pkgconfig_requires liburing)
    string(APPEND pkgconfig_libs " -lstdc++ -pthread")
  endif()
endif()
set(prefix_when_installed "@pkgconfig_prefix@")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kelvonclip.pc.in ${PROJECT_BINARY_DIR}/kelvonclip.pc.in @ONLY)
install(CODE "set(pkgconfig_prefix \"${pkgconfig_prefix}\")
configure_file(\"${PROJECT_BINARY_DIR}/kelvonclip.pc.in\" \"${PROJECT_BINARY_DIR}/kelvonclip.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/kelvonclip.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
