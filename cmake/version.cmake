# Writes a source that says the version, unless it says the same already.
#
# cmake -DSOURCE=FOLDER -DNUMBER=0.2.0 [-DGIVEN=VERSION] -DOUTPUT=FILE -P version.cmake
#
# GIVEN as it is; else NUMBER when this is the release (a clone with the tag vNUMBER and no change, or
# an archive of it); else NUMBER and what was built: +gCOMMIT, +gCOMMIT.changed, or +unreleased where
# nobody can tell.
cmake_minimum_required(VERSION 3.22)

function(git_says variable)
  execute_process(COMMAND ${GIT} -C ${SOURCE} ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE said
                  ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    set(said "")
  endif()
  set(${variable} "${said}" PARENT_SCOPE)
endfunction()

# Sets "commit" (ten digits, or empty) and "tags" for a clone.
macro(ask_clone)
  find_program(GIT git)
  if(GIT AND EXISTS ${SOURCE}/.git)
    git_says(commit rev-parse --verify HEAD)
    git_says(tags tag --points-at HEAD)
    git_says(changes status --porcelain --untracked-files=no)
    if(changes)
      set(suffix .changed)
    endif()
  endif()
endmacro()

# The same for an archive, which git has written its commit and tags into.
macro(ask_archive)
  file(STRINGS ${SOURCE}/cmake/archive.txt lines)
  foreach(line ${lines})
    if(line MATCHES "^commit ([0-9a-f]+)$")
      set(commit ${CMAKE_MATCH_1})
    elseif(line MATCHES "^names (.*)$")
      string(REGEX MATCHALL "tag: [^,]+" tags "${CMAKE_MATCH_1}")
      list(TRANSFORM tags REPLACE "^tag: " "")
    endif()
  endforeach()
endmacro()

set(version "${GIVEN}")
if(NOT version)
  set(commit "")
  set(tags "")
  set(suffix "")
  ask_clone()
  if(NOT commit)
    ask_archive()
  endif()
  string(REPLACE "\n" ";" tags "${tags}")
  if(NOT commit)
    set(version ${NUMBER}+unreleased)
  elseif("v${NUMBER}" IN_LIST tags AND NOT suffix)
    set(version ${NUMBER})
  else()
    string(SUBSTRING ${commit} 0 10 commit)
    set(version ${NUMBER}+g${commit}${suffix})
  endif()
endif()
if(NOT version MATCHES "^[0-9][-0-9A-Za-z.+~]*$")
  message(FATAL_ERROR "'${version}' is no version: a digit, then letters, digits and - . + ~")
endif()

file(CONFIGURE OUTPUT ${OUTPUT} @ONLY CONTENT [[
#include "util/version.h"

const char* bootforge::version() { return "@version@"; }
]])
