# Finds GoogleTest: the target GTest::gmock_main, from the installed package or else built from its source.
#
# A build with sanitizers needs the source, because GoogleTest must be built with them too. So does a cross build, unless
# there is a package for the target. KELVONCLIP_TESTS says what happens if there is neither.
set(KELVONCLIP_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "Source of GoogleTest, for want of an installed package")

if(NOT KELVONCLIP_SANITIZE)
  find_package(GTest QUIET)
endif()
if(TARGET GTest::gmock_main)
  message(STATUS "GoogleTest: the installed package, ${GTest_DIR}")
elseif(EXISTS ${KELVONCLIP_GOOGLETEST_SOURCE}/CMakeLists.txt)
  message(STATUS "GoogleTest: from its source, ${KELVONCLIP_GOOGLETEST_SOURCE}")
  set(INSTALL_GTEST OFF)
  add_subdirectory(${KELVONCLIP_GOOGLETEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  foreach(library gtest gmock gtest_main gmock_main)
    target_link_libraries(${library} PRIVATE kelvonclip_sanitizers)
  endforeach()
endif()
