# What an install holds besides the targets' own install rules, in four
# components (docs/install.md):
#   plugin  the plug-in, in <libdir>/kiv/plugins
#   tools   libkiv and libsunxi_cam, kivrun, stripe-inspect, sim-pictures
#           and their manual pages, the shipped scenarios and the docs
#           (<datadir>/lasercali)
#   calc    the calculation nodes' plug-in (tools/calc/CMakeLists.txt)
#   dev     the public headers (<includedir>/lasercali), the CMake package
#           lasercali (<libdir>/cmake/lasercali) and lasercali.pc
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/scenarios/ DESTINATION ${LASERCALI_INSTALL_DATADIR}/scenarios
  COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${LASERCALI_INSTALL_DATADIR}/docs
  COMPONENT tools PATTERN man EXCLUDE)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${LASERCALI_INSTALL_DATADIR} COMPONENT tools)

# The manual pages of the installed programs (docs/man/, made from their
# --help by scripts/man-pages.sh), compressed as Debian wants them.
set(lasercali_man_pages)
foreach(page kivrun stripe-inspect sim-pictures)
  set(source ${PROJECT_SOURCE_DIR}/docs/man/${page}.1)
  set(packed ${PROJECT_BINARY_DIR}/man/${page}.1.gz)
  add_custom_command(OUTPUT ${packed}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND gzip -9nc ${source} > ${packed}
    DEPENDS ${source} VERBATIM)
  list(APPEND lasercali_man_pages ${packed})
endforeach()
add_custom_target(lasercali_man_pages ALL DEPENDS ${lasercali_man_pages})
install(FILES ${lasercali_man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)

# The CMake package: lasercali::msgs, lasercali::framework_headers,
# lasercali::framework (with libkiv) and lasercali::sunxi_cam.
set(LASERCALI_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/lasercali)
install(EXPORT lasercaliTargets NAMESPACE lasercali:: DESTINATION ${LASERCALI_INSTALL_CMAKEDIR}
  COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/lasercaliConfig.cmake.in
  ${PROJECT_BINARY_DIR}/lasercaliConfig.cmake INSTALL_DESTINATION ${LASERCALI_INSTALL_CMAKEDIR}
  PATH_VARS LASERCALI_INSTALL_PLUGINDIR LASERCALI_INSTALL_DATADIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/lasercaliConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/lasercaliConfig.cmake
  ${PROJECT_BINARY_DIR}/lasercaliConfigVersion.cmake
  DESTINATION ${LASERCALI_INSTALL_CMAKEDIR} COMPONENT dev)

# pkg-config, for the headers alone (records and framework headers). The
# prefix is found from the .pc file's own place, so an install can be moved.
file(RELATIVE_PATH LASERCALI_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" LASERCALI_PC_TO_PREFIX "${LASERCALI_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/lasercali.pc.in ${PROJECT_BINARY_DIR}/lasercali.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lasercali.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)
