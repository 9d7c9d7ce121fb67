# Finds the individual OpenCV 4 libraries the project uses (core, imgcodecs, imgproc)
# without the OpenCV CMake package, which Debian ships only with the meta-package.
#
# Creates one imported target per requested component: OpenCV::core, OpenCV::imgcodecs, ...
# Sets OpenCVParts_FOUND.

find_path(OpenCVParts_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)

set(_opencv_parts_missing "")
foreach(_part IN LISTS OpenCVParts_FIND_COMPONENTS)
  find_library(OpenCVParts_${_part}_LIBRARY NAMES opencv_${_part})
  if(OpenCVParts_${_part}_LIBRARY AND OpenCVParts_INCLUDE_DIR)
    set(OpenCVParts_${_part}_FOUND TRUE)
    if(NOT TARGET OpenCV::${_part})
      add_library(OpenCV::${_part} UNKNOWN IMPORTED)
      set_target_properties(OpenCV::${_part} PROPERTIES
        IMPORTED_LOCATION "${OpenCVParts_${_part}_LIBRARY}"
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${OpenCVParts_INCLUDE_DIR}"
        INTERFACE_INCLUDE_DIRECTORIES "${OpenCVParts_INCLUDE_DIR}")
    endif()
  else()
    list(APPEND _opencv_parts_missing opencv_${_part})
  endif()
endforeach()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVParts
  REQUIRED_VARS OpenCVParts_INCLUDE_DIR
  HANDLE_COMPONENTS
  REASON_FAILURE_MESSAGE "missing: ${_opencv_parts_missing} (apt-get install libopencv-core-dev libopencv-imgcodecs-dev libopencv-imgproc-dev)")
