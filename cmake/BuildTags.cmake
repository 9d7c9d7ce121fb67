# Writes the build's version header, lasercali_version.h, with the project's
# version and the two version tags a node registers when it is built:
#
#   build commit tag (29 characters): lasercali-<version>-<commit>
#   framework tag    (16 characters): kiv-<version>-<commit>
#
# where <commit> is as many leading hex digits of the source's git commit as
# fill the tag to its length (13 and 6 for version 0.1.0), or zeros when the
# source is not a git checkout and no commit was given. A version longer
# than 7 characters does not fit the framework tag and is refused.
#
# Run as a script at every build (cmake -P), so the tags follow the checkout
# without a new configure; the header is rewritten only when it changes.
#   -DVERSION=x.y.z -DSOURCE_DIR=... -DOUTPUT=.../lasercali_version.h
#   [-DGIT_COMMIT=hex]   the commit, for sources that are not a git checkout

function(lasercali_tag prefix length out)
  string(LENGTH "${prefix}-" used)
  math(EXPR digits "${length} - ${used}")
  if(digits LESS 4)
    message(FATAL_ERROR "version ${VERSION} is too long for a ${length}-character tag")
  endif()
  string(LENGTH "${commit}" have)
  if(have LESS digits)
    message(FATAL_ERROR "the commit '${commit}' is shorter than the ${digits} digits a tag needs")
  endif()
  string(SUBSTRING "${commit}" 0 ${digits} part)
  set(${out} "${prefix}-${part}" PARENT_SCOPE)
endfunction()

if(GIT_COMMIT)
  set(commit "${GIT_COMMIT}")
else()
  set(commit "")
  # Only the source's own checkout counts, not one it happens to lie in.
  find_program(GIT git)
  if(GIT)
    execute_process(COMMAND ${GIT} -C "${SOURCE_DIR}" rev-parse --show-toplevel
      OUTPUT_VARIABLE top OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
    get_filename_component(source_real "${SOURCE_DIR}" REALPATH)
    get_filename_component(top_real "${top}" REALPATH)
    if(NOT failed AND top_real STREQUAL source_real)
      execute_process(COMMAND ${GIT} -C "${SOURCE_DIR}" rev-parse --verify HEAD
        OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
      if(failed)
        set(commit "")
      endif()
    endif()
  endif()
  if(NOT commit)
    string(REPEAT "0" 40 commit)
  endif()
endif()
string(TOLOWER "${commit}" commit)
if(NOT commit MATCHES "^[0-9a-f]+$")
  message(FATAL_ERROR "the commit '${commit}' is not hexadecimal")
endif()

lasercali_tag("lasercali-${VERSION}" 29 commit_tag)
lasercali_tag("kiv-${VERSION}" 16 framework_tag)

set(text "// Generated at build time by cmake/BuildTags.cmake: do not edit.
#ifndef LASERCALI_VERSION_H_
#define LASERCALI_VERSION_H_

#define LASERCALI_VERSION \"${VERSION}\"
#define LASERCALI_GIT_COMMIT \"${commit}\"
#define LASERCALI_BUILD_COMMIT_TAG \"${commit_tag}\"
#define LASERCALI_FRAMEWORK_TAG \"${framework_tag}\"

#endif  // LASERCALI_VERSION_H_
")
set(old "")
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
endif()
if(NOT old STREQUAL text)
  file(WRITE "${OUTPUT}" "${text}")
endif()
