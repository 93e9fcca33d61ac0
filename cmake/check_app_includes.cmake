# SPDX-License-Identifier: GPL-3.0-or-later
# Fails when files of src/app include each other in a circle, or when a file
# of the model includes one of the commands. A header and its source count as
# one unit: comp.cpp including comp_actions.h while comp_actions.h includes
# comp.h is a circle, even though no header includes itself.
#
#   cmake -DSOURCE_DIR=<repository> -P check_app_includes.cmake
cmake_minimum_required(VERSION 3.25)

if(NOT SOURCE_DIR)
  message(FATAL_ERROR "SOURCE_DIR must name the repository")
endif()

file(GLOB_RECURSE files RELATIVE "${SOURCE_DIR}/src" "${SOURCE_DIR}/src/app/*.h"
     "${SOURCE_DIR}/src/app/*.cpp")
set(units)
set(errors)
foreach(file IN LISTS files)
  string(REGEX REPLACE "\\.(h|cpp)$" "" unit "${file}")
  list(APPEND units "${unit}")
  file(STRINGS "${SOURCE_DIR}/src/${file}" lines REGEX "^#include \"app/")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^#include \"([^\"]+)\\.(h|cpp)\".*$" "\\1" target "${line}")
    if(NOT target STREQUAL unit)
      set_property(GLOBAL APPEND PROPERTY "edges:${unit}" "${target}")
    endif()
    if(file MATCHES "^app/model/" AND target MATCHES "^app/commands/")
      list(APPEND errors "${file} includes ${target}.h: the model must not know the commands")
    endif()
  endforeach()
endforeach()
list(REMOVE_DUPLICATES units)

# Depth first; a unit met again while it is still open closes a circle.
function(visit unit path)
  get_property(state GLOBAL PROPERTY "state:${unit}")
  if(state STREQUAL "done")
    return()
  endif()
  if(state STREQUAL "open")
    list(FIND path "${unit}" at)
    list(SUBLIST path ${at} -1 circle)
    list(APPEND circle "${unit}")
    list(JOIN circle " -> " text)
    set_property(GLOBAL APPEND PROPERTY circles "${text}")
    return()
  endif()
  set_property(GLOBAL PROPERTY "state:${unit}" open)
  list(APPEND path "${unit}")
  get_property(targets GLOBAL PROPERTY "edges:${unit}")
  foreach(target IN LISTS targets)
    visit("${target}" "${path}")
  endforeach()
  set_property(GLOBAL PROPERTY "state:${unit}" done)
endfunction()

foreach(unit IN LISTS units)
  visit("${unit}" "")
endforeach()

get_property(circles GLOBAL PROPERTY circles)
foreach(circle IN LISTS circles)
  list(APPEND errors "include circle: ${circle}")
endforeach()
list(LENGTH circles circle_count)
list(LENGTH errors error_count)
if(error_count GREATER 0)
  list(JOIN errors "\n" text)
  message(FATAL_ERROR "${text}\n${circle_count} include circle(s) in src/app")
endif()
message(STATUS "src/app: no include circle, the model includes no command")
