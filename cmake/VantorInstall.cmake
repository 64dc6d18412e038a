# What `cmake --install` puts in place, in three components that are also the Debian packages:
#   runtime  libvantor.so.0.1.0 and its soname link libvantor.so.0        -> libvantor0
#   dev      headers (include/vantor/), libvantor.so, CMake package, .pc  -> libvantor-dev
#   tools    bin/vantor (tools/CMakeLists.txt)                            -> vantor-tools
# Consumers write #include "vantor.h": both the CMake target and vantor.pc point at include/vantor.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VANTOR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vantor)

install(TARGETS vantor EXPORT vantor-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantor)
install(FILES include/vantor.h include/vantor_ext.h include/vantor_kernels.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantor COMPONENT dev)
install(EXPORT vantor-targets NAMESPACE vantor:: DESTINATION ${VANTOR_CMAKE_DIR} COMPONENT dev)

configure_package_config_file(cmake/vantor-config.cmake.in
                              ${PROJECT_BINARY_DIR}/vantor-config.cmake
                              INSTALL_DESTINATION ${VANTOR_CMAKE_DIR})
# The soname carries the major version, so any 0.x satisfies a request for 0.1.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vantor-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vantor-config.cmake
              ${PROJECT_BINARY_DIR}/vantor-config-version.cmake
        DESTINATION ${VANTOR_CMAKE_DIR} COMPONENT dev)

# vantor.pc is written at install time, so that it names the prefix actually installed to
# (`cmake --install --prefix`, or /usr for the packages).
install(CODE "
  set(VANTOR_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(VANTOR_PC_LIBDIR ${CMAKE_INSTALL_LIBDIR})
  set(VANTOR_PC_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
  set(VANTOR_PC_VERSION ${PROJECT_VERSION})
  configure_file(\"${PROJECT_SOURCE_DIR}/cmake/vantor.pc.in\" \"${PROJECT_BINARY_DIR}/vantor.pc\" @ONLY)
  file(INSTALL \"${PROJECT_BINARY_DIR}/vantor.pc\"
       DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")
" COMPONENT dev)

if(NOT VANTOR_TOP_LEVEL)
  return()
endif()

# ---- Debian packages: cpack -G DEB in the build directory -----------------------------------
set(CPACK_PACKAGE_NAME vantor)
set(CPACK_PACKAGE_VENDOR vantor)
set(CPACK_PACKAGE_CONTACT "vantor developers <vantor@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
# Listed here: CPack is set up before tools/ adds its install rule.
set(CPACK_COMPONENTS_ALL runtime dev)
if(VANTOR_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvantor0)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "chroma-blotch removal for camera frames - shared library
 Removes low-frequency colour blotches from NV21, NM21, YUYV and YUY2 frames in place.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvantor-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "chroma-blotch removal for camera frames - development files
 Headers, CMake package (find_package(vantor)) and pkg-config file (vantor.pc).")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vantor-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "chroma-blotch removal for camera frames - command-line tool
 The vantor tool: denoise raw frames and photos, compare before and after, demo and bench.")
# Each becomes "libvantor0 (= version)" in the package's Depends.
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
include(CPack)
