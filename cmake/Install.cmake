# Installation: the headers, both libraries, a CMake package and a pkg-config
# file, all relocatable (`cmake --install <build> --prefix <anywhere>`).
#
#   <prefix>/include/VoBgpCommunity/{VoBgp,Kiv,Vok,...}/   headers, one include folder
#   <prefix>/<libdir>/libVoBgpCommunity.a, libVoBgpCommunity.so*
#   <prefix>/<libdir>/cmake/VoBgpCommunity/                find_package(VoBgpCommunity)
#   <prefix>/<libdir>/pkgconfig/vobgpcommunity.pc          pkg-config vobgpcommunity
#
# The library's and the platform's headers share the one include folder, so
# the includes a user writes ("VoBgp/VoBgpCommunity.h", "Kiv/Ptr.h") are those
# of this tree.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VOBGP_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/VoBgpCommunity)
set(VOBGP_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VoBgpCommunity)

install(TARGETS VoBgpCommunity VoBgpCommunityShared
  EXPORT VoBgpCommunityTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${VOBGP_INSTALL_INCLUDEDIR})
# Every header is installed: the public ones include the internal/ ones and
# the .def tables.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/VoBgp ${PROJECT_SOURCE_DIR}/platform/
  DESTINATION ${VOBGP_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h" PATTERN "*.def")

install(EXPORT VoBgpCommunityTargets NAMESPACE VoBgpCommunity::
  DESTINATION ${VOBGP_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VoBgpCommunityConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VoBgpCommunityConfig.cmake
  INSTALL_DESTINATION ${VOBGP_INSTALL_CMAKEDIR})
# Before 1.0 only the same minor version promises the same interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VoBgpCommunityConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VoBgpCommunityConfig.cmake
              ${PROJECT_BINARY_DIR}/VoBgpCommunityConfigVersion.cmake
  DESTINATION ${VOBGP_INSTALL_CMAKEDIR})

# The .pc file finds the prefix from its own place, so it stays right
# wherever the tree is installed.
file(RELATIVE_PATH VOBGP_PC_TO_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" VOBGP_PC_TO_PREFIX "${VOBGP_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/vobgpcommunity.pc.in
  ${PROJECT_BINARY_DIR}/vobgpcommunity.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vobgpcommunity.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
