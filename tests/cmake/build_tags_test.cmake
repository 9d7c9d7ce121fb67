# Checks cmake/BuildTags.cmake as a build runs it: the header it writes for a
# given commit, zeros outside a git checkout, the header left alone when
# nothing changed, and a version too long for the framework tag refused.
#
# usage: cmake -DSOURCE_DIR=<repo> -DWORK_DIR=<scratch folder> -P build_tags_test.cmake
set(script ${SOURCE_DIR}/cmake/BuildTags.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/not_a_checkout)

function(expect_define header name value)
  file(STRINGS ${header} lines REGEX "^#define ${name} ")
  if(NOT lines STREQUAL "#define ${name} \"${value}\"")
    message(FATAL_ERROR "${header}: expected ${name} \"${value}\", found '${lines}'")
  endif()
endfunction()

# A given commit: 13 and 6 of its digits, lower case.
execute_process(COMMAND ${CMAKE_COMMAND} -DVERSION=0.1.0 -DSOURCE_DIR=${WORK_DIR}/not_a_checkout
  -DOUTPUT=${WORK_DIR}/given.h -DGIT_COMMIT=0123456789ABCDEF0123456789abcdef01234567 -P ${script}
  RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "BuildTags.cmake failed with a given commit")
endif()
expect_define(${WORK_DIR}/given.h LASERCALI_VERSION "0.1.0")
expect_define(${WORK_DIR}/given.h LASERCALI_GIT_COMMIT "0123456789abcdef0123456789abcdef01234567")
expect_define(${WORK_DIR}/given.h LASERCALI_BUILD_COMMIT_TAG "lasercali-0.1.0-0123456789abc")
expect_define(${WORK_DIR}/given.h LASERCALI_FRAMEWORK_TAG "kiv-0.1.0-012345")

# A longer version leaves fewer digits; the tags keep their lengths.
execute_process(COMMAND ${CMAKE_COMMAND} -DVERSION=1.12.3 -DSOURCE_DIR=${WORK_DIR}/not_a_checkout
  -DOUTPUT=${WORK_DIR}/longer.h -DGIT_COMMIT=fedcba9876543210fedcba9876543210fedcba98 -P ${script})
expect_define(${WORK_DIR}/longer.h LASERCALI_BUILD_COMMIT_TAG "lasercali-1.12.3-fedcba987654")
expect_define(${WORK_DIR}/longer.h LASERCALI_FRAMEWORK_TAG "kiv-1.12.3-fedcb")

# No git checkout and no commit given: zeros.
execute_process(COMMAND ${CMAKE_COMMAND} -DVERSION=0.1.0 -DSOURCE_DIR=${WORK_DIR}/not_a_checkout
  -DOUTPUT=${WORK_DIR}/zeros.h -P ${script})
expect_define(${WORK_DIR}/zeros.h LASERCALI_BUILD_COMMIT_TAG "lasercali-0.1.0-0000000000000")
expect_define(${WORK_DIR}/zeros.h LASERCALI_FRAMEWORK_TAG "kiv-0.1.0-000000")

# Unchanged tags leave the header as it was, so nothing is rebuilt.
file(TIMESTAMP ${WORK_DIR}/zeros.h before "%s")
file(TOUCH_NOCREATE ${WORK_DIR}/zeros.h)
execute_process(COMMAND ${CMAKE_COMMAND} -E sleep 1.1)
file(TIMESTAMP ${WORK_DIR}/zeros.h touched "%s")
execute_process(COMMAND ${CMAKE_COMMAND} -DVERSION=0.1.0 -DSOURCE_DIR=${WORK_DIR}/not_a_checkout
  -DOUTPUT=${WORK_DIR}/zeros.h -P ${script})
file(TIMESTAMP ${WORK_DIR}/zeros.h after "%s")
if(NOT after STREQUAL touched)
  message(FATAL_ERROR "an unchanged header was rewritten")
endif()

# Too long a version, and a commit that is not hexadecimal, are refused.
foreach(case "10.10.10;0123456789abcdef0123456789abcdef01234567" "0.1.0;not-hex")
  list(GET case 0 version)
  list(GET case 1 commit)
  execute_process(COMMAND ${CMAKE_COMMAND} -DVERSION=${version} -DSOURCE_DIR=${WORK_DIR}/not_a_checkout
    -DOUTPUT=${WORK_DIR}/refused.h -DGIT_COMMIT=${commit} -P ${script}
    RESULT_VARIABLE failed ERROR_VARIABLE message)
  if(NOT failed OR EXISTS ${WORK_DIR}/refused.h)
    message(FATAL_ERROR "version ${version} with commit ${commit} was not refused")
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
message(STATUS "BuildTags.cmake: all cases hold")
