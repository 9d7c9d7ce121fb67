# Debian packages with CPack, one a component (docs/install.md):
#   lasercali-plugin  the calibration plug-in alone
#   lasercali-calc    the calculation nodes' plug-in alone
#   lasercali-tools   libkiv, libsunxi_cam, kivrun, stripe-inspect, sim-pictures, scenarios, docs
#   lasercali-dev     headers, the CMake package, pkg-config
# `cpack -G DEB` in a build folder (scripts/package.sh) makes all four for
# the build's target: amd64, or arm64 / armhf in a cross build.
#
# Depends names Debian's runtime library packages, which have the same
# names on every architecture; the package test compares them with what
# dpkg-shlibdeps finds in the binaries.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lasercali)
set(CPACK_PACKAGE_VENDOR "lasercali developers")
set(CPACK_PACKAGE_CONTACT "lasercali developers <lasercali-dev@lasercali.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL plugin calc tools dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
if(NOT LASERCALI_DEB_ARCH)
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE LASERCALI_DEB_ARCH
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${LASERCALI_DEB_ARCH})

set(runtime "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 12)")
set(opencv "libopencv-core406 (>= 4.6.0+dfsg), libopencv-imgcodecs406 (>= 4.6.0+dfsg)")
set(this_version "${PROJECT_VERSION}")

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME lasercali-plugin)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_DEPENDS "${runtime}, ${opencv}, lasercali-tools (= ${this_version})")
set(CPACK_DEBIAN_PLUGIN_DESCRIPTION "camera/laser calibration node plug-in for kiv
liblasercali.so, the node KivNodeLaserCali that the kiv framework loads from
its plug-in folder. It drives the camera, stores calibration pictures under
/tmp, cuts laser stripe pictures and relays the calculation nodes' results.
It needs the kiv framework library and the camera library (libkiv.so.0,
libsunxi_cam.so.0), which lasercali-tools provides on a PC.")

set(CPACK_DEBIAN_CALC_PACKAGE_NAME lasercali-calc)
set(CPACK_DEBIAN_CALC_PACKAGE_SECTION misc)
# The camera's calibration (chessboard coverage, std::hypot) needs glibc 2.35.
set(calc_runtime "libc6 (>= 2.35), libgcc-s1 (>= 3.0), libstdc++6 (>= 12)")
set(CPACK_DEBIAN_CALC_PACKAGE_DEPENDS "${calc_runtime}, ${opencv}, libopencv-imgproc406 (>= 4.6.0+dfsg), \
libopencv-calib3d406 (>= 4.6.0+dfsg), lasercali-tools (= ${this_version})")
set(CPACK_DEBIAN_CALC_DESCRIPTION "calculation nodes plug-in for kiv
liblasercalc.so, the nodes that compute the laser calibration from the
calibration node's pictures: KivNodeLaserCalcPlane (each laser's plane),
KivNodeLaserCalcCheck, KivNodeLaserCalcDistance and
KivNodeLaserCalcCameraParam. Each is built from a JSON configuration
(pictures, camera model, thresholds). It needs the kiv framework library
(libkiv.so.0), which lasercali-tools provides on a PC; kivrun loads it for
the rounds with computing calculation nodes.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME lasercali-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION misc)
# kivrun's summary and report measure stripes through a camera model, whose
# lens calib3d undistorts; kivrun checks a picture folder's chessboard board
# with the camera calibration's own code, which needs glibc 2.35 (calc_runtime).
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${calc_runtime}, ${opencv}, libopencv-imgproc406 (>= 4.6.0+dfsg), \
libopencv-calib3d406 (>= 4.6.0+dfsg)")
# The shipped rounds with computing calculation nodes need the calculation plug-in.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "lasercali-calc (= ${this_version})")
# The shlibs file names the two libraries; dpkg runs ldconfig through a trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "host platform and tools of the laser calibration node
The host kiv framework library (libkiv) and the camera simulator library
(libsunxi_cam); kivrun, which plays scenarios against the calibration node
and writes an event log; stripe-inspect, which runs the laser stripe cut on
a picture; the shipped scenarios and the documentation (/usr/share/lasercali).")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME lasercali-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "lasercali-tools (= ${this_version}), rapidjson-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "development files of the laser calibration node
The message records header shared by the robot's nodes, the kiv node
framework headers and the camera library interface (/usr/include/lasercali),
the CMake package lasercali (lasercali::msgs, lasercali::framework,
lasercali::sunxi_cam) and lasercali.pc.")

# Every package carries its copyright file and a changelog.
set(LASERCALI_DEB_DOC_DIR ${PROJECT_BINARY_DIR}/debian-doc)
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${LASERCALI_DEB_DOC_DIR}/changelog
  "lasercali (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
  "  * Version ${PROJECT_VERSION}; see /usr/share/lasercali/CHANGELOG.md.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${changelog_date}\n")
execute_process(COMMAND gzip -9nf ${LASERCALI_DEB_DOC_DIR}/changelog)
foreach(component plugin calc tools dev)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${LASERCALI_DEB_DOC_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lasercali-${component} COMPONENT ${component})
endforeach()

include(CPack)
