# The robot SDK: the kiv framework library and the camera library as the
# robot provides them, for building the plug-in alone (-DLASERCALI_SDK=DIR).
#
# The SDK folder holds (include/lasercali/ is searched as well as include/):
#   include/framework/kiv.h, kiv_*.h            the framework's header templates and
#                                               the declarations of its operations
#   include/platform/sunxi_cam/sunxi_cam.h      the camera library's interface
#   lib/libkiv.so, lib/libsunxi_cam.so          the two libraries (lib/<triple>/ also
#                                               searched), each with its SONAME
# An install of this project (components tools and dev) is laid out so.
#
# Makes the targets the plug-in's sources link: kiv_headers (the framework's
# headers and rapidjson), kiv and sunxi_cam (imported shared libraries). The
# SDK folder is taken as given, also in a cross build with a sysroot.

get_filename_component(LASERCALI_SDK "${LASERCALI_SDK}" ABSOLUTE)
if(NOT IS_DIRECTORY "${LASERCALI_SDK}")
  message(FATAL_ERROR "LASERCALI_SDK: ${LASERCALI_SDK} is not a folder")
endif()

function(lasercali_sdk_find_header var header)
  find_path(${var} ${header} PATHS "${LASERCALI_SDK}/include" PATH_SUFFIXES lasercali
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT ${var})
    message(FATAL_ERROR "LASERCALI_SDK: ${LASERCALI_SDK}/include/${header} not found")
  endif()
endfunction()

function(lasercali_sdk_find_library var name)
  find_library(${var} NAMES ${name} PATHS "${LASERCALI_SDK}/lib"
    PATH_SUFFIXES ${CMAKE_LIBRARY_ARCHITECTURE} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT ${var})
    message(FATAL_ERROR "LASERCALI_SDK: lib${name}.so not found in ${LASERCALI_SDK}/lib"
      " or ${LASERCALI_SDK}/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
  endif()
endfunction()

lasercali_sdk_find_header(LASERCALI_SDK_FRAMEWORK_INCLUDE_DIR framework/kiv.h)
lasercali_sdk_find_header(LASERCALI_SDK_CAMERA_INCLUDE_DIR platform/sunxi_cam/sunxi_cam.h)
lasercali_sdk_find_library(LASERCALI_SDK_KIV_LIBRARY kiv)
lasercali_sdk_find_library(LASERCALI_SDK_CAMERA_LIBRARY sunxi_cam)
message(STATUS "Robot SDK: ${LASERCALI_SDK_KIV_LIBRARY}, ${LASERCALI_SDK_CAMERA_LIBRARY}")

add_library(kiv_headers INTERFACE)
target_include_directories(kiv_headers INTERFACE ${LASERCALI_SDK_FRAMEWORK_INCLUDE_DIR})
target_link_libraries(kiv_headers INTERFACE lasercali_rapidjson)

add_library(kiv SHARED IMPORTED)
set_target_properties(kiv PROPERTIES IMPORTED_LOCATION "${LASERCALI_SDK_KIV_LIBRARY}")
target_link_libraries(kiv INTERFACE kiv_headers)

add_library(sunxi_cam SHARED IMPORTED)
set_target_properties(sunxi_cam PROPERTIES IMPORTED_LOCATION "${LASERCALI_SDK_CAMERA_LIBRARY}")
target_include_directories(sunxi_cam INTERFACE ${LASERCALI_SDK_CAMERA_INCLUDE_DIR})
