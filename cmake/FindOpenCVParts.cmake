# Finds the individual OpenCV 4 libraries the project uses (core, imgcodecs, imgproc, calib3d)
# without the OpenCV CMake package, which Debian ships only with the meta-package.
#
# Creates one imported target per requested component: OpenCV::core, OpenCV::imgcodecs, ...
# Sets OpenCVParts_FOUND. When something is missing, the failure names every
# missing file and the Debian packages that hold them.

find_path(OpenCVParts_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)

# What is missing, for people, and the -dev packages that bring it. The
# headers come with libopencv-core-dev.
set(_opencv_parts_missing "")
set(_opencv_parts_packages "")
if(NOT OpenCVParts_INCLUDE_DIR)
  list(APPEND _opencv_parts_missing "the headers (opencv2/core.hpp)")
  list(APPEND _opencv_parts_packages libopencv-core-dev)
endif()
foreach(_part IN LISTS OpenCVParts_FIND_COMPONENTS)
  find_library(OpenCVParts_${_part}_LIBRARY NAMES opencv_${_part})
  if(NOT OpenCVParts_${_part}_LIBRARY)
    list(APPEND _opencv_parts_missing opencv_${_part})
    list(APPEND _opencv_parts_packages libopencv-${_part}-dev)
  elseif(OpenCVParts_INCLUDE_DIR)
    set(OpenCVParts_${_part}_FOUND TRUE)
    if(NOT TARGET OpenCV::${_part})
      add_library(OpenCV::${_part} UNKNOWN IMPORTED)
      set_target_properties(OpenCV::${_part} PROPERTIES
        IMPORTED_LOCATION "${OpenCVParts_${_part}_LIBRARY}"
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${OpenCVParts_INCLUDE_DIR}"
        INTERFACE_INCLUDE_DIRECTORIES "${OpenCVParts_INCLUDE_DIR}")
    endif()
  endif()
endforeach()
list(REMOVE_DUPLICATES _opencv_parts_packages)

# find_package_handle_standard_args splits its arguments at semicolons, so
# the lists go into the message as plain text.
list(JOIN _opencv_parts_missing ", " _opencv_parts_missing_text)
list(JOIN _opencv_parts_packages " " _opencv_parts_packages_text)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVParts
  REQUIRED_VARS OpenCVParts_INCLUDE_DIR
  HANDLE_COMPONENTS
  REASON_FAILURE_MESSAGE
    "missing: ${_opencv_parts_missing_text} (apt-get install ${_opencv_parts_packages_text})")
unset(_opencv_parts_missing)
unset(_opencv_parts_missing_text)
unset(_opencv_parts_packages)
unset(_opencv_parts_packages_text)
