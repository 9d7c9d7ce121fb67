# Configures the project in find_opencv_parts/ and checks what the OpenCV find
# module says:
#
#   cmake -DCASE=missing|found -DWORK_DIR=DIR -DGENERATOR=G -DCXX_COMPILER=CXX
#         -P check_find_opencv_parts.cmake
#
# missing: the libraries and headers are looked for under a folder that does
# not exist (found ones are given as cache values), so the configure must
# fail with the module's own hint, naming what is missing and the packages to
# install, for several parts, one part and the headers alone. found: the
# configure on this machine as it is must succeed.
foreach(var CASE WORK_DIR GENERATOR CXX_COMPILER)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "check_find_opencv_parts: -D${var}=... is not given")
  endif()
endforeach()
set(project_dir ${CMAKE_CURRENT_LIST_DIR}/find_opencv_parts)
set(failures 0)

# configure(NAME ARGS...): configures into WORK_DIR/NAME; sets `result` and
# `output` (standard output and error together) in the caller.
function(configure name)
  set(dir ${WORK_DIR}/${name})
  file(REMOVE_RECURSE ${dir})
  execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${project_dir} -B ${dir} -G ${GENERATOR}
            -DCMAKE_CXX_COMPILER=${CXX_COMPILER} ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  set(result ${result} PARENT_SCOPE)
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(fail name what)
  message(SEND_ERROR "${name}: ${what}\n--- configure output ---\n${output}\n---")
  math(EXPR count "${failures} + 1")
  set(failures ${count} PARENT_SCOPE)
endfunction()

# expect_hint(NAME MISSING PACKAGES CACHE_ARGS...): the configure with nothing
# in reach but CACHE_ARGS fails and its hint reads "missing: MISSING
# (apt-get install PACKAGES)".
function(expect_hint name missing packages)
  configure(${name} -DCMAKE_FIND_ROOT_PATH=/nonexistent/lasercali
            -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY ${ARGN})
  if(result EQUAL 0)
    fail(${name} "the configure succeeded with nothing to find")
  endif()
  string(FIND "${output}" "Unknown keywords" at)
  if(NOT at EQUAL -1)
    fail(${name} "the hint did not reach find_package_handle_standard_args intact")
  endif()
  foreach(text "Could NOT find OpenCVParts" "missing: ${missing} (apt-get install ${packages})")
    string(FIND "${output}" "${text}" at)
    if(at EQUAL -1)
      fail(${name} "the output does not say '${text}'")
    endif()
  endforeach()
  set(failures ${failures} PARENT_SCOPE)
endfunction()

if(CASE STREQUAL "missing")
  expect_hint(nothing
    "the headers (opencv2/core.hpp), opencv_core, opencv_imgcodecs, opencv_imgproc"
    "libopencv-core-dev libopencv-imgcodecs-dev libopencv-imgproc-dev")
  expect_hint(two_parts "opencv_imgcodecs, opencv_imgproc"
    "libopencv-imgcodecs-dev libopencv-imgproc-dev"
    -DOpenCVParts_INCLUDE_DIR=/nonexistent/include -DOpenCVParts_core_LIBRARY=/nonexistent/libopencv_core.so)
  expect_hint(one_part "opencv_imgproc" "libopencv-imgproc-dev"
    -DOpenCVParts_INCLUDE_DIR=/nonexistent/include -DOpenCVParts_core_LIBRARY=/nonexistent/libopencv_core.so
    -DOpenCVParts_imgcodecs_LIBRARY=/nonexistent/libopencv_imgcodecs.so)
  expect_hint(headers "the headers (opencv2/core.hpp)" "libopencv-core-dev"
    -DOpenCVParts_core_LIBRARY=/nonexistent/libopencv_core.so
    -DOpenCVParts_imgcodecs_LIBRARY=/nonexistent/libopencv_imgcodecs.so
    -DOpenCVParts_imgproc_LIBRARY=/nonexistent/libopencv_imgproc.so)
elseif(CASE STREQUAL "found")
  configure(found)
  if(NOT result EQUAL 0)
    fail(found "the configure failed with the OpenCV parts installed")
  endif()
  string(FIND "${output}" "OpenCV parts: " at)
  if(at EQUAL -1)
    fail(found "the project did not report where the headers are")
  endif()
else()
  message(FATAL_ERROR "check_find_opencv_parts: CASE is missing or found, not '${CASE}'")
endif()

if(failures GREATER 0)
  message(FATAL_ERROR "check_find_opencv_parts: ${failures} failed check(s) (case ${CASE})")
endif()
message(STATUS "check_find_opencv_parts: case ${CASE} as expected")
